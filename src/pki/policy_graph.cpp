#include "pki/policy_graph.h"

#include <algorithm>

namespace crv {

namespace {

std::string oidKey(const ASNobjectId& policy) {
    return std::string(asText(policy.contents()));
}

std::string anyPolicy() {
    return std::string(asText(OID_ANY_POLICY.octets()));
}

ASNobjectId policyOf(const std::string& key) {
    ASNany value;
    value.build(ASNobjectId::kTag, asBytes(key));
    ASNobjectId policy;
    static_cast<void>(value.decode(policy));
    return policy;
}

}  // namespace

PolicyGraph::PolicyGraph() : levels_(1) {
    levels_[0][anyPolicy()].expected = {anyPolicy()};
}

void PolicyGraph::add(const std::optional<Policies>& policies, bool takesAny) {
    if (isNull()) return;
    if (!policies) return levels_.clear();
    const Level& above = levels_.back();
    std::map<Oid, std::set<Oid>> expecting;  // policy -> nodes above that expect it
    for (const auto& [policy, node] : above)
        for (const Oid& expected : node.expected) expecting[expected].insert(policy);
    Level level;
    bool hasAny = false;
    for (const ASNobjectId& policy : *policies) {
        const Oid key = oidKey(policy);
        if (key == anyPolicy()) {
            hasAny = true;
        } else if (const auto found = expecting.find(key); found != expecting.end()) {
            level[key] = {{key}, found->second};
        } else if (above.contains(anyPolicy())) {
            level[key] = {{key}, {anyPolicy()}};
        }
    }
    if (hasAny && takesAny) {
        for (const auto& [key, parents] : expecting) level.try_emplace(key, Node{{key}, parents});
    }
    levels_.push_back(std::move(level));
    prune();
}

void PolicyGraph::map(const std::vector<PolicyMap>& mappings, bool allowed) {
    if (isNull()) return;
    Level& level = levels_.back();
    if (!allowed) {
        for (const PolicyMap& one : mappings) level.erase(oidKey(one.issuerDomain));
        return prune();
    }
    std::map<Oid, std::set<Oid>> targets;
    for (const PolicyMap& one : mappings) targets[oidKey(one.issuerDomain)].insert(oidKey(one.subjectDomain));
    const bool any = level.contains(anyPolicy());
    for (auto& [policy, subjects] : targets) {
        if (const auto node = level.find(policy); node != level.end()) {
            node->second.expected = std::move(subjects);
        } else if (any) {
            level[policy] = {std::move(subjects), {anyPolicy()}};
        }
    }
}

/// Takes away what has nothing below it, from the last level up.
void PolicyGraph::prune() {
    for (size_t i = levels_.size(); i-- > 1;) {
        std::set<Oid> used;
        for (const auto& [policy, node] : levels_[i]) used.insert(node.parents.begin(), node.parents.end());
        if (std::erase_if(levels_[i - 1], [&](const auto& one) { return !used.contains(one.first); }) == 0) break;
    }
    if (levels_[0].empty() || levels_.back().empty()) levels_.clear();
}

/// Policies in the domain of the trust point: nodes below an anyPolicy one, and anyPolicy itself when it holds to the
/// end.
std::set<PolicyGraph::Oid> PolicyGraph::topPolicies() const {
    std::set<Oid> top;
    for (const Level& level : levels_) {
        for (const auto& [policy, node] : level)
            if (policy != anyPolicy() && node.parents.contains(anyPolicy())) top.insert(policy);
    }
    if (!isNull() && levels_.back().contains(anyPolicy())) top.insert(anyPolicy());
    return top;
}

PolicyGraph::Policies PolicyGraph::constrained(const Policies& wanted) const {
    const std::set<Oid> top = topPolicies();
    Policies out;
    if (wanted.empty() || std::ranges::any_of(wanted, [](const auto& one) { return one == OID_ANY_POLICY; })) {
        for (const Oid& policy : top) out.push_back(policyOf(policy));
        return out;
    }
    for (const ASNobjectId& policy : wanted)
        if (top.contains(oidKey(policy)) || top.contains(anyPolicy())) out.push_back(policy);
    return out;
}

}  // namespace crv
