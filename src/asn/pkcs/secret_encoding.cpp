#include "asn/pkcs/secret_encoding.h"

#include "misc/exceptions.h"

namespace crv {

SecretBytes encodedSecret(const ASNobject& object) {
    SecretBytes octets(static_cast<size_t>(object.getLength()));
    VTEST(object.writeToSpan(octets), "src/asn/pkcs/secret_encoding");
    return octets;
}

}  // namespace crv
