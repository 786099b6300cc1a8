#include "asn/pkcs/dsa_private_key.h"

#include "asn/known_oids.h"
#include "asn/x509/algorithm_params.h"
#include "misc/exceptions.h"

namespace crv {

MemberTable DSAPrivateKey::members() const {
    static constexpr Member kMembers[] = {member<&DSAPrivateKey::version>, member<&DSAPrivateKey::p>,
                                          member<&DSAPrivateKey::q>,       member<&DSAPrivateKey::g>,
                                          member<&DSAPrivateKey::y>,       member<&DSAPrivateKey::x>};
    return kMembers;
}

PrivateKeyInfo DSAPrivateKey::toPrivateKeyInfo() const {
    DsaParams domain;
    domain.p = p;
    domain.q = q;
    domain.g = g;
    PrivateKeyInfo info;
    info.privateKeyAlgorithm = AlgorithmIdentifier(OID_DSA, domain);
    VTEST(x.writeToOctStr(info.privateKey), "src/asn/pkcs/dsa_private_key");
    return info;
}

bool DSAPrivateKey::fromPrivateKeyInfo(const PrivateKeyInfo& info) {
    DsaParams domain;
    const auto& parameters = info.privateKeyAlgorithm.parameters;
    if (!(info.privateKeyAlgorithm.algorithm == OID_DSA) || !parameters || !parameters->decode(domain)) return false;
    version.setValue(0);
    y.setValue(0);
    p = domain.p;
    q = domain.q;
    g = domain.g;
    return x.readFromOctStr(info.privateKey) > 0;
}

}  // namespace crv
