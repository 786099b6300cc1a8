// What is fetched from the network: CRLs, certificates, OCSP answers, time stamps; and the store of what came.
#pragma once

#include <functional>
#include <map>
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

/// Seconds by which the local clock may differ from a time stamp before the user is told.
inline constexpr int64_t kMostClockDifference = 300;

/// How the status of certificates is asked for.
enum class StatusAsking {
    WhatIsMissing,  ///< only where stored answers and CRLs do not tell
    Anew            ///< everything, whatever is stored
};

/// Owner of the network store: certificates and CRLs, each once, until they are moved into the databases. Operations
/// take a function that is told of progress ten times a second and stops them by false; what they find stands in the
/// store. They tell the URL and the cause of the last failure as the diagnostic text. Used by one thread at a time.
class NetworkManager {
  public:
    /// Binds the manager to its context and makes stored OCSP answers count for status beside CRLs.
    void init(ContextServices& context, CertificateManager& certificates, RevocationManager& revocation);
    /// The user's own certificates at the time of the call: what they name counts when CRLs are fetched (option 41).
    using OwnCertificates = std::function<CertList()>;
    void setOwnCertificates(OwnCertificates own) { own_ = std::move(own); }

    /// Adds the DER encoding unless an equal one is there; true when it was added.
    bool addCertToNetStore(ByteView certificate) { return add(certificates_, certificate); }
    bool addCRLToNetStore(ByteView crl) { return add(crls_, crl); }
    /// Whether nothing is to be moved, times of fetches included.
    [[nodiscard]] bool isNetStoreEmpty() const { return certificates_.empty() && crls_.empty() && times_.empty(); }
    [[nodiscard]] const std::vector<Bytes>& netStoreCerts() const { return certificates_; }
    [[nodiscard]] const std::vector<Bytes>& netStoreCrls() const { return crls_; }

    /// Hands every item to the function of its kind, certificates first, and empties the store. A function answers
    /// whether its database took the item; items that were refused are gone and leave a warning, and the time of their
    /// fetch is not remembered: they are due as before.
    void moveFromNetStoreToDB(const std::function<bool(ByteView)>& insertCert,
                              const std::function<bool(ByteView)>& insertCrl);
    void clearNetStore();
    /// Forgets what was fetched, and when, with another profile.
    void beginProfile();

    /// Every authority whose CRLs may be wanted: trust points and the authorities of the database.
    [[nodiscard]] CertList authorities();
    /// Fetches the CRLs of authorities that have a source: the servers in their order, then, with option 41, what the
    /// user's certificates and the authorities' name. With `onlyDue` those whose server's period is over, or of which
    /// none is current; then that a server of any authority gives another one's list is no failure. Only CRLs that
    /// verify and are not older than the stored ones are accepted. One report of 108 where options 16 or 18 forbid it,
    /// and where no authority has a source.
    [[nodiscard]] NetReports fetchCrls(const CertList& authorities, bool onlyDue, const NetProgress& progress);
    /// The same of those that are due, without waiting; null when there is nothing to fetch. One that was asked for in
    /// the last ten minutes waits unless its server's period is shorter. `CrlRun::advance` must be called until it is
    /// done.
    [[nodiscard]] std::unique_ptr<CrlRun> startDueCrls();

    /// Certificates by e-mail address or common name from the servers of certificates; those of others are left out.
    [[nodiscard]] NetReport fetchCerts(const CertQuery& query, const NetProgress& progress, CertList& found);
    /// The certificates of a recipient as options 6 and 22 want it: none unless they are to be fetched.
    [[nodiscard]] NetReport fetchRecipient(const std::string& email, const NetProgress& progress, CertList& found);

    /// Fetches what a verdict on the certificate needs: issuers where no path is found, OCSP answers, then CRLs for
    /// what those leave open.
    [[nodiscard]] NetReports refreshStatus(const CertPtr& certificate, const CertList& extra, StatusAsking asking,
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

    /// The kept OCSP answer by which `status` went.
    [[nodiscard]] std::optional<Bytes> keptAnswer(const SignedCertificate& certificate,
                                                  const SignedCertificate& issuer);
    /// What stored OCSP answers and CRLs say together: revoked before good, an OCSP answer before a CRL.
    [[nodiscard]] CrtStatus status(const StatusQuestion& question);

  private:
    /// Whose CRLs are wanted, and what may be of help to find and to verify them.
    struct CrlWish {
        CertPtr authority;
        CertList subjects{};  ///< certificates whose status the CRLs are to tell: what they name counts
        CertList extra{};     ///< certificates of authorities that the database may not have
    };
    /// The time of a row, to be remembered when the database takes the CRL of the store.
    struct FetchTime {
        std::string name;
        size_t crl;
    };
    /// What this run of the program knows of an authority, in seconds since 1970.
    struct Asked {
        int64_t started = 0;
        int64_t succeeded = 0;
    };
    struct StatusWork;
    enum class CrlChoice { All, Due, DueInBackground };

    static bool add(std::vector<Bytes>& store, ByteView item);
    [[nodiscard]] NetReports go(std::vector<NetErrand> errands, const NetProgress& progress);
    [[nodiscard]] NetReport goOne(NetErrand errand, const NetProgress& progress);
    [[nodiscard]] std::vector<NetErrand> crlErrands(const CertList& authorities, CrlChoice choice, bool& anySource);
    [[nodiscard]] NetErrand crlErrand(NetSources& sources, CrlWish wish);
    [[nodiscard]] std::vector<CrlWish> crlWishes(NetSources& sources, const CertPtr& authority, const CertList& known);
    void dropForeign(NetReports& reports, bool onlyDue) const;
    [[nodiscard]] bool isDue(const CrlWish& wish, bool partitioned);
    [[nodiscard]] bool isCurrent(const CrlIndexEntry& row, int64_t now) const;
    [[nodiscard]] long shortestPeriod(const SignedCertificate& authority) const;
    [[nodiscard]] bool isPeriodOver(const SignedCertificate& authority, int64_t now);
    [[nodiscard]] int64_t lastFetch(const std::string& server);
    void leaveOutForeign(NetErrand& errand, const SignedCertificate& authority);
    void rememberFetch(const CrlWish& wish, const NetAttempt& attempt, size_t crl);
    [[nodiscard]] NetVerdict judgeCrls(const CrlWish& wish, const NetAttempt& attempt, const FetchResult& result,
                                       bool keep);
    [[nodiscard]] NetVerdict judgeCrl(const CrlFacts& crl, const CrlWish& wish, bool keep);
    [[nodiscard]] NetReport fetchIssuersFrom(NetSources& sources, const CertPtr& certificate,
                                             const NetProgress& progress, CertList& found);
    [[nodiscard]] NetErrand issuerErrand(NetSources& sources, const CertPtr& below, CertList& found, CertPtr& above);
    [[nodiscard]] NetReport fetchPeople(const CertQuery& query, bool anybody, const NetProgress& progress,
                                        CertList& found);
    [[nodiscard]] NetErrand ocspErrand(NetSources& sources, const OcspQuestion& question, CrtStatus* status);
    void findPath(StatusWork& work, const CertPtr& certificate, const NetProgress& progress);
    void askOcsp(StatusWork& work, const NetProgress& progress);
    void askCrls(StatusWork& work, const NetProgress& progress);
    [[nodiscard]] std::optional<CrtStatus> ocspFromCache(const StatusQuestion& question);
    [[nodiscard]] NetErrand stampErrand(NetAttempts attempts, const TimeStampReq& request, TimeStampFacts& facts) const;
    [[nodiscard]] NetErrand testErrand(const SrvParams& server, ServerUsage usage);
    [[nodiscard]] NetErrand certTest(NetSources& sources, const SrvParams& server);
    [[nodiscard]] NetErrand crlTest(NetSources& sources, const SrvParams& server);
    [[nodiscard]] NetErrand ocspTest(NetSources& sources, const SrvParams& server);
    [[nodiscard]] CertPtr authorityOf(const SrvParams& server);
    [[nodiscard]] std::optional<CrtStatus> laterKept(const OcspQuestion& question, const CrtStatus& came);
    void setCacheFolder();

    ContextServices* context_ = nullptr;
    CertificateManager* manager_ = nullptr;
    RevocationManager* revocation_ = nullptr;
    OwnCertificates own_;
    OcspClient ocsp_;
    TimeStampClient stamps_;
    OcspCache cache_;
    bool inOcsp_ = false;  // an OCSP answer is being judged: who signed it is told of by CRLs only
    std::vector<Bytes> certificates_;
    std::vector<Bytes> crls_;
    std::vector<FetchTime> times_;
    std::map<std::string, int64_t> fetched_;  // when this run fetched from a row: not every database remembers
    std::map<Bytes, Asked> asked_;            // by the authority's name, normalised
};

}  // namespace crv
