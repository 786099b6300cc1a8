// The objects of a token: private and public keys, certificates, each with its attributes (PKCS#11 2.40, 4).
#pragma once

#include <array>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "pkcs11_module/refusal.h"
#include "pkcs11_module/store_reader.h"

namespace crv::p11 {

/// What an object is the same by when the file was read anew: SHA-256 over its class and, of a key, its identifier, of
/// a certificate, its encoding.
using Identity = std::array<uint8_t, 32>;

class TokenObject {
  public:
    CK_OBJECT_HANDLE handle = 0;
    Identity identity = {};
    SignerPtr privateKey = {};                ///< of a private key
    std::optional<PublicKey> publicKey = {};  ///< of any key
    bool signs = false;
    bool decrypts = false;

    /// Each attribute once.
    void set(CK_ATTRIBUTE_TYPE type, ByteView value);
    void set(CK_ATTRIBUTE_TYPE type, CK_ULONG value);
    void set(CK_ATTRIBUTE_TYPE type, bool value);

    /// Gives memory back once everything is set.
    void complete();

    /// The attribute's value; none for one that the object lacks or does not give away.
    [[nodiscard]] std::optional<ByteView> find(CK_ATTRIBUTE_TYPE type) const;
    /// C_GetAttributeValue for one attribute.
    [[nodiscard]] CK_RV answer(CK_ATTRIBUTE& attribute) const;
    [[nodiscard]] bool matches(std::span<const CK_ATTRIBUTE> wanted) const;

  private:
    [[nodiscard]] bool keepsSecret(CK_ATTRIBUTE_TYPE type) const;

    struct Attribute {
        CK_ATTRIBUTE_TYPE type;
        uint32_t at;
        uint32_t length;
    };
    /// All values together, for there may be many objects; those that stand in another one are not kept twice.
    struct Values {
        std::vector<Attribute> attributes;
        Bytes octets;
    };
    std::shared_ptr<Values> values_ = std::make_shared<Values>();  // shared with copies, which do not set
};

/// By handle.
using TokenObjects = std::vector<TokenObject>;
using ObjectsPtr = std::shared_ptr<const TokenObjects>;

/// The object with the handle, or null.
[[nodiscard]] const TokenObject* findObject(const TokenObjects* objects, CK_OBJECT_HANDLE handle);

/// The objects of a store that was opened. What `before` (null: nothing) had, too, keeps its handle and, so that
/// operations that have begun go on, its private key.
[[nodiscard]] ObjectsPtr makeObjects(const ReadStore& store, const std::string& profile, const TokenObjects* before);

/// Makes the objects of a database's certificates; none of them is trusted.
class DatabaseObjects {
  public:
    /// What `before` had, too, is taken over from it as it is.
    explicit DatabaseObjects(const TokenObjects* before);

    /// A certificate in DER; what is none is left out.
    void add(ByteView der);
    [[nodiscard]] ObjectsPtr take();

  private:
    std::map<Identity, const TokenObject*> known_;
    TokenObjects objects_;
};

}  // namespace crv::p11
