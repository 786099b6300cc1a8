#include "pki/revocation_manager.h"

#include <algorithm>
#include <ctime>
#include <set>
#include <utility>

#include "asn/x509/signed_cert_rev_list.h"
#include "asn/x509/signed_certificate.h"
#include "corvane/crverrors.h"
#include "misc/exceptions.h"
#include "misc/whole_file.h"
#include "pki/cert_file_reader.h"

namespace crv {

namespace {

/// Octets of CRLs that are kept decoded; more of them are read anew.
constexpr size_t kMaxHeld = size_t{128} << 20;
/// Questions within questions: status of who signed the CRL that tells the status of who signed the CRL ...
constexpr size_t kMaxDepth = 16;

bool sameKeyId(const std::optional<Implicit<3, ASNoctstr>>& a, ByteView keyId) {
    return !a || keyId.empty() || std::ranges::equal(a->value(), keyId);
}

CrtStatus withoutAnswer(CrtStatus::State state, int code, const char* clause, const char* text) {
    CrtStatus status;
    status.state = state;
    status.code = code;
    status.clause = clause;
    status.text = text;
    return status;
}

/// The keys of the certificates of a path above an index, the trust point's last.
std::vector<WorkingKey> keysAbove(const FactsList& path, size_t index) {
    std::vector<WorkingKey> keys(path.size());
    WorkingKey above;
    for (size_t i = path.size(); i-- > index + 1;) above = keys[i] = keyOf(*path[i], above);
    return keys;
}

bool contains(const FactsList& list, const CertificateFacts& one) {
    return std::ranges::any_of(list, [&](const FactsPtr& other) { return other->digest == one.digest; });
}

/// Certificates of the CRL's issuer, those with the key identifier that it names first: a hint, no more (RFC 5280
/// 5.2.1).
void sortByHint(FactsList& signers, const CrlFacts& crl) {
    std::ranges::stable_sort(signers, {}, [&](const FactsPtr& one) {
        return !crl.authorityKeyId.empty() && one->subjectKeyId != crl.authorityKeyId;
    });
}

}  // namespace

void RevocationManager::init(CertificateManager& certificates) {
    certificates_ = &certificates;
    certificates.setStatusSource([this](const StatusQuestion& question) { return answer(question); });
}

bool RevocationManager::readCrl(const std::string& path, Bytes& der) {
    try {
        der = crlFromFile(readFile(path)).value_or(Bytes());
        return true;
    } catch (const StoreError&) {
        return false;
    }
}

/// Whether the key made the CRL and its certificate lets it.
PathFault RevocationManager::faultOfSigner(const CrlFacts& crl, const CertificateFacts& signer, const WorkingKey& key,
                                           const PathOptions& options, WorkBudget& budget) {
    if (!signer.allows(KeyUsage::kCrlSign)) return {ECRV_CRTNOTFOUND, "6.3.3 (f)", "the key must not sign CRLs"};
    PathFault fault = signatureFault(certificates_->cache(), budget, crl, key);
    if (fault) fault.clause = "6.3.3 (g)";
    if (fault) return fault;
    const AlgorithmPolicy* policy = certificates_->algorithms();
    const auto how = readSignAlgorithm(crl.crl().signatureAlgorithm);
    if (!policy || !how) return {ECRV_CRTALG, "6.3.3 (g)", "signature algorithm"};
    for (const auto& answer : {policy->hash(how->hash, options.time), policy->key(*key.key, options.time)})
        if (answer.refused) return {ECRV_CRTALG, "6.3.3 (g)", "algorithm policy: " + answer.weakness};
    return {};
}

/// Certificates that may have signed the CRL. Among those of its issuer's name may be users': without keyUsage only
/// authorities and trust points are taken.
FactsList RevocationManager::signersOf(const CrlFacts& crl, const CertList& extra) {
    FactsList signers;
    const CertList trusted = certificates_->trustPoints();
    CertList all = certificates_->findBySubject(crl.issuerName());
    all.insert(all.end(), extra.begin(), extra.end());
    for (const CertPtr& one : all) {
        const FactsPtr facts = certificates_->cache().facts(one);
        if (facts->subject == crl.issuer && (facts->keyUsage || facts->isAuthority || contains(trusted, *one)) &&
            !contains(signers, *facts)) {
            signers.push_back(facts);
        }
    }
    sortByHint(signers, crl);
    return signers;
}

int RevocationManager::verify(ByteView der, int64_t time) {
    const CrlFactsPtr crl = CrlFacts::make(toBytes(der));
    return crl ? verify(*crl, time) : ECRV_INV_CRL_FMT;
}

int RevocationManager::verify(const CrlFacts& crl, int64_t time, const CertList& extra, CertList* path) {
    if (crl.fault) return crl.fault.code;
    if (const PathFault late = faultOfTime(crl, time)) return late.code;
    const PathOptions options{time, 0, RevocationCheck::None};
    WorkBudget budget(options.limits);
    int code = ECRV_CRTNOTFOUND;
    for (const FactsPtr& signer : signersOf(crl, extra)) {
        PathFault fault = faultOfSigner(crl, *signer, keyOf(*signer, {}), options, budget);
        PathVerdict above;
        if (!fault) above = certificates_->buildPath(signer->certificate, options, extra);
        const int found = fault ? fault.code : above.code;
        if (found == 0 && path) *path = std::move(above.certs);
        if (found == 0) return 0;
        // What a certificate that made the CRL lacks says more than that another one did not make it.
        if (code == ECRV_CRTNOTFOUND || code == ECRV_CRTSIGN) code = found;
    }
    return code;
}

/// Whether the CRL verifies, one that has been replaced since at its own time. The store keeps others apart.
bool RevocationManager::isGenuine(const CrlFacts& crl, int64_t now) {
    return verify(crl, crl.nextUpdate && *crl.nextUpdate < now ? crl.thisUpdate : now) == 0;
}

CrlInsert RevocationManager::insert(ByteView der) {
    return insert(der, false);
}

CrlInsert RevocationManager::insertGenuine(ByteView der) {
    return insert(der, true);
}

CrlInsert RevocationManager::insert(ByteView der, bool onlyGenuine) {
    const CrlFactsPtr crl = CrlFacts::make(toBytes(der));
    if (!crl || !crl->crl().thisUpdate()) return CrlInsert::Malformed;
    const bool genuine = isGenuine(*crl, std::time(nullptr));
    if (onlyGenuine && !genuine) return CrlInsert::NotGenuine;
    const CrlInsert result = certificates_->database().insertCrl(der, genuine);
    if (result != CrlInsert::Stored && result != CrlInsert::Present) return result;
    deviceError_ = deviceUpdate_ ? deviceUpdate_(der) : 0;
    return deviceError_ == 0 ? CrlInsert::Stored : CrlInsert::DeviceFailed;
}

void RevocationManager::makeRoom() {
    if (held_ <= kMaxHeld) return;
    crls_.clear();
    held_ = 0;
}

/// The CRL of a row, or what stands for one that cannot be read.
CrlFactsPtr RevocationManager::load(const CrlIndexEntry& row) {
    const Bytes digest = toBytes(row.sha256.value());
    Cached& cached = crls_[digest];
    if (cached.facts) return cached.facts;
    Bytes der;
    CrlFactsPtr facts;
    if (certificates_->database().getCrlByFileNum(row.fileNumber(), der)) facts = CrlFacts::make(std::move(der));
    // Not kept: the next look may find it mended.
    if (!facts) return CrlFacts::unreadable(row.issuer);
    // What it is, it says itself: after a change that was cut off the row may be that of another one.
    if (std::ranges::equal(facts->digest, digest)) {
        cached.facts = facts;
        held_ += facts->size();
    }
    return facts;
}

bool RevocationManager::readIndex() {
    indexOf_ = 0;
    index_ = CrlIndex();
    rowsOf_.clear();
    DbManager& database = certificates_->database();
    const bool read = database.getCrlIndex(index_);
    if (!read && (more_.empty() || database.isDbCreated() != DbState::Missing)) return false;
    for (size_t i = 0; i < index_.size(); ++i) {
        Cached& cached = crls_[toBytes(index_[i].sha256.value())];
        if (cached.issuer.empty()) cached.issuer = nameKey(index_[i].issuer);
        rowsOf_[cached.issuer].push_back(i);
    }
    return true;
}

bool RevocationManager::load(const StatusQuestion& question, CrlFactsList& crls) {
    if (std::exchange(judgedOf_, question.budget.question) != question.budget.question) judged_.clear();
    makeRoom();
    if (indexOf_ != question.budget.storeState && !readIndex()) return false;
    indexOf_ = question.budget.storeState;
    const std::vector<Bytes> issuers = crlIssuersOf(*question.path[question.index]);
    std::set<size_t> rows;
    for (const Bytes& issuer : issuers) {
        const auto of = rowsOf_.find(issuer);
        if (of != rowsOf_.end()) rows.insert(of->second.begin(), of->second.end());
    }
    for (const size_t row : rows) crls.push_back(load(index_[row]));
    for (const CrlFactsPtr& one : more_)
        if (std::ranges::find(issuers, one->issuer) != issuers.end()) crls.push_back(one);
    return true;
}

RevocationManager::MoreCrls::MoreCrls(RevocationManager& manager, CrlFactsList crls)
    : manager_(manager), before_(std::exchange(manager.more_, std::move(crls))) {}

RevocationManager::MoreCrls::~MoreCrls() {
    manager_.more_ = std::move(before_);
}

/// Judges a certificate that made the CRL and does not stand on the path (6.3.3 (f)): its own path must lead to the
/// same trust point.
CrlSigner RevocationManager::judgeSigner(const CrlFacts& crl, const FactsPtr& signer, const StatusQuestion& question,
                                         bool withStatus) {
    const WorkingKey key = keyOf(*signer, {});
    if (PathFault fault = faultOfSigner(crl, *signer, key, question.options, question.budget)) return {fault};
    PathOptions options{question.options.time, 0, withStatus ? question.options.revocation : RevocationCheck::None};
    options.depth = question.options.depth;
    options.constrainedTrustPoint = question.options.constrainedTrustPoint;
    CertList extra = question.extra, same{question.path.back()->certificate};
    for (const FactsPtr& one : question.path) extra.push_back(one->certificate);
    const PathVerdict found = certificates_->buildPath(signer->certificate, options, {same, extra, question.budget});
    if (found.good()) return {.inQuestion = !withStatus, .key = key.digest};
    options.revocation = RevocationCheck::None;
    const bool other =
        found.code == ECRV_CRTNOTFOUND &&
        certificates_->buildPath(signer->certificate, options, {certificates_->trustPoints(), {}, question.budget})
            .good();
    return {.fault = {ECRV_PATH_VER_ERR, "6.3.3 (f)", "the path of who signed the CRL: " + found.reason},
            .otherAuthority = other};
}

/// The same, remembered. Signers of one issuer's CRLs may be told of by each other's: the status of the second one is
/// found by its own CRL and those of the authorities, so that the answer does not run in circles.
CrlSigner RevocationManager::judgeOnce(const CrlFacts& crl, const FactsPtr& signer, const StatusQuestion& question) {
    const auto within = std::ranges::count(judging_, crl.issuer);
    const bool own = asked_.back() == signer->digest;
    const Judged what{crl.digest, signer->digest, question.path.back()->digest, within};
    if (const auto known = judged_.find(what); known != judged_.end()) return known->second;
    const size_t before = std::exchange(assumed_, asked_.size());
    judging_.push_back(crl.issuer);
    CrlSigner found = judgeSigner(crl, signer, question, own || within < 2);
    judging_.pop_back();
    if (assumed_ >= asked_.size()) judged_.emplace(what, found);
    assumed_ = std::min(assumed_, before);
    return found;
}

RevocationManager::Listener::Listener(RevocationManager& manager, Evidence& evidence)
    : manager_(manager), before_(std::exchange(manager.evidence_, &evidence)) {}

RevocationManager::Listener::~Listener() {
    manager_.evidence_ = before_;
}

void RevocationManager::hear(const CrlFacts& crl, const CertPtr& signer) {
    if (!evidence_) return;
    const ByteView der = crl.der();
    const bool known =
        std::ranges::any_of(evidence_->crls, [&](const Bytes& one) { return std::ranges::equal(one, der); });
    if (!known) evidence_->crls.push_back(toBytes(der));
    if (!crv::contains(evidence_->signers, *signer)) evidence_->signers.push_back(signer);
}

/// Who signed the CRL: an authority on the path, or any certificate of that name under the same trust point.
CrlSigner RevocationManager::signerOf(const CrlFacts& crl, const StatusQuestion& question) {
    CrlSigner best{{ECRV_CRTNOTFOUND, "6.3.3 (f)", "no certificate of who issued the CRL"}};
    const auto misfit = [&](const PathFault& fault) {
        if (best.fault.code == ECRV_CRTNOTFOUND || best.fault.code == ECRV_CRTSIGN) best.fault = fault;
    };
    const FactsList& path = question.path;
    const std::vector<WorkingKey> keys = keysAbove(path, question.index);
    for (size_t i = question.index + 1; i < path.size(); ++i) {
        if (path[i]->subject != crl.issuer) continue;
        const PathFault fault = faultOfSigner(crl, *path[i], keys[i], question.options, question.budget);
        if (!fault) hear(crl, path[i]->certificate);
        if (!fault) return {.key = keys[i].digest};
        misfit(fault);
    }
    for (const FactsPtr& signer : signersOf(crl, question.extra)) {
        const auto above = path.begin() + static_cast<std::ptrdiff_t>(question.index) + 1;
        if (std::find(above, path.end(), signer) != path.end()) continue;
        CrlSigner found = judgeOnce(crl, signer, question);
        if (!found.fault) hear(crl, signer->certificate);
        if (!found.fault) return found;
        best.otherAuthority = best.otherAuthority || found.otherAuthority;
        misfit(found.fault);
    }
    best.undecided = question.budget.exhausted;
    return best;
}

CrtStatus RevocationManager::answer(const StatusQuestion& question) {
    const CertificateFacts& certificate = *question.path[question.index];
    // Who signed a CRL may stand on no other one than that.
    if (const auto open = std::ranges::find(asked_, certificate.digest); open != asked_.end()) {
        assumed_ = std::min(assumed_, static_cast<size_t>(open - asked_.begin()));
        return withoutAnswer(CrtStatus::State::Good, 0, "", "told by its own CRL");
    }
    if (asked_.size() >= kMaxDepth)
        return withoutAnswer(CrtStatus::State::Unusable, ECRV_PATH_VER_ERR, "6.3.3 (f)", "too many CRLs about CRLs");
    struct Asked {
        std::vector<Digest>& list;
        ~Asked() { list.pop_back(); }
    };
    asked_.push_back(certificate.digest);
    const Asked guard{asked_};
    CrlFactsList crls;
    if (!load(question, crls)) {
        // Without a database there are no CRLs; in one that fails there may be.
        const bool none = certificates_->database().isDbCreated() == DbState::Missing;
        return withoutAnswer(none ? CrtStatus::State::Unknown : CrtStatus::State::Unusable, ECRV_DB, "6.3.3 (a)",
                             "the database cannot be read");
    }
    return statusFrom(certificate, crls, question.options.time, question.options.useDeltas,
                      [&](const CrlFacts& crl) { return signerOf(crl, question); });
}

/// The status of the first certificate of a path whatever else is wrong with it, as long as it leads to a trust point.
CrtStatus RevocationManager::statusOnPath(const PathVerdict& path, const PathOptions& options, const CertList& extra) {
    FactsList facts;
    for (const CertPtr& one : path.certs) facts.push_back(certificates_->cache().facts(one));
    if (!contains(certificates_->trustPoints(), *path.certs.back()))
        return withoutAnswer(CrtStatus::State::Unknown, ECRV_CRTNOTFOUND, "6.1.1 (d)", "no path to a trust point");
    if (facts.size() == 1) facts.push_back(facts.front());
    WorkBudget budget(options.limits);
    return answer({facts, 0, extra, options, budget});
}

CrtStatus RevocationManager::status(const CertPtr& certificate, int64_t time) {
    const PathOptions options{time};
    PathOptions unasked = options;
    unasked.revocation = RevocationCheck::None;
    return statusOnPath(certificates_->buildPath(certificate, unasked), options, {});
}

CrtStatus RevocationManager::status(const SignedCertificate& certificate, const SignedCertificate& issuer,
                                    int64_t time) {
    CertificateCache& cache = certificates_->cache();
    const PathOptions options{time};
    PathOptions unasked = options;
    unasked.revocation = RevocationCheck::None;
    const CertList extra{cache.certificate(encodingOf(issuer))};
    return statusOnPath(certificates_->buildPath(cache.certificate(encodingOf(certificate)), unasked, extra), options,
                        extra);
}

bool RevocationManager::isOutdated(ByteView der) {
    CrlIndex index;
    ParsedCrl fresh;
    if (!parseCrl(der, fresh) || !certificates_->database().getCrlIndex(index)) return false;
    const auto& keyId = fresh.entry.authorityKeyId;
    return std::ranges::any_of(index, [&](const CrlIndexEntry& row) {
        return row.isVerified() && row.isDelta() == fresh.entry.isDelta() && row.issuer == fresh.entry.issuer &&
               sameKeyId(row.authorityKeyId, keyId ? keyId->value() : ByteView()) && isNewer(row, fresh.entry) &&
               load(row)->scope == fresh.scope;
    });
}

bool RevocationManager::lastCrls(const SignedCertificate& authority, AuthorityCrls& crls) {
    CrlIndex index;
    if (!certificates_->database().getCrlIndex(index)) return false;
    const Bytes keyId = authority.getKeyIdFromCert();
    for (const CrlIndexEntry& entry : index) {
        if (!(entry.issuer == authority.subject()) || !sameKeyId(entry.authorityKeyId, keyId)) continue;
        std::optional<CrlIndexEntry>& last = entry.isDelta() ? crls.delta : crls.complete;
        // Anybody can make a list of the year 2099; only a genuine one counts as the last where there is one.
        const auto rank = [](const CrlIndexEntry& of) { return std::pair(of.isVerified(), of.issued()); };
        if (!last || rank(entry) > rank(*last)) last = entry;
    }
    return true;
}

}  // namespace crv
