// What advanced signatures carry beside themselves (EN 319 122-1 6): time stamps, and what proves them for a long time.
#pragma once

#include "messages/message_signer.h"
#include "pki/network_manager.h"

namespace crv {

enum class SignatureLevel {
    Basic,    ///< B-B
    Stamped,  ///< B-T: a time stamp
    LongTerm  ///< B-LT: a time stamp, and the paths, CRLs and OCSP answers of the signer and of who stamped
};

/// Where time stamps and proofs come from; everything outlives the signing.
struct ProofSources {
    CertificateManager& certificates;
    RevocationManager& revocation;
    NetworkManager& network;
    NetProgress progress{};
};

/// Completes the plan, whose signers stand there already: proofs of the signers now, time stamps when they sign. What
/// is not known is fetched, as far as the options let; CRLs that came stand in the network store.
///
/// Throws CrvApiException, here and out of the signing: the codes of paths and of status with whose certificate fails
/// (102 and the like where nothing current tells that it is not revoked), 125 to 128, 173 and 165 for time stamps.
void raiseLevel(SignParams& params, SignatureLevel level, const ProofSources& sources);

}  // namespace crv
