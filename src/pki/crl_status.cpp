#include "pki/crl_status.h"

#include <algorithm>
#include <set>
#include <utility>

#include "corvane/crverrors.h"
#include "db_sql/crl_index.h"
#include "misc/ascii.h"

namespace crv {

namespace {

/// Reasons as bits of ReasonFlags; bit 0 is unused.
constexpr uint32_t kAllReasons = 0x1FE;

/// A distribution point of the certificate, or the one that stands for CRLs that no point names.
struct Point {
    std::vector<Bytes> names{};       ///< see pointKey
    std::vector<Bytes> crlIssuers{};  ///< normalised
    uint32_t reasons = kAllReasons;
    bool indirect = false;  ///< it names who issues the CRL
    bool named = false;     ///< it stands in the certificate
};

/// Octets that are equal for equal names: scheme and host of a URI whatever their case (RFC 5280 7.4), directory names
/// prepared.
Bytes pointKey(const GeneralName& name) {
    if (const DistinguishedName* directory = name.name()) return nameKey(*directory);
    if (!name.is(GeneralName::kUri)) return name.encoded();
    std::string uri = name.value();
    const size_t scheme = uri.find("://");
    const size_t host = scheme == std::string::npos ? uri.find(':') : std::min(uri.find('/', scheme + 3), uri.size());
    for (size_t i = 0; i < std::min(host, uri.size()); ++i) uri[i] = asciiUpper(uri[i]);
    return toBytes(asBytes("uri:" + uri));
}

std::vector<Bytes> pointKeys(const GeneralNames& names) {
    std::vector<Bytes> keys;
    for (const GeneralName& name : names) keys.push_back(pointKey(name));
    return keys;
}

std::vector<Bytes> pointKeys(const DistributionPointName& name, const DistinguishedName& crlIssuer) {
    if (const GeneralNames* full = name.fullName()) return pointKeys(*full);
    const auto* relative = name.chosenAs<RelativeDistinguishedName>();
    DistinguishedName whole = crlIssuer.normalize();
    if (!relative) return {};
    whole.add() = *relative;
    return {nameKey(whole)};
}

bool meet(const std::vector<Bytes>& a, const std::vector<Bytes>& b) {
    return std::ranges::any_of(a, [&](const Bytes& one) { return std::ranges::find(b, one) != b.end(); });
}

Point pointOf(const DistributionPoint& given, const CertificateFacts& certificate) {
    Point point{.named = true};
    const DistinguishedName* issuer = &certificate.certificate->issuer();
    if (given.cRLIssuer) {
        point.indirect = true;
        for (const GeneralName& name : *given.cRLIssuer) {
            if (!name.name()) continue;
            issuer = name.name();
            point.crlIssuers.push_back(nameKey(*issuer));
        }
        point.names = point.crlIssuers;
    } else {
        point.crlIssuers = {certificate.issuer};
    }
    if (given.distributionPoint) point.names = pointKeys(*given.distributionPoint, *issuer);
    if (given.reasons) point.reasons = given.reasons->namedBits() & kAllReasons;
    return point;
}

std::vector<Point> pointsOf(const CertificateFacts& certificate) {
    std::vector<Point> points;
    if (!certificate.distributionPoints) return points;
    for (const DistributionPoint& one : *certificate.distributionPoints) points.push_back(pointOf(one, certificate));
    return points;
}

/// 6.3.3 (b).
bool isInScope(const CrlFacts& crl, const Point& point, const CertificateFacts& certificate) {
    if (std::ranges::find(point.crlIssuers, crl.issuer) == point.crlIssuers.end()) return false;
    // Whether an unreadable CRL is about the certificate cannot be told, so it is taken to be.
    if (!crl.point) return crl.fault || !point.indirect;
    const IssuingDistributionPoint& scope = *crl.point;
    if (point.indirect && !scope.indirectCrl.value()) return false;
    if (scope.onlyContainsAttributeCerts.value()) return false;
    if (scope.onlyContainsUserCerts.value() && certificate.isAuthority) return false;
    if (scope.onlyContainsCaCerts.value() && !certificate.isAuthority) return false;
    return !scope.distributionPoint || meet(pointKeys(*scope.distributionPoint, crl.issuerName()), point.names);
}

/// 6.3.3 (d).
uint32_t reasonsOf(const CrlFacts& crl, const Point& point) {
    const bool some = crl.point && crl.point->onlySomeReasons;
    return point.reasons & (some ? crl.point->onlySomeReasons->namedBits() : kAllReasons);
}

/// Whether the delta completes that CRL (5.2.4, 6.3.3 (c)).
bool completes(const CrlFacts& delta, const CrlFacts& base) {
    return delta.isDelta() && delta.number && base.number && compareNumbers(*base.number, *delta.baseNumber) >= 0 &&
           compareNumbers(*delta.number, *base.number) > 0 && delta.issuer == base.issuer &&
           delta.scope == base.scope && delta.authorityKeyId == base.authorityKeyId;
}

/// Whether a list was issued after another.
bool isNewer(const CrlFacts& a, const CrlFacts& b) {
    if (a.thisUpdate != b.thisUpdate) return a.thisUpdate > b.thisUpdate;
    return a.number && b.number && compareNumbers(*a.number, *b.number) > 0;
}

/// What a complete CRL says of the certificate, brought up to date by a delta.
struct Reading {
    const CrlFacts* base;
    const CrlFacts* delta;  // null without one
    std::optional<CrlEntryIndex::Entry> entry{};

    [[nodiscard]] const CrlFacts& newest() const { return delta ? *delta : *base; }
    [[nodiscard]] bool isAbout(const CrlFacts& crl) const {
        return base->issuer == crl.issuer && base->scope == crl.scope;
    }
};

/// The look through the CRLs for one certificate.
class Search {
  public:
    Search(const CertificateFacts& certificate, const CrlFactsList& crls, int64_t time, bool useDeltas,
           const CrlVerifier& verify)
        : certificate_(certificate), crls_(crls), time_(time), useDeltas_(useDeltas), verify_(verify) {}

    CrtStatus run() {
        for (const Point& point : pointsOf(certificate_))
            if (visit(point)) return found_;
        // CRLs of the issuer that no distribution point of the certificate is about.
        Point issuer;
        issuer.crlIssuers = issuer.names = {certificate_.issuer};
        if (visit(issuer)) return found_;
        for (const Reading& one : readings_)
            if (isHold(one)) return revokedBy(one);
        rejectUncombined();
        if (reasons_ == kAllReasons && !undecided_) return found_;
        rejectLate();
        if (unusable_.state == CrtStatus::State::Unusable) return unusable_;
        CrtStatus unknown;
        unknown.code = ECRV_CRL_NOT_FOUND;
        return unknown;
    }

  private:
    /// True when the certificate is revoked for good.
    bool visit(const Point& point) {
        for (const CrlFactsPtr& crl : crls_) {
            if (!isInScope(*crl, point, certificate_)) continue;
            if (point.named) {
                used_.insert(crl.get());
            } else if (used_.contains(crl.get())) {
                continue;
            }
            if (crl->isDelta()) {
                if (!hasBase(*crl)) reject(*crl, {ECRV_CRL_NOT_FOUND, "5.2.4", "no complete CRL for the delta"});
            } else if (read(*crl, point)) {
                return true;
            }
        }
        return false;
    }

    bool hasBase(const CrlFacts& delta) const {
        return std::ranges::any_of(crls_, [&](const auto& one) { return !one->isDelta() && completes(delta, *one); });
    }

    /// The newest delta that can be relied on and has the key of the complete CRL (6.3.3 (h)).
    const CrlFacts* deltaFor(const CrlFacts& base, const Digest& key) const {
        const CrlFacts* best = nullptr;
        for (const CrlFactsPtr& one : crls_) {
            if (!useDeltas_ || !completes(*one, base) || one->fault || faultOfTime(*one, time_)) continue;
            if (best && compareNumbers(*one->number, *best->number) <= 0) continue;
            const CrlSigner signer = verify_(*one);
            if (!signer.fault && signer.key == key) best = one.get();
        }
        return best;
    }

    /// Whether a delta that is current, if it is genuine, keeps that complete CRL going although it is not.
    bool isKeptGoing(const CrlFacts& base) const {
        return useDeltas_ && time_ >= base.thisUpdate && std::ranges::any_of(crls_, [&](const auto& one) {
                   return completes(*one, base) && !faultOfTime(*one, time_);
               });
    }

    bool read(const CrlFacts& base, const Point& point) {
        if (base.fault) return reject(base, base.fault);
        const PathFault late = faultOfTime(base, time_);
        if (late && !isKeptGoing(base)) {
            late_.push_back(&base);
            return false;
        }
        const CrlSigner signer = verify_(base);
        if (signer.otherAuthority) return false;
        if (signer.fault) return reject(base, signer.fault, signer.undecided);
        Reading reading{&base, deltaFor(base, signer.key)};
        if (late && !reading.delta) return reject(base, late);
        if (const PathFault fault = look(reading)) return reject(base, fault);
        if (signer.inQuestion) reading.entry.reset();
        note(reading);
        reasons_ |= reasonsOf(base, point);
        readings_.push_back(reading);
        if (!reading.entry || reading.entry->reason == CrlReason::CertificateHold) return false;
        revokedBy(reading);
        return true;
    }

    PathFault look(Reading& reading) const {
        const auto removed = [](const auto& entry) { return entry && entry->reason == CrlReason::RemoveFromCrl; };
        if (reading.delta) reading.entry = reading.delta->find(certificate_);
        if (removed(reading.entry)) {
            reading.entry.reset();
            return {};
        }
        if (!reading.entry) reading.entry = reading.base->find(certificate_);
        if (!removed(reading.entry)) return {};
        return {ECRV_INV_CRL_FMT, "5.3.1", "removeFromCRL in a complete CRL"};
    }

    /// Whether a hold stands: no newer list of the same issuer and scope is silent.
    bool isHold(const Reading& held) const {
        return held.entry && std::ranges::none_of(readings_, [&](const Reading& one) {
                   return !one.entry && one.isAbout(*held.base) && isNewer(one.newest(), held.newest());
               });
    }

    CrtStatus revokedBy(const Reading& reading) {
        found_.state = CrtStatus::State::Revoked;
        found_.reason = reading.entry->reason;
        found_.revokedAt = reading.entry->revokedAt;
        found_.source = noteOf(reading);
        return found_;
    }

    /// Whether a delta was issued after all that was read of its issuer and scope.
    bool isAhead(const CrlFacts& delta) const {
        bool read = false;
        for (const Reading& one : readings_) {
            if (!one.isAbout(delta)) continue;
            if (!isNewer(delta, one.newest())) return false;
            read = true;
        }
        return read;
    }

    /// A genuine delta newer than what was read says what nobody has heard.
    void rejectUncombined() {
        for (const CrlFactsPtr& one : crls_) {
            if (!useDeltas_ || !one->isDelta() || time_ < one->thisUpdate || !isAhead(*one)) continue;
            const CrlSigner signer = verify_(*one);
            PathFault fault = one->fault ? one->fault : faultOfTime(*one, time_);
            if (!fault) fault = {ECRV_CRL_NOT_FOUND, "5.2.4", "no complete CRL for the delta"};
            if (signer.undecided) fault = signer.fault;
            if (!signer.fault || signer.undecided) reject(*one, fault, true);
        }
    }

    /// A CRL that is not current is looked at only as long as nothing else was found: another authority may have made
    /// it.
    void rejectLate() {
        for (const CrlFacts* one : late_) {
            if (unusable_.state == CrtStatus::State::Unusable) return;
            if (!verify_(*one).otherAuthority) reject(*one, faultOfTime(*one, time_));
        }
    }

    /// The first CRL that cannot be used is the one that is told, but before all one without which nothing is certain.
    bool reject(const CrlFacts& crl, const PathFault& fault, bool decisive = false) {
        if (unusable_.state == CrtStatus::State::Unusable && (undecided_ || !decisive)) return false;
        undecided_ = decisive;
        unusable_.state = CrtStatus::State::Unusable;
        unusable_.code = fault.code;
        unusable_.clause = fault.clause;
        unusable_.text = fault.text;
        unusable_.source = noteOf({&crl, nullptr});
        return false;
    }

    [[nodiscard]] StatusSourceNote noteOf(const Reading& reading) const {
        StatusSourceNote note;
        note.issuer = reading.base->issuerText;
        if (reading.base->number) note.number = reading.base->number->decimal();
        if (reading.delta) note.delta = reading.delta->number->decimal();
        note.thisUpdate = reading.newest().thisUpdate;
        note.age = time_ - note.thisUpdate;
        return note;
    }

    /// Of several CRLs the oldest is the source: what is known is as old as that one.
    void note(const Reading& reading) {
        found_.state = CrtStatus::State::Good;
        StatusSourceNote note = noteOf(reading);
        if (found_.source.issuer.empty() || note.thisUpdate < found_.source.thisUpdate) found_.source = std::move(note);
    }

    const CertificateFacts& certificate_;
    const CrlFactsList& crls_;
    const int64_t time_;
    const bool useDeltas_;
    const CrlVerifier& verify_;
    uint32_t reasons_ = 0;
    std::set<const CrlFacts*> used_;  // by a distribution point of the certificate
    std::vector<const CrlFacts*> late_;
    std::vector<Reading> readings_;
    bool undecided_ = false;  // unusable_ stands whatever other CRLs say
    CrtStatus found_{};
    CrtStatus unusable_{};
};

}  // namespace

PathFault faultOfTime(const CrlFacts& crl, int64_t time) {
    if (time < crl.thisUpdate) return {ECRV_CRL_EXPIRED, "5.1.2.4", "the CRL was not yet issued"};
    if (!crl.nextUpdate || time > *crl.nextUpdate) return {ECRV_CRL_EXPIRED, "5.1.2.5", "the CRL is out of date"};
    return {};
}

std::vector<Bytes> crlIssuersOf(const CertificateFacts& certificate) {
    std::vector<Bytes> names{certificate.issuer};
    for (const Point& point : pointsOf(certificate))
        names.insert(names.end(), point.crlIssuers.begin(), point.crlIssuers.end());
    return names;
}

CrtStatus statusFrom(const CertificateFacts& certificate, const CrlFactsList& crls, int64_t time, bool useDeltas,
                     const CrlVerifier& verify) {
    return Search(certificate, crls, time, useDeltas, verify).run();
}

}  // namespace crv
