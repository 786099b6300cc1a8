#include "asn/pkcs/rsa_private_key.h"

#include "asn/known_oids.h"
#include "misc/exceptions.h"

namespace crv {

MemberTable OtherPrimeInfo::members() const {
    static constexpr Member kMembers[] = {member<&OtherPrimeInfo::prime>, member<&OtherPrimeInfo::exponent>,
                                          member<&OtherPrimeInfo::coefficient>};
    return kMembers;
}

MemberTable RSAPrivateKey::members() const {
    using Key = RSAPrivateKey;
    static constexpr Member kMembers[] = {
        member<&Key::version>,         member<&Key::modulus>,   member<&Key::publicExponent>,
        member<&Key::privateExponent>, member<&Key::prime1>,    member<&Key::prime2>,
        member<&Key::exponent1>,       member<&Key::exponent2>, member<&Key::coefficient>,
        member<&Key::otherPrimeInfos>,
    };
    return kMembers;
}

PrivateKeyInfo RSAPrivateKey::toPrivateKeyInfo() const {
    PrivateKeyInfo info;
    info.privateKeyAlgorithm = AlgorithmIdentifier(OID_RSA_ENC, ASNnull());
    VTEST(writeToOctStr(info.privateKey), "src/asn/pkcs/rsa_private_key");
    return info;
}

bool RSAPrivateKey::fromPrivateKeyInfo(const PrivateKeyInfo& info) {
    const ASNobjectId& algorithm = info.privateKeyAlgorithm.algorithm;
    const bool rsa = algorithm == OID_RSA_ENC || algorithm == OID_RSA || algorithm == OID_RSA_PSS;
    return rsa && readFromOctStr(info.privateKey) > 0;
}

}  // namespace crv
