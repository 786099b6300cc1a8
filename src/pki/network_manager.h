// What is fetched from the network: CRLs, certificates, OCSP answers, time stamps; and the store of what came.
#pragma once

#include <functional>
#include <optional>
#include <vector>

#include "misc/bytes.h"
#include "pki/network_run.h"
#include "pki/ocsp_cache.h"
#include "pki/ocsp_client.h"
#include "pki/time_stamp_client.h"

namespace crv {

class ContextServices;

/// What came of one thing that was wanted.
struct NetReport {
    std::string name{};    ///< of the authority, certificate or server
    int code = 0;          ///< 0, or the library's code
    std::string cause{};   ///< in words
    std::string url{};     ///< where it came from or was tried last; without a login
    std::string server{};  ///< the row of the profile's servers; empty for an address out of a certificate
    uint64_t size = 0;     ///< octets
};
using NetReports = std::vector<NetReport>;

/// CRLs on their way, for those who do other things meanwhile. The manager outlives it.
class CrlRun {
  public:
    explicit CrlRun(std::vector<NetErrand> errands) : run_(std::move(errands)) {}
    /// Never waits. True when all are done and what came stands in the network store.
    bool advance() { return run_.advance(); }
    [[nodiscard]] NetReports reports();

  private:
    friend class NetworkManager;
    NetRun run_;
};

/// Whom certificates are wanted of.
struct CertQuery {
    std::string email{};
    std::string name{};  ///< common name
};

/// Owner of the network store: certificates and CRLs, each once, until they are moved into the databases. Operations
/// take a function that is told of progress ten times a second and stops them by false; what they find stands in the
/// store. They tell the URL and the cause of the last failure as the diagnostic text. Used by one thread at a time.
class NetworkManager {
  public:
    /// Binds the manager to its context and makes stored OCSP answers count for status beside CRLs.
    void init(ContextServices& context, CertificateManager& certificates, RevocationManager& revocation);

    /// Adds the DER encoding unless an equal one is there; true when it was added.
    bool addCertToNetStore(ByteView certificate) { return add(certificates_, certificate); }
    bool addCRLToNetStore(ByteView crl) { return add(crls_, crl); }
    [[nodiscard]] const std::vector<Bytes>& netStoreCerts() const { return certificates_; }
    [[nodiscard]] const std::vector<Bytes>& netStoreCrls() const { return crls_; }

    /// Hands every item to the function of its kind and empties the store. A function answers whether its database took
    /// the item; items that were refused are gone and leave a warning.
    void moveFromNetStoreToDB(const std::function<bool(ByteView)>& insertCert,
                              const std::function<bool(ByteView)>& insertCrl);
    void clearNetStore();

    /// Every authority whose CRLs may be wanted: trust points and the authorities of the database.
    [[nodiscard]] CertList authorities();
    /// Fetches the CRLs of authorities that have a source, in the order of the servers; with `onlyDue` those whose
    /// server's period is over, or of which none is current. Only CRLs that verify and are not older than the stored
    /// ones are accepted. Options 16 and 18 forbid it (108).
    [[nodiscard]] NetReports fetchCrls(const CertList& authorities, bool onlyDue, const NetProgress& progress);
    /// The same without waiting; null when there is nothing to fetch. `CrlRun::advance` must be called until it is
    /// done.
    [[nodiscard]] std::unique_ptr<CrlRun> startDueCrls();

    /// Certificates by e-mail address or common name from the servers of certificates; those of others are left out.
    [[nodiscard]] NetReport fetchCerts(const CertQuery& query, const NetProgress& progress, CertList& found);
    /// The certificates of a recipient as options 6, 22 and 32 want it: none unless they are to be fetched, no more
    /// often than option 32 says.
    [[nodiscard]] NetReport fetchRecipient(const std::string& email, const NetProgress& progress, CertList& found);
    /// Certificates that made the signatures above a certificate, up to four levels, from the servers of certificates
    /// and the certificates' own addresses.
    [[nodiscard]] NetReport fetchIssuers(const CertPtr& certificate, const NetProgress& progress, CertList& found);

    /// Asks about a certificate. The answer counts for the paths of this run, and as long as it holds.
    [[nodiscard]] NetReport ocspStatus(const CertPtr& certificate, const CertPtr& issuer, const NetProgress& progress,
                                       CrtStatus& status);
    /// Fetches what a verdict on the certificate lacks: issuers where no path is found, OCSP answers, then CRLs for
    /// what is still unknown.
    [[nodiscard]] NetReports refreshStatus(const CertPtr& certificate, const CertList& extra,
                                           const NetProgress& progress);

    /// A stamp over a digest from the profile's servers: 0, 125 no server, 126 the network, 127 none verifies, 173
    /// refused by the last one, 128 several failed.
    [[nodiscard]] NetReport timeStamp(KcHashAlgo hash, ByteView digest, const NetProgress& progress,
                                      TimeStampFacts& facts);
    /// A stamp over random octets from one server.
    [[nodiscard]] NetReport timeStampTest(const SrvParams& server, const NetProgress& progress, TimeStampFacts& facts);
    /// Asks a server for what it is there for, without keeping what comes. `stamp` is filled for servers of time
    /// stamps.
    [[nodiscard]] NetReports testServer(const SrvParams& server, const NetProgress& progress,
                                        std::optional<TimeStampFacts>& stamp);

    /// What stored OCSP answers and CRLs say together: revoked before good, an OCSP answer before a CRL.
    [[nodiscard]] CrtStatus status(const StatusQuestion& question);

  private:
    static bool add(std::vector<Bytes>& store, ByteView item);
    [[nodiscard]] NetReports go(std::vector<NetErrand> errands, const NetProgress& progress);
    [[nodiscard]] NetReport goOne(NetErrand errand, const NetProgress& progress);
    [[nodiscard]] std::vector<NetErrand> crlErrands(const CertList& authorities, bool onlyDue);
    [[nodiscard]] NetErrand crlErrand(NetSources& sources, const SignedCertificate& authority);
    void dropForeign(NetReports& reports) const;
    [[nodiscard]] bool isDue(const SignedCertificate& authority);
    [[nodiscard]] NetVerdict judgeCrls(const SignedCertificate& authority, const NetAttempt& attempt,
                                       FetchResult& result, bool keep);
    [[nodiscard]] NetVerdict judgeCrl(ByteView der);
    [[nodiscard]] NetErrand ocspErrand(NetSources& sources, const OcspQuestion& question, CrtStatus* status);
    [[nodiscard]] std::optional<CrtStatus> ocspFromCache(const StatusQuestion& question);
    [[nodiscard]] NetErrand stampErrand(NetAttempts attempts, const TimeStampReq& request, TimeStampFacts& facts) const;
    [[nodiscard]] NetErrand testErrand(const SrvParams& server, ServerUsage usage, TimeStampFacts& facts);
    [[nodiscard]] NetErrand ocspTest(NetSources& sources, const SrvParams& server);
    [[nodiscard]] CertPtr authorityOf(const SrvParams& server);
    void setCacheFolder();

    ContextServices* context_ = nullptr;
    CertificateManager* manager_ = nullptr;
    RevocationManager* revocation_ = nullptr;
    OcspClient ocsp_;
    TimeStampClient stamps_;
    OcspCache cache_;
    bool inOcsp_ = false;  // an OCSP answer is being judged: who signed it is told of by CRLs only
    std::vector<Bytes> certificates_;
    std::vector<Bytes> crls_;
    std::vector<std::string> fetched_;  // names of times to remember once what came is stored
};

}  // namespace crv
