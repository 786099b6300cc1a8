#include "messages/signature_level.h"

#include <algorithm>
#include <ctime>

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

/// Whether somebody else than the authority signed the answer, whose own status CRLs tell.
bool needsCrls(ByteView answer) {
    OcspResponse response;
    OcspBasicResponse basic;
    if (!response.readExactly(answer) || !response.getBasic(basic)) return true;
    const CertList signers = basic.certificates();
    return !std::ranges::all_of(
        signers, [](const CertPtr& one) { return one->isCaCrt() || one->extensions().find(OID_OCSP_NO_CHECK); });
}

/// Collects what proves a path today.
class ProofCollector {
  public:
    ProofCollector(const ProofSources& sources, CertList extra)
        : sources_(sources), extra_(std::move(extra)), options_{std::time(nullptr), 0, RevocationCheck::None} {}

    [[nodiscard]] SignatureProofs collect(const CertPtr& certificate) {
        if (!isProven(certificate)) fetch(certificate);
        const RevocationManager::MoreCrls more(sources_.revocation, fetched_);
        const PathVerdict path = pathOf(certificate);
        if (!path.good()) failAbout(*certificate, path.code, path.reason);
        SignatureProofs proofs;
        for (size_t i = 0; i + 1 < path.certs.size(); ++i) prove(path, i, proofs);
        addAll(proofs.certificates, path.certs);
        return proofs;
    }

  private:
    [[nodiscard]] PathVerdict pathOf(const CertPtr& certificate) const {
        return sources_.certificates.buildPath(certificate, options_, extra_);
    }
    [[nodiscard]] CrtStatus statusOf(const PathVerdict& path, size_t index) const {
        return sources_.certificates.statusOnPath(path, index, options_, extra_);
    }

    [[nodiscard]] bool isProven(const CertPtr& certificate) const {
        const PathVerdict path = pathOf(certificate);
        bool proven = path.good();
        for (size_t i = 0; i + 1 < path.certs.size() && proven; ++i) proven = statusOf(path, i).state == Good;
        return proven;
    }

    void fetch(const CertPtr& certificate) {
        for (const NetReport& report :
             sources_.network.refreshStatus(certificate, extra_, StatusAsking::WhatIsMissing, sources_.progress)) {
            if (report.code == ECRV_ACTION_CANCELLED) throw CrvApiException(report.code, report.cause);
            if (report.code != 0 && !report.url.empty()) tried_ += "; " + report.url + ": " + report.cause;
        }
        for (const Bytes& one : sources_.network.netStoreCerts())
            if (CertPtr made = makeCert(one)) extra_.push_back(std::move(made));
        for (const Bytes& one : sources_.network.netStoreCrls())
            if (CrlFactsPtr made = CrlFacts::make(one)) fetched_.push_back(std::move(made));
        options_.time = std::time(nullptr);
    }

    void prove(const PathVerdict& path, size_t index, SignatureProofs& proofs) const {
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
            if (!needsCrls(*answer)) return;
        }
        addAll(proofs.crls, evidence.crls);
        addAll(proofs.certificates, evidence.signers);
    }

    const ProofSources& sources_;
    CertList extra_;
    CrlFactsList fetched_{};
    PathOptions options_;
    std::string tried_{};
};

void add(SignatureProofs& proofs, const SignatureProofs& more) {
    addAll(proofs.certificates, more.certificates);
    addAll(proofs.crls, more.crls);
    addAll(proofs.ocspResponses, more.ocspResponses);
}

SignatureStamp askForStamp(const ProofSources& sources, bool withProofs, KcHashAlgo hash, ByteView digest) {
    TimeStampFacts facts;
    const NetReport report = sources.network.timeStamp(hash, digest, sources.progress, facts);
    if (report.code != 0)
        throw CrvApiException(report.code, report.url.empty() ? report.cause : report.url + ": " + report.cause);
    SignatureStamp stamp{std::move(facts.token)};
    if (!withProofs) return stamp;
    stamp.proofs = ProofCollector(sources, facts.certificates).collect(facts.path.certs.front());
    return stamp;
}

}  // namespace

void raiseLevel(SignParams& params, SignatureLevel level, const ProofSources& sources) {
    if (level == SignatureLevel::Basic) return;
    const bool withProofs = level == SignatureLevel::LongTerm;
    params.timeStamp = [sources, withProofs](KcHashAlgo hash, ByteView digest) {
        return askForStamp(sources, withProofs, hash, digest);
    };
    if (!withProofs) return;
    params.stampsBringOcsp = true;
    for (const MessageSignerKey& one : params.signers)
        add(params.proofs, ProofCollector(sources, params.proofs.certificates).collect(one.certificate));
}

}  // namespace crv
