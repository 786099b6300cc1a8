#include "pki/path_builder.h"

#include <algorithm>
#include <limits>
#include <tuple>
#include <utility>

#include "corvane/crverrors.h"

namespace crv {

namespace {

/// Certificates looked at on the way to all trust points, and different names.
constexpr size_t kMaxNames = 2000;
constexpr size_t kUnreached = std::numeric_limits<size_t>::max();

}  // namespace

struct PathBuilder::Search {
    const PathOptions& options;
    WorkBudget& budget;
    FactsList path;
    PathVerdict best{};
    bool judged = false;
    bool shortened = false;                  // collecting left something out
    bool cut = false;                        // there are more names than are looked at
    bool hopeless = false;                   // no path can mend what is wrong with the certificate itself
    std::map<Bytes, FactsList> bySubject{};  // every certificate that may stand on a path
    std::map<Bytes, size_t> distance{};      // from a name to the nearest trust point

    void tell(const PathVerdict& tried) const {
        if (options.onPath) options.onPath(tried);
    }
    void tell(const FactsPtr& next, const PathFault& fault, size_t failedAt) const {
        if (options.onPath) tell(verdictOn(through(next), fault, failedAt));
    }
    /// The path and one certificate more.
    [[nodiscard]] FactsList through(const FactsPtr& next) const {
        FactsList longer = path;
        longer.push_back(next);
        return longer;
    }
    /// Notes that the path is as long as one may be.
    void endTooLong() {
        PathVerdict ended =
            verdictOn(path, {ECRV_PATH_VER_ERR, "6.1", "more certificates than the depth allows"}, path.size() - 1);
        tell(ended);
        if (!judged) best = std::move(ended);
    }
    [[nodiscard]] bool limited() const { return budget.exhausted || cut; }
    [[nodiscard]] bool over() const { return (judged && (hopeless || best.good())) || budget.exhausted; }
};

PathBuilder::PathBuilder(CertificateCache& cache, const CertList& trustPoints, IssuerSource issuers,
                         const PathValidator& validator)
    : cache_(cache), issuers_(std::move(issuers)), validator_(validator) {
    for (const CertPtr& one : trustPoints) {
        if (!one) continue;
        const FactsPtr facts = cache_.facts(one);
        if (trusted_.insert(facts->digest).second) trustPoints_[facts->subject].push_back(facts);
    }
}

FactsPtr PathBuilder::likelyIssuer(const CertificateFacts& certificate) const {
    const auto fits = [&](const FactsPtr& one) {
        return one->subject == certificate.issuer && (certificate.authorityKeyId.empty() || one->subjectKeyId.empty() ||
                                                      one->subjectKeyId == certificate.authorityKeyId);
    };
    if (const auto trusted = trustPoints_.find(certificate.issuer); trusted != trustPoints_.end()) {
        const auto found = std::ranges::find_if(trusted->second, fits);
        if (found != trusted->second.end()) return *found;
    }
    for (const CertPtr& one : issuers_(*certificate.certificate))
        if (FactsPtr facts = one ? cache_.facts(one) : nullptr; facts && fits(facts)) return facts;
    return nullptr;
}

/// Every name above the certificate, with its certificates, each looked up once. Unless `all`, the certificates of a
/// trust point's name are those of trust points only.
void PathBuilder::collect(Search& search, bool all) {
    std::vector<FactsPtr> open{search.path.front()};
    for (size_t i = 0; i < open.size(); ++i) {
        if (search.bySubject.size() >= kMaxNames) {
            search.cut = true;
            return;
        }
        const FactsPtr certificate = open[i];
        if (isTrustPoint(*certificate) || search.bySubject.contains(certificate->issuer)) continue;
        FactsList& list = search.bySubject[certificate->issuer];
        std::set<Digest> seen;
        const auto add = [&](const FactsPtr& one) {
            if (one->subject != certificate->issuer || !seen.insert(one->digest).second) return;
            list.push_back(one);
            open.push_back(one);
        };
        if (const auto trusted = trustPoints_.find(certificate->issuer); trusted != trustPoints_.end())
            std::ranges::for_each(trusted->second, add);
        if (!list.empty() && !all) {
            search.shortened = true;
            continue;
        }
        for (const CertPtr& one : issuers_(*certificate->certificate))
            if (one) add(cache_.facts(one));
    }
}

/// Distances to the trust points, so that what leads to none is never walked.
void PathBuilder::measure(Search& search) const {
    std::map<Bytes, std::set<Bytes>> below;  // issuer -> subjects that it certifies
    std::vector<Bytes> open;
    for (const auto& [name, list] : search.bySubject) {
        for (const FactsPtr& one : list) {
            if (!isTrustPoint(*one)) {
                below[one->issuer].insert(name);
            } else if (search.distance.emplace(name, 0).second) {
                open.push_back(name);
            }
        }
    }
    for (size_t i = 0; i < open.size(); ++i) {
        const Bytes name = open[i];
        for (const Bytes& subject : below[name])
            if (search.distance.emplace(subject, search.distance[name] + 1).second) open.push_back(subject);
    }
}

/// Possible issuers in the order in which they are tried: sound ones first, then trust points, those with the key
/// identifier that the certificate names (a hint, no more: RFC 5280 4.2.1.1), the nearest to a trust point.
FactsList PathBuilder::issuersOf(const Search& search, const CertificateFacts& certificate) const {
    const auto found = search.bySubject.find(certificate.issuer);
    if (found == search.bySubject.end()) return {};
    const auto rank = [&](const FactsPtr& one) {
        const bool trusted = isTrustPoint(*one);
        const bool faulty = !trusted && ownFault(*one, search.options, true);
        const bool otherKey = !certificate.authorityKeyId.empty() && !one->subjectKeyId.empty() &&
                              one->subjectKeyId != certificate.authorityKeyId;
        const auto near = search.distance.find(one->issuer);
        return std::tuple(faulty, !trusted, otherKey, near == search.distance.end() ? kUnreached : near->second);
    };
    std::vector<std::pair<decltype(rank(nullptr)), FactsPtr>> ranked;
    for (const FactsPtr& one : found->second) ranked.emplace_back(rank(one), one);
    std::ranges::stable_sort(ranked, {}, [](const auto& one) { return one.first; });
    FactsList list;
    for (auto& one : ranked) list.push_back(std::move(one.second));
    return list;
}

/// Why a path does not go on with an issuer that leads to a trust point.
PathFault PathBuilder::hindrance(const Search& search, const CertificateFacts& issuer) const {
    if (isTrustPoint(issuer)) return {};
    // Once a path was judged, one with a certificate that is faulty by itself cannot be better.
    if (PathFault fault = search.judged ? ownFault(issuer, search.options, true) : PathFault{}) return fault;
    const bool again = std::ranges::any_of(search.path, [&](const FactsPtr& one) {
        return one->subject == issuer.subject && one->keyDigest() == issuer.keyDigest();
    });
    return again ? PathFault{ECRV_PATH_VER_ERR, "6.1", "leads back to itself"} : PathFault{};
}

void PathBuilder::judge(Search& search) {
    if (!search.budget.take(&WorkLimits::paths)) return;
    PathVerdict found = validator_.validate(search.path, search.options, search.budget);
    search.tell(found);
    // Among bad paths the first one counts: its issuers are the likeliest.
    if (found.good() || !search.judged) search.best = std::move(found);
    search.judged = true;
}

void PathBuilder::extend(Search& search) {
    const FactsPtr last = search.path.back();
    if (isTrustPoint(*last)) return judge(search);
    if (search.path.size() >= search.options.depth) return search.endTooLong();
    for (const FactsPtr& issuer : issuersOf(search, *last)) {
        if (!search.budget.take(&WorkLimits::candidates)) return;
        if (!isTrustPoint(*issuer) && !search.distance.contains(issuer->issuer)) {
            if (search.options.onPath) search.tell(withoutPath(search, search.through(issuer)));
            continue;
        }
        if (const PathFault fault = hindrance(search, *issuer)) {
            search.tell(issuer, fault, search.path.size());
            continue;
        }
        // A key without DSA parameters cannot be tried before those above are known.
        const WorkingKey key = keyOf(*issuer, {});
        if (const PathFault fault = key.key ? signatureFault(cache_, search.budget, *last, key) : PathFault{}) {
            search.tell(issuer, fault, search.path.size() - 1);
            continue;
        }
        search.path.push_back(issuer);
        extend(search);
        search.path.pop_back();
        if (search.over()) return;
    }
}

/// Goes on with a path that leads nowhere. Only when no issuer of a name fits is the signature what is wrong.
PathVerdict PathBuilder::withoutPath(Search& search, FactsList path) const {
    while (path.size() < search.options.depth) {
        PathFault misfit;
        FactsPtr next, misfitting;
        for (const FactsPtr& issuer : issuersOf(search, *path.back())) {
            if (std::ranges::find(path, issuer) != path.end()) continue;
            const PathFault fault = signatureFault(cache_, search.budget, *path.back(), keyOf(*issuer, {}));
            if (!fault) {
                next = issuer;
                break;
            }
            if (!misfit) {
                misfit = fault;
                misfitting = issuer;
            }
        }
        if (search.limited() || (!next && !misfit)) break;
        path.push_back(next ? next : misfitting);
        if (!next) return verdictOn(path, misfit, path.size() - 2);
    }
    return verdictOn(path,
                     search.limited() ? PathFault{ECRV_PATH_VER_ERR, "6.1", "more work than is allowed"}
                                      : PathFault{ECRV_CRTNOTFOUND, "6.1.1", "no path to a trust point"},
                     path.size() - 1);
}

PathVerdict PathBuilder::build(const CertPtr& certificate, const PathOptions& options, WorkBudget& budget) {
    Search search{options, budget, {cache_.facts(certificate)}};
    search.hopeless = static_cast<bool>(ownFault(*search.path.front(), options, false));
    // Most paths are good and end at the first trust point that they meet, without a further look at the database.
    for (const bool all : {false, true}) {
        if (all && (search.over() || !search.shortened)) break;
        search.bySubject.clear();
        search.distance.clear();
        collect(search, all);
        measure(search);
        extend(search);
    }
    if (!search.judged && search.best.good()) {
        search.best = withoutPath(search, search.path);
        search.tell(search.best);
    }
    search.best.exhausted = search.limited() && !search.best.good();
    return std::move(search.best);
}

}  // namespace crv
