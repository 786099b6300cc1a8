// The configuration record of a profile, kept as a secret bag of its key store.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "asn/asn_any.h"
#include "asn/asn_list.h"
#include "asn/asn_object_id.h"
#include "asn/asn_sequence.h"
#include "asn/x509/algorithm_identifier.h"
#include "asn/x509/policy_id_and_note.h"
#include "crypto/key_scheme.h"

namespace crv {

/// One attribute of the record.
class CfgField : public ASNsequenceF {
  public:
    ASNobjectId id;
    ASNany value;

  protected:
    [[nodiscard]] MemberTable members() const override;
};

/// SEQUENCE OF SEQUENCE {OBJECT IDENTIFIER, ANY}. A missing field means the default; a set replaces in place; unknown
/// fields are kept. A field that does not decode fails an assertion when it is asked for.
class CRVCfgFile : public ASNsequenceList<CfgField> {
  public:
    using Policies = ASNsequenceList<PolicyIdAndNote>;
    /// Certificates in DER.
    using Certificates = std::vector<Bytes>;

    /// The record of an encoding, with its lists of certificates checked; null when it is none.
    [[nodiscard]] static std::shared_ptr<const CRVCfgFile> decodeRecord(ByteView encoding);

    /// The value of a field, or null.
    [[nodiscard]] const ASNany* findField(const KnownOid& oid) const;
    /// Sets a field to the object's encoding; null removes the field. A failure changes nothing.
    void setField(const KnownOid& oid, const ASNobject* value);

    /// Whether the number is that of an integer option.
    [[nodiscard]] static bool isSuchIntOpt(long id);
    /// The option's value, or its default. The option must be one (assertion).
    [[nodiscard]] long getIntOpt(long id) const;
    void setIntOpt(long id, long value);

    /// Option 13: whether a key may be certified under two names.
    [[nodiscard]] bool allowsRecertification() const;

    /// Text options 36, 42 and 43: nothing when absent. The option must be one (assertion).
    [[nodiscard]] static bool isSuchTextOpt(long id);
    [[nodiscard]] std::optional<std::string> getTextOpt(long id) const;
    void setTextOpt(long id, const std::optional<std::string>& value);

    /// Format of protected messages; 1 when absent.
    [[nodiscard]] long getProtMsgFmt() const;
    void setProtMsgFmt(int format);

    [[nodiscard]] Policies getPolicies() const;
    void setPolicies(const Policies& policies);
    [[nodiscard]] Policies getAcceptedKeyUsage() const;
    void setAcceptedKeyUsage(const Policies& usages);

    [[nodiscard]] Certificates getTrustedCAs() const;
    void setTrustedCAs(const Certificates& certificates);
    [[nodiscard]] Certificates getQualifiedTrustedCAs() const;
    void setQualifiedTrustedCAs(const Certificates& certificates);

    /// Symmetric algorithm; AES-256 in CBC mode when absent.
    [[nodiscard]] ASNobjectId getSymAlgo() const;
    void setSymAlgo(const ASNobjectId& algorithm);
    /// Digest of signatures; when absent SHA-256, for a DSA key SHA-1.
    [[nodiscard]] KcHashAlgo getHashAlgo(KeyScheme key = KeyScheme::None) const;
    void setHashAlgo(KcHashAlgo hash);
    /// Algorithm of signatures; nothing when absent: the key's own scheme with the digest above.
    [[nodiscard]] std::optional<AlgorithmIdentifier> getSignatureAlgorithmIdentifier() const;
    void setSignaturaAlgorithmIdentifier(const AlgorithmIdentifier& algorithm);

    /// Which algorithms signatures of certificates and CRLs may have, as pki/algorithm_policy.h reads it; nothing when
    /// absent: its default. Nothing removes the field.
    [[nodiscard]] std::optional<std::string> getAlgorithmPolicy() const;
    void setAlgorithmPolicy(const std::optional<std::string>& text);

    /// How many former security files are kept beside the file; 10 when absent.
    [[nodiscard]] long getStoreHistory() const;
    void setStoreHistory(long count);
    /// Identifiers of keys that the user deleted, so that no merge brings them back.
    [[nodiscard]] std::vector<Bytes> getDeletedKeys() const;
    void setDeletedKeys(const std::vector<Bytes>& ids);

  private:
    [[nodiscard]] long numberField(const KnownOid& oid, long absent) const;
    void setNumberField(const KnownOid& oid, long value);
    [[nodiscard]] std::optional<std::string> textField(const KnownOid& oid) const;
    void setTextField(const KnownOid& oid, const std::optional<std::string>& value);
    template <class Object>
    [[nodiscard]] Object decoded(const KnownOid& oid, Object absent = {}) const;
    [[nodiscard]] Certificates certificates(const KnownOid& oid) const;
    void setCertificates(const KnownOid& oid, const Certificates& certificates);
};

}  // namespace crv
