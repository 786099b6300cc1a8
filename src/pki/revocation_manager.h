// CRLs of the current profile's database: accepting them, and what they say about certificates.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

#include "db_sql/crl_index.h"
#include "pki/certificate_manager.h"
#include "pki/crl_status.h"

namespace crv {

class ContextServices;

/// The last CRLs of an authority.
struct AuthorityCrls {
    std::optional<CrlIndexEntry> complete;
    std::optional<CrlIndexEntry> delta;
};

/// One per library context, used by one thread at a time.
class RevocationManager {
  public:
    /// Gives a stored CRL to the device that keeps its own; the device's error number, 0 for success.
    using DeviceUpdate = std::function<unsigned(ByteView crl)>;

    /// Binds the manager and makes it the certificate manager's source of status.
    void init(CertificateManager& certificates);
    void setDeviceUpdate(DeviceUpdate update) { deviceUpdate_ = std::move(update); }

    /// The octets of the CRL in a file (DER, PEM, Base64); false when the file cannot be opened. Empty octets: there is
    /// no CRL in it.
    [[nodiscard]] static bool readCrl(const std::string& path, Bytes& der);

    /// Checks a CRL: 0, or the library's code: 88 malformed or with an unknown critical extension, 67 its issuer's
    /// certificate or path is not there, 70 signature, 66 algorithm, 101 not current, 155 and the like for the issuer's
    /// path.
    [[nodiscard]] int verify(ByteView der, int64_t time);
    /// The same of one that is decoded; `extra` may hold its issuer's certificate and those above it. On success `path`
    /// has who signed it and those above.
    [[nodiscard]] int verify(const CrlFacts& crl, int64_t time, const CertList& extra = {}, CertList* path = nullptr);
    /// Whether a stored CRL that verified, of the same issuer, kind and scope, is newer: by its number first, as the
    /// store compares them.
    [[nodiscard]] bool isOutdated(ByteView der);
    /// Stores a CRL, verified or not: status() believes only those that verify. One that is there already counts as
    /// stored.
    [[nodiscard]] CrlInsert insert(ByteView der);
    /// The same for what nobody has looked at: one that does not verify is not stored.
    [[nodiscard]] CrlInsert insertGenuine(ByteView der);
    /// Number of the last device error.
    [[nodiscard]] unsigned deviceError() const { return deviceError_; }

    /// What the stored CRLs say about a certificate on a path.
    [[nodiscard]] CrtStatus answer(const StatusQuestion& question);
    /// What the stored CRLs say about a certificate at a time, deltas applied. The issuer, and the trust point whose
    /// authorities may sign the CRLs, are looked for; unknown with code 67 when no path leads to one.
    [[nodiscard]] CrtStatus status(const CertPtr& certificate, int64_t time);
    /// The same with one more certificate that may be its issuer.
    [[nodiscard]] CrtStatus status(const SignedCertificate& certificate, const SignedCertificate& issuer, int64_t time);
    /// CRLs that count beside the stored ones while somebody holds this; they are believed as those are.
    class MoreCrls {
      public:
        MoreCrls(RevocationManager& manager, CrlFactsList crls);
        MoreCrls(const MoreCrls&) = delete;
        MoreCrls& operator=(const MoreCrls&) = delete;
        ~MoreCrls();

      private:
        RevocationManager& manager_;
        CrlFactsList before_;
    };

    /// What answers went by.
    struct Evidence {
        std::vector<Bytes> crls{};  ///< DER, each once
        CertList signers{};         ///< who made them
    };
    /// Collects the evidence of what is answered while somebody holds this.
    class Listener {
      public:
        Listener(RevocationManager& manager, Evidence& evidence);
        Listener(const Listener&) = delete;
        Listener& operator=(const Listener&) = delete;
        ~Listener();

      private:
        RevocationManager& manager_;
        Evidence* before_;
    };

    /// The stored CRLs of an authority, the newest of each kind. False when the database fails.
    bool lastCrls(const SignedCertificate& authority, AuthorityCrls& crls);

  private:
    /// A stored CRL under the digest that the index has of it.
    struct Cached {
        Bytes issuer;
        CrlFactsPtr facts;  // null as long as nobody asked for it
    };
    [[nodiscard]] bool isGenuine(const CrlFacts& crl, int64_t now);
    [[nodiscard]] CrlInsert insert(ByteView der, bool onlyGenuine);
    [[nodiscard]] bool load(const StatusQuestion& question, CrlFactsList& crls);
    [[nodiscard]] CrlFactsPtr load(const CrlIndexEntry& row);
    [[nodiscard]] bool readIndex();
    void makeRoom();
    void hear(const CrlFacts& crl, const CertPtr& signer);
    [[nodiscard]] CrlSigner signerOf(const CrlFacts& crl, const StatusQuestion& question);
    [[nodiscard]] PathFault faultOfSigner(const CrlFacts& crl, const CertificateFacts& signer, const WorkingKey& key,
                                          const PathOptions& options, WorkBudget& budget);
    [[nodiscard]] CrlSigner judgeSigner(const CrlFacts& crl, const FactsPtr& signer, const StatusQuestion& question,
                                        bool withStatus);
    [[nodiscard]] CrlSigner judgeOnce(const CrlFacts& crl, const FactsPtr& signer, const StatusQuestion& question);
    [[nodiscard]] FactsList signersOf(const CrlFacts& crl, const CertList& extra);
    [[nodiscard]] CrtStatus statusOnPath(const PathVerdict& path, const PathOptions& options, const CertList& extra);

    CertificateManager* certificates_ = nullptr;
    DeviceUpdate deviceUpdate_;
    unsigned deviceError_ = 0;
    CrlIndex index_;  // of the state `indexOf_` of the store
    uint64_t indexOf_ = 0;
    std::map<Bytes, std::vector<size_t>> rowsOf_;  // by issuer, normalised
    /// What was found of who signed a CRL: the CRL, the signer, the trust point, lists of that issuer in judgement.
    using Judged = std::tuple<Digest, Digest, Digest, std::ptrdiff_t>;
    std::map<Judged, CrlSigner> judged_;  // in the course of the question `judgedOf_`
    uint64_t judgedOf_ = 0;
    std::map<Bytes, Cached> crls_;
    CrlFactsList more_;
    Evidence* evidence_ = nullptr;  // who hears of it
    size_t held_ = 0;               // octets in crls_
    std::vector<Digest> asked_;     // certificates whose status is being asked for, one question within the other
    std::vector<Bytes> judging_;    // issuers of the CRLs whose signers are being judged, one within the other
    size_t assumed_ = 0;            // the first of asked_ whose answer was taken for good on the way
};

}  // namespace crv
