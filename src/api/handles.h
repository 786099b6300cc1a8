// What stands behind the handles of corvane/crvtypes.h.
#pragma once

#include <deque>
#include <memory>
#include <vector>

#include "asn/x509/cert_ptr.h"
#include "corvane/crvapi.h"
#include "crypto/public_key.h"
#include "keystore/trust_points.h"
#include "pki/path_verdict.h"
#include "profiles/crv_profile.h"

struct CrvProfile {
    std::unique_ptr<crv::CrvProfile> record;
};

struct CrvProfileIterator {
    std::unique_ptr<crv::ProfileIterator> at;
};

struct CrvServerIterator {
    crv::ServerIterator at;
};

struct CrvCert {
    crv::CertPtr certificate;
};

struct CrvCertIterator {
    std::deque<crv::Bytes> found;  // encodings: a certificate is parsed when it is asked for
};

struct CrvKeyIterator {
    struct Row {
        CrvKeyInfo info;
        CrvCert certificate;
    };
    std::vector<Row> keys;
    size_t at = 0;
};

struct CrvTrustPointIterator {
    std::vector<crv::TrustPoint> points;
    size_t at = 0;
};

/// A verdict with what is handed out of it.
struct CrvVerifyResult {
    explicit CrvVerifyResult(crv::PathVerdict made);

    crv::PathVerdict verdict;
    std::vector<std::string> subjects;
    std::string policies;
};

namespace crv {

/// A handle for a certificate.
std::unique_ptr<CrvCert> handleOf(CertPtr certificate);

/// CRVKEY_ value of a key.
[[nodiscard]] long keyKindNumber(const PublicKey& key);

/// How a path is to be judged; with null for anything, now. ECRV_API_INV_PAR for what is unfit.
[[nodiscard]] PathOptions pathOptionsIn(const CrvVerifyParams* params);
/// The certificates that may stand on the path.
[[nodiscard]] CertList certsIn(const CrvVerifyParams* params);

/// Puts the handle where the caller wants it.
template <class Handle>
void give(std::unique_ptr<Handle> made, Handle** to) {
    *to = made.release();
}

/// Octets for the caller, which crvFreeOctetsAPI frees.
void giveOctets(ByteView octets, unsigned char** to, long* len);

}  // namespace crv
