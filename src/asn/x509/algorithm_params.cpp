#include "asn/x509/algorithm_params.h"

#include "asn/known_oids.h"

namespace crv {

RsaPssParams::RsaPssParams() {
    saltLength.setValue(kDefaultSalt);
    trailerField.setValue(1);
}

RsaPssParams::RsaPssParams(KcHashAlgo hash, KcHashAlgo mgfHash, long salt) : RsaPssParams() {
    if (hash != KcHashAlgo::Sha1) hashAlgorithm = crv::hashAlgorithm(hash);
    if (mgfHash != KcHashAlgo::Sha1) maskGenAlgorithm = AlgorithmIdentifier(OID_MGF1, crv::hashAlgorithm(mgfHash));
    saltLength.setValue(salt);
}

KcHashAlgo RsaPssParams::hash() const {
    return hashAlgorithm ? hashAlgoOf(*hashAlgorithm) : KcHashAlgo::Sha1;
}

KcHashAlgo RsaPssParams::mgfHash() const {
    if (!maskGenAlgorithm) return KcHashAlgo::Sha1;
    AlgorithmIdentifier hash;
    if (!(maskGenAlgorithm->algorithm == OID_MGF1) || !maskGenAlgorithm->parameters ||
        !(hash << *maskGenAlgorithm->parameters))
        return KcHashAlgo::None;
    return hashAlgoOf(hash);
}

MemberTable RsaPssParams::members() const {
    static constexpr Member kMembers[] = {member<&RsaPssParams::hashAlgorithm>, member<&RsaPssParams::maskGenAlgorithm>,
                                          defaulted<&RsaPssParams::saltLength, kDefaultSalt>,
                                          defaulted<&RsaPssParams::trailerField, 1>};
    return kMembers;
}

MemberTable DsaParams::members() const {
    static constexpr Member kMembers[] = {member<&DsaParams::p>, member<&DsaParams::q>, member<&DsaParams::g>};
    return kMembers;
}

MemberTable EcFieldParams::members() const {
    static constexpr Member kMembers[] = {member<&EcFieldParams::fieldType>, member<&EcFieldParams::parameters>};
    return kMembers;
}

MemberTable EcCurveParams::members() const {
    static constexpr Member kMembers[] = {member<&EcCurveParams::a>, member<&EcCurveParams::b>,
                                          member<&EcCurveParams::seed>};
    return kMembers;
}

MemberTable EcDomainParams::members() const {
    static constexpr Member kMembers[] = {member<&EcDomainParams::version>, member<&EcDomainParams::fieldId>,
                                          member<&EcDomainParams::curve>,   member<&EcDomainParams::base>,
                                          member<&EcDomainParams::order>,   member<&EcDomainParams::cofactor>};
    return kMembers;
}

}  // namespace crv
