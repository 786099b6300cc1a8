#include "messages/signature_level.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <memory>

#include "asn/asn_time.h"
#include "asn/known_oids.h"
#include "asn/x509/signed_certificate.h"
#include "corvane/crverrors.h"
#include "misc/exceptions.h"
#include "pki/revocation_manager.h"

namespace crv {

namespace {

using enum CrtStatus::State;

[[noreturn]] void failAbout(const SignedCertificate& certificate, int code, const std::string& why) {
    throw CrvApiException(code, certificate.subject().text() + ": " + why);
}

template <class Item>
void addAll(std::vector<Item>& list, const std::vector<Item>& more) {
    for (const Item& one : more)
        if (std::ranges::find(list, one) == list.end()) list.push_back(one);
}

/// Whether somebody else than the authority may have signed the answer, whose own status CRLs tell.
bool needsCrls(ByteView answer, const SignedCertificate& issuer) {
    OcspResponse response;
    OcspBasicResponse basic;
    if (!response.readExactly(answer) || !response.getBasic(basic)) return true;
    return !std::ranges::all_of(basic.certificates(), [&](const CertPtr& one) {
        return std::ranges::equal(encodingOf(*one), encodingOf(issuer)) || one->extensions().find(OID_OCSP_NO_CHECK);
    });
}

void add(SignatureProofs& proofs, const SignatureProofs& more) {
    addAll(proofs.certificates, more.certificates);
    addAll(proofs.crls, more.crls);
    addAll(proofs.ocspResponses, more.ocspResponses);
}

/// Collects what proves paths today, one collector for a signing: what was fetched for one path counts for the others.
class ProofCollector {
  public:
    ProofCollector(const ProofSources& sources, CertList extra) : sources_(sources), extra_(std::move(extra)) {
        takeFetched();
    }

    /// What proves the path, and those of who signed its CRLs.
    [[nodiscard]] SignatureProofs collect(const CertPtr& certificate, const CertList& extra = {}) {
        addAll(extra_, extra);
        SignatureProofs proofs;
        CertList about{certificate};
        for (size_t i = 0; i < about.size(); ++i) {
            const CertPtr one = about[i];
            if (i == 0 || !contains(proofs.certificates, *one)) add(proofs, proofsOf(one, about));
        }
        return proofs;
    }

    /// Fetches what is not known, and tells what is known then of every certificate of the path that can be revoked.
    [[nodiscard]] std::vector<CrtStatus> statusesOf(const CertPtr& certificate, const CertList& extra) {
        addAll(extra_, extra);
        if (!isProven(certificate)) fetch(certificate);
        const RevocationManager::MoreCrls more(sources_.revocation, fetched_);
        const PathVerdict path = pathOf(certificate);
        if (!path.good()) failAbout(*certificate, path.code, path.reason);
        std::vector<CrtStatus> list;
        for (size_t i = 0; i + 1 < path.certs.size(); ++i) list.push_back(statusOf(path, i));
        return list;
    }

  private:
    [[nodiscard]] SignatureProofs proofsOf(const CertPtr& certificate, CertList& about) {
        if (!isProven(certificate)) fetch(certificate);
        const RevocationManager::MoreCrls more(sources_.revocation, fetched_);
        const PathVerdict path = pathOf(certificate);
        if (!path.good()) failAbout(*certificate, path.code, path.reason);
        SignatureProofs proofs;
        for (size_t i = 0; i + 1 < path.certs.size(); ++i) addAll(about, prove(path, i, proofs));
        addAll(proofs.certificates, path.certs);
        return proofs;
    }

    [[nodiscard]] PathVerdict pathOf(const CertPtr& certificate) const {
        return sources_.certificates.buildPath(certificate, options_, extra_);
    }
    [[nodiscard]] CrtStatus statusOf(const PathVerdict& path, size_t index) const {
        return sources_.certificates.statusOnPath(path, index, options_, extra_);
    }

    [[nodiscard]] bool isProven(const CertPtr& certificate) const {
        const RevocationManager::MoreCrls more(sources_.revocation, fetched_);
        const PathVerdict path = pathOf(certificate);
        bool proven = path.good();
        for (size_t i = 0; i + 1 < path.certs.size() && proven; ++i) proven = statusOf(path, i).state == Good;
        return proven;
    }

    void takeFetched() {
        for (const Bytes& one : sources_.network.netStoreCerts())
            if (CertPtr made = makeCert(one); made && !contains(extra_, *made)) extra_.push_back(std::move(made));
        const std::vector<Bytes>& crls = sources_.network.netStoreCrls();
        for (; crlsTaken_ < crls.size(); ++crlsTaken_)
            if (CrlFactsPtr made = CrlFacts::make(crls[crlsTaken_])) fetched_.push_back(std::move(made));
        options_.time = std::time(nullptr);
    }

    void fetch(const CertPtr& certificate) {
        const RevocationManager::MoreCrls more(sources_.revocation, fetched_);
        for (const NetReport& report :
             sources_.network.refreshStatus(certificate, extra_, StatusAsking::WhatIsMissing, sources_.progress)) {
            if (report.code == ECRV_ACTION_CANCELLED) throw CrvApiException(report.code, report.cause);
            if (report.code != 0 && !report.url.empty()) tried_ += "; " + report.url + ": " + report.cause;
        }
        takeFetched();
    }

    /// Who signed what tells of a certificate of the path.
    [[nodiscard]] CertList prove(const PathVerdict& path, size_t index, SignatureProofs& proofs) const {
        const CertPtr& one = path.certs[index];
        RevocationManager::Evidence evidence;
        const RevocationManager::Listener listener(sources_.revocation, evidence);
        const CrtStatus status = statusOf(path, index);
        if (status.state == Revoked) failAbout(*one, ECRV_CRTREV, "revoked");
        if (status.state != Good) {
            failAbout(*one, status.code == 0 ? ECRV_CRL_NOT_FOUND : status.code,
                      "nothing current tells that it is not revoked (" + status.text + tried_ +
                          "); import its CRL, or set up a server of CRLs or OCSP");
        }
        if (status.source.ocsp) {
            const auto answer = sources_.network.keptAnswer(*one, *path.certs[index + 1]);
            if (!answer) failAbout(*one, ECRV_CRL_NOT_FOUND, "the OCSP answer about it is gone");
            addAll(proofs.ocspResponses, {*answer});
            if (!needsCrls(*answer, *path.certs[index + 1])) return {};
        }
        addAll(proofs.crls, evidence.crls);
        return evidence.signers;
    }

    const ProofSources sources_;
    CertList extra_;
    CrlFactsList fetched_{};
    size_t crlsTaken_ = 0;  // of the network store
    PathOptions options_{std::time(nullptr), 0, RevocationCheck::None};
    std::string tried_{};
};

[[noreturn]] void failStamp(const std::string& why) {
    throw CrvApiException(ECRV_TS_VERIF, "time stamp: " + why);
}

/// A stamp that whoever verifies would refuse is none.
void demandFits(const TimeStampFacts& facts, const CertList& signers) {
    const int64_t now = facts.genTime + facts.difference;
    const std::string times = "; it says " + timeText(facts.genTime) + ", the clock of this computer " + timeText(now);
    if (std::abs(facts.difference) > kMostClockDifference) {
        failStamp("its time is another one than that of this computer" + times +
                  ". Set the clock or ask another server");
    }
    for (const CertPtr& one : signers)
        if (!one->isValidAt(facts.genTime)) failStamp("the signer's certificate is not valid at its time" + times);
}

/// The status of who stamped, where stored lists do not tell it any more.
void demandStatus(const TimeStampFacts& facts, ProofCollector& collector) {
    const auto isLate = [](const PathStep& one) { return one.status.state == Unusable; };
    if (std::ranges::none_of(facts.path.steps, isLate)) return;
    for (const CrtStatus& one : collector.statusesOf(facts.path.certs.front(), facts.certificates)) {
        if (one.state == Revoked) failStamp("path of the signer: revoked");
        if (one.state == Unusable) failStamp("path of the signer: its status is not known: " + one.text);
    }
}

}  // namespace

void raiseLevel(SignParams& params, SignatureLevel level, const ProofSources& sources) {
    if (level == SignatureLevel::Basic) return;
    const bool withProofs = level == SignatureLevel::LongTerm;
    CertList signers;
    for (const MessageSignerKey& one : params.signers) signers.push_back(one.certificate);
    const auto collector = std::make_shared<ProofCollector>(sources, params.proofs.certificates);
    params.timeStamp = [sources, withProofs, signers, collector](KcHashAlgo hash, ByteView digest) {
        TimeStampFacts facts;
        const NetReport report = sources.network.timeStamp(hash, digest, sources.progress, facts);
        if (report.code != 0)
            throw CrvApiException(report.code, report.url.empty() ? report.cause : report.url + ": " + report.cause);
        demandFits(facts, signers);
        if (!withProofs) demandStatus(facts, *collector);
        SignatureStamp stamp{std::move(facts.token)};
        if (withProofs) stamp.proofs = collector->collect(facts.path.certs.front(), facts.certificates);
        return stamp;
    };
    if (!withProofs) return;
    params.stampsBringOcsp = true;
    for (const CertPtr& one : signers) add(params.proofs, collector->collect(one));
}

}  // namespace crv
