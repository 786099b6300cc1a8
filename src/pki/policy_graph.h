// The valid policies of a path (RFC 5280 6.1.2 (a), 6.1.3 (d) to 6.1.5 (g)), kept as RFC 9618 has them: one node for a
// policy at a depth however many ways lead to it, so that mappings cannot make it grow faster than the certificates.
#pragma once

#include <map>
#include <set>
#include <string>
#include <vector>

#include "pki/certificate_facts.h"

namespace crv {

class PolicyGraph {
  public:
    using Policies = std::vector<ASNobjectId>;

    PolicyGraph();
    /// No policy is valid.
    [[nodiscard]] bool isNull() const { return levels_.empty(); }
    /// 6.1.3 (d), (e): the next certificate's policies; `takesAny` says whether its anyPolicy counts.
    void add(const std::optional<Policies>& policies, bool takesAny);
    /// 6.1.4 (b): its mappings; where mapping is inhibited the mapped policies are no longer valid.
    void map(const std::vector<PolicyMap>& mappings, bool allowed);
    /// 6.1.5 (g): what is valid for one who wants these policies, any when there are none.
    [[nodiscard]] Policies constrained(const Policies& wanted) const;

  private:
    using Oid = std::string;  // content octets
    struct Node {
        std::set<Oid> expected;
        std::set<Oid> parents;  // policies of the level above
    };
    using Level = std::map<Oid, Node>;

    void prune();
    [[nodiscard]] std::set<Oid> topPolicies() const;

    std::vector<Level> levels_;
};

}  // namespace crv
