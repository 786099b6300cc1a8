#include "asn/pkcs/ec_private_key.h"

#include "asn/known_oids.h"
#include "misc/exceptions.h"

namespace crv {

namespace {
constexpr const char* kEcKeyPlace = "src/asn/pkcs/ec_private_key";
}

MemberTable ECPrivateKey::members() const {
    static constexpr Member kMembers[] = {member<&ECPrivateKey::version>, member<&ECPrivateKey::privateKey>,
                                          member<&ECPrivateKey::parameters>, member<&ECPrivateKey::publicKey>};
    return kMembers;
}

PrivateKeyInfo ECPrivateKey::toPrivateKeyInfo() const {
    VTEST(parameters.has_value(), kEcKeyPlace);
    PrivateKeyInfo info;
    info.privateKeyAlgorithm = AlgorithmIdentifier(OID_EC_PUBLIC_KEY, parameters->value);
    ECPrivateKey inner;
    VTEST(inner.copyObject(*this) > 0, kEcKeyPlace);  // a copy without the octets kept from reading
    inner.parameters.reset();
    VTEST(inner.writeToOctStr(info.privateKey), kEcKeyPlace);
    return info;
}

bool ECPrivateKey::fromPrivateKeyInfo(const PrivateKeyInfo& info) {
    const AlgorithmIdentifier& algorithm = info.privateKeyAlgorithm;
    if (!(algorithm.algorithm == OID_EC_PUBLIC_KEY) || readFromOctStr(info.privateKey) <= 0) return false;
    if (!parameters && algorithm.parameters) parameters.emplace().value = *algorithm.parameters;
    return parameters.has_value();
}

}  // namespace crv
