#include "asn/x509/algorithm_identifier.h"

#include "crypto/sign_algo_map.h"
#include "misc/exceptions.h"

namespace crv {

MemberTable AlgorithmIdentifier::members() const {
    static constexpr Member kMembers[] = {member<&AlgorithmIdentifier::algorithm>,
                                          member<&AlgorithmIdentifier::parameters>};
    return kMembers;
}

bool operator==(const AlgorithmIdentifier& a, const AlgorithmIdentifier& b) {
    const auto none = [](const AlgorithmIdentifier& x) {
        return !x.parameters || x.parameters->getTag() == ASNnull::kTag;
    };
    return a.algorithm == b.algorithm && ((none(a) && none(b)) || a.parameters == b.parameters);
}

AlgorithmIdentifier hashAlgorithm(KcHashAlgo hash) {
    AlgorithmIdentifier identifier;
    VTEST(identifier.algorithm.setText(hashOid(hash)), "src/asn/x509/algorithm_identifier");
    identifier.parameters.emplace().build(ASNnull());
    return identifier;
}

KcHashAlgo hashAlgoOf(const AlgorithmIdentifier& algorithm) {
    const std::string oid = algorithm.algorithm.text();
    for (const KcHashAlgo hash : kHashAlgos)
        if (oid == hashOid(hash)) return hash;
    return KcHashAlgo::None;
}

}  // namespace crv
