// Objects of a token: templates to find and make them, their attributes as they come from a module that may lie, and
// keys and certificates made of them.
#pragma once

#include <deque>
#include <map>
#include <optional>
#include <vector>

#include <p11-kit/pkcs11.h>

#include "crypto/public_key.h"
#include "misc/bytes.h"

namespace crv {

/// Most octets that are believed to be one attribute, and most objects that are believed to be on a token.
inline constexpr CK_ULONG kMaxP11Attribute = 16UL << 20;
inline constexpr size_t kMaxP11Objects = 10000;

/// Attributes to search by or to make an object of. Owns their values.
class P11Template {
  public:
    P11Template() = default;
    P11Template(P11Template&&) = default;
    P11Template& operator=(P11Template&&) = default;

    P11Template& octets(CK_ATTRIBUTE_TYPE type, ByteView value);
    P11Template& text(CK_ATTRIBUTE_TYPE type, std::string_view value) { return octets(type, asBytes(value)); }
    P11Template& flag(CK_ATTRIBUTE_TYPE type, bool value);
    P11Template& number(CK_ATTRIBUTE_TYPE type, CK_ULONG value);

    /// As modules take it, which never write through these pointers.
    [[nodiscard]] CK_ATTRIBUTE* data() { return attributes_.data(); }
    [[nodiscard]] CK_ULONG size() const { return attributes_.size(); }

  private:
    std::deque<Bytes> values_;
    std::vector<CK_ATTRIBUTE> attributes_;
};

/// Objects of a class; keys also of a type.
[[nodiscard]] P11Template objectsOf(CK_OBJECT_CLASS objectClass);
[[nodiscard]] P11Template keysOf(CK_OBJECT_CLASS objectClass, CK_KEY_TYPE type, ByteView id);

/// Attributes of an object that could be read.
class P11Attributes : public std::map<CK_ATTRIBUTE_TYPE, Bytes> {
  public:
    /// The octets; empty when there are none.
    [[nodiscard]] ByteView octets(CK_ATTRIBUTE_TYPE type) const;
    /// Whether it is there and true.
    [[nodiscard]] bool flag(CK_ATTRIBUTE_TYPE type) const;
};

/// The public key that the attributes of a key object describe: the numbers (CKA_EC_POINT as an OCTET STRING or raw),
/// else CKA_PUBLIC_KEY_INFO. Nothing when they describe none or one that is not usable here.
[[nodiscard]] std::optional<PublicKey> publicKeyOf(const P11Attributes& key);
/// The attributes that publicKeyOf looks at.
inline constexpr CK_ATTRIBUTE_TYPE kPublicKeyAttributes[] = {
    CKA_KEY_TYPE, CKA_ID, CKA_MODULUS, CKA_PUBLIC_EXPONENT, CKA_EC_PARAMS, CKA_EC_POINT, CKA_PUBLIC_KEY_INFO};

/// A text of fixed length from a module: without the padding, control characters and what is no UTF-8 as "?".
[[nodiscard]] std::string p11Text(const unsigned char* text, size_t length);

}  // namespace crv
