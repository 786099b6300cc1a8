// Entries of certificate revocation lists (RFC 5280 5.1.2.6, 5.3).
#pragma once

#include "asn/asn_any.h"
#include "asn/x509/extension.h"
#include "asn/x509/general_name.h"
#include "misc/memory_file.h"

namespace crv {

/// Reasons of a revocation (RFC 5280 5.3.1).
enum class CrlReason : int {
    Unspecified = 0,
    KeyCompromise = 1,
    CACompromise = 2,
    AffiliationChanged = 3,
    Superseded = 4,
    CessationOfOperation = 5,
    CertificateHold = 6,
    RemoveFromCrl = 8,
    PrivilegeWithdrawn = 9,
    AACompromise = 10,
};

/// Name of the reason as in the module; "unknown" for another number.
[[nodiscard]] const char* crlReasonName(CrlReason reason);

/// One entry. Date and extensions are decoded when they are asked for, so that a walk over a long list costs little.
class RevokedCertificate : public ASNsequenceF {
  public:
    ASNinteger userCertificate;
    ASNany revocationDate;
    std::optional<ASNany> crlEntryExtensions;

    /// Seconds since 1970 UTC; nothing when the text is no point in time.
    [[nodiscard]] std::optional<int64_t> revokedAt() const;
    /// Empty when there are none or they are malformed.
    [[nodiscard]] Extensions extensions() const;
    /// `unspecified` when the entry gives none.
    [[nodiscard]] CrlReason reason() const;
    [[nodiscard]] bool givesReason() const;
    [[nodiscard]] std::optional<int64_t> invalidityDate() const;
    /// Whose certificate this and the following entries of an indirect list revoke (RFC 5280 5.3.3); nothing when the
    /// entry does not say.
    [[nodiscard]] std::optional<GeneralNames> certificateIssuer() const;

  protected:
    [[nodiscard]] MemberTable members() const override;
    [[nodiscard]] bool validMembers() const override;
};

/// The pieces of an entry as views, for walks over a million of them.
struct RevokedEntryView {
    ByteView serial;      ///< content octets
    ByteView date;        ///< whole element
    ByteView extensions;  ///< whole element; empty when there are none
};

/// Takes the entry at the front off the octets; nothing for one that is malformed, or in a form that DER does not have.
[[nodiscard]] std::optional<RevokedEntryView> takeRevokedEntry(ByteView& entries);

/// SEQUENCE OF RevokedCertificate, kept as its octets: a list of a million entries is no million objects. Every entry
/// is checked when the list is read. Indefinite lengths are not taken here.
class RevokedCertificates : public ASNprimitive {
  public:
    static constexpr unsigned char kTag = 0x30;
    RevokedCertificates() : ASNprimitive(kTag) {}

    /// Walks the entries in their order.
    class Cursor {
      public:
        explicit Cursor(ByteView entries) : file_(entries) {}
        /// The next entry, null behind the last one. It refers to the list's octets and is valid until the next call;
        /// copy it to keep it.
        [[nodiscard]] const RevokedCertificate* next();
        /// Whether the octets ended where an entry did.
        [[nodiscard]] bool intact() const { return intact_; }

      private:
        MemoryFile file_;
        RevokedCertificate entry_;
        bool intact_ = true;
    };
    [[nodiscard]] Cursor entries() const { return Cursor(contents()); }
    [[nodiscard]] size_t count() const { return count_; }

    /// Appends an entry.
    void add(const RevokedCertificate& entry);
    [[nodiscard]] unsigned char getDefaultTag() const override { return kTag; }

  protected:
    [[nodiscard]] bool validContents() const override;

  private:
    mutable size_t count_ = 0;  // counted when the list is read
};

}  // namespace crv
