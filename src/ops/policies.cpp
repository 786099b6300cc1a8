#include "ops/policies.h"

#include <algorithm>

#include "config/config_oids.h"
#include "ops/op_error.h"
#include "ops/session.h"

namespace crv {
namespace {

void demandCertificate(Session& session) {
    if (!mayChangePolicies(session)) throw OpError(OpFault::NoSigningCertificate, session.profile().name());
}

}  // namespace

bool mayChangePolicies(Session& session) {
    return (session.keys().signingKey() && session.keys().signingCertificate()) ||
           session.configuration().record().getIntOpt(kOptDecryptOnly) != 0;
}

void addPolicyTo(Session& session, const std::string& oid, const std::string& name) {
    demandCertificate(session);
    const auto id = ASNobjectId::fromText(oid);
    if (!id || oid == kAnyPolicy || name.empty()) throw OpError(OpFault::BadValue, oid);
    const PolicyIdAndNote added(*id, name);
    auto list = session.configuration().record().getPolicies();
    if (std::any_of(list.begin(), list.end(),
                    [&](const auto& policy) { return policy.policyId == added.policyId || policy.note == added.note; }))
        throw OpError(OpFault::ObjectExists, oid);
    list.add(added);
    session.configuration().editRecord().setPolicies(list);
}

void removePolicyFrom(Session& session, const std::string& oid) {
    demandCertificate(session);
    auto list = session.configuration().record().getPolicies();
    size_t at = 0;
    while (at < list.size() && list[at].policyId.text() != oid) ++at;
    if (at == list.size()) throw OpError(OpFault::ObjectMissing, oid);
    list.remove(at);
    session.configuration().editRecord().setPolicies(list);
}

}  // namespace crv
