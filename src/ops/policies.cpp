#include "ops/policies.h"

#include <algorithm>

#include "config/config_oids.h"
#include "config/configuration_manager.h"
#include "ops/op_error.h"

namespace crv {
namespace {

void demandCertificate(const KeyStoreAccess& access) {
    if (!mayChangePolicies(access))
        throw OpError(OpFault::NoSigningCertificate, access.configuration.profile()->name());
}

}  // namespace

bool mayChangePolicies(const KeyStoreAccess& access) {
    return (access.keys.signingKey() && access.keys.signingCertificate()) ||
           access.configuration.record().getIntOpt(kOptDecryptOnly) != 0;
}

PolicyFault faultOfPolicy(const CRVCfgFile::Policies& list, const ASNobjectId& oid, const std::string& name) {
    if (oid.text() == kAnyPolicy) return PolicyFault::AnyPolicy;
    const PolicyIdAndNote added(oid, name);
    const auto any = [&](auto same) { return std::any_of(list.begin(), list.end(), same); };
    if (any([&](const auto& policy) { return policy.policyId == oid; })) return PolicyFault::SameIdentifier;
    const bool sameName = any([&](const auto& policy) { return policy.note == added.note; });
    return sameName && !name.empty() ? PolicyFault::SameName : PolicyFault::None;
}

void addPolicyTo(const KeyStoreAccess& access, const std::string& oid, const std::string& name) {
    demandCertificate(access);
    auto list = access.configuration.record().getPolicies();
    const auto id = ASNobjectId::fromText(oid);
    const PolicyFault fault = id ? faultOfPolicy(list, *id, name) : PolicyFault::AnyPolicy;
    if (fault == PolicyFault::AnyPolicy || name.empty()) throw OpError(OpFault::BadValue, oid);
    if (fault != PolicyFault::None) throw OpError(OpFault::ObjectExists, oid);
    list.add(PolicyIdAndNote(*id, name));
    access.configuration.editRecord().setPolicies(list);
}

void removePolicyFrom(const KeyStoreAccess& access, const std::string& oid) {
    demandCertificate(access);
    auto list = access.configuration.record().getPolicies();
    size_t at = 0;
    while (at < list.size() && list[at].policyId.text() != oid) ++at;
    if (at == list.size()) throw OpError(OpFault::ObjectMissing, oid);
    list.remove(at);
    access.configuration.editRecord().setPolicies(list);
}

}  // namespace crv
