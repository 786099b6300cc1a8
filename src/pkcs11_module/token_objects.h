// The objects of a token: private and public keys, certificates, each with its attributes (PKCS#11 2.40, 4).
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "pkcs11_module/refusal.h"
#include "pkcs11_module/store_reader.h"

namespace crv::p11 {

class TokenObject {
  public:
    CK_OBJECT_HANDLE handle = 0;
    Bytes identity = {};                      ///< what the object is the same by when the file was read anew
    SignerPtr privateKey = {};                ///< of a private key
    std::optional<PublicKey> publicKey = {};  ///< of any key
    bool signs = false;
    bool decrypts = false;

    void set(CK_ATTRIBUTE_TYPE type, ByteView value) { attributes_[type] = toBytes(value); }
    void set(CK_ATTRIBUTE_TYPE type, CK_ULONG value);
    void set(CK_ATTRIBUTE_TYPE type, bool value);

    /// The attribute's value, or null for one that the object lacks or does not give away.
    [[nodiscard]] const Bytes* find(CK_ATTRIBUTE_TYPE type) const;
    /// C_GetAttributeValue for one attribute.
    [[nodiscard]] CK_RV answer(CK_ATTRIBUTE& attribute) const;
    [[nodiscard]] bool matches(std::span<const CK_ATTRIBUTE> wanted) const;

  private:
    [[nodiscard]] bool keepsSecret(CK_ATTRIBUTE_TYPE type) const;

    std::map<CK_ATTRIBUTE_TYPE, Bytes> attributes_;
};

/// By handle.
using TokenObjects = std::vector<TokenObject>;
using ObjectsPtr = std::shared_ptr<const TokenObjects>;

/// The object with the handle, or null.
[[nodiscard]] const TokenObject* findObject(const TokenObjects* objects, CK_OBJECT_HANDLE handle);

/// The objects of a store that was opened. What `before` (null: nothing) had, too, keeps its handle and, so that
/// operations that have begun go on, its private key.
[[nodiscard]] ObjectsPtr makeObjects(const ReadStore& store, const std::string& profile, const TokenObjects* before);

/// Certificates of a database, in DER; none of them is trusted.
[[nodiscard]] ObjectsPtr makeCertificates(std::span<const Bytes> certificates, const TokenObjects* before);

}  // namespace crv::p11
