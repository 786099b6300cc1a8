#include "config/crv_cfg_file.h"

#include <algorithm>

#include "asn/asn_strings.h"
#include "asn/known_oids.h"
#include "config/config_oids.h"
#include "misc/exceptions.h"

namespace crv {
namespace {

constexpr const char* kPlace = "src/src/crv_cfg_file";

struct IntOption {
    long id;
    const KnownOid& oid;
    long absent;
};

#define CRV_INT_OPTION_ROW(option, name, constant, tail, value) {option, constant, value},
constexpr IntOption kIntOptions[] = {CRV_INT_OPTIONS(CRV_INT_OPTION_ROW)};
#undef CRV_INT_OPTION_ROW

struct TextOption {
    long id;
    const KnownOid& oid;
};

constexpr TextOption kTextOptions[] = {
    {36, OID_CRV_CONFIG_TEXT_OPTION_36},
    {42, OID_CRV_CONFIG_TEXT_OPTION_42},
    {43, OID_CRV_CONFIG_TEXT_OPTION_43},
};

template <class Row, size_t N>
const Row* findRow(const Row (&rows)[N], long id) {
    const Row* row = std::ranges::find(rows, id, &Row::id);
    return row == std::end(rows) ? nullptr : row;
}

template <class Row, size_t N>
const Row& demandRow(const Row (&rows)[N], long id) {
    const Row* row = findRow(rows, id);
    VTEST(row, kPlace);
    return *row;
}

}  // namespace

MemberTable CfgField::members() const {
    static constexpr Member kMembers[] = {member<&CfgField::id>, member<&CfgField::value>};
    return kMembers;
}

std::shared_ptr<const CRVCfgFile> CRVCfgFile::decodeRecord(ByteView encoding) {
    const auto record = std::make_shared<CRVCfgFile>();
    if (!record->readExactly(encoding)) return nullptr;
    try {
        (void)record->getTrustedCAs();
        (void)record->getQualifiedTrustedCAs();
    } catch (const VtestException&) {
        return nullptr;
    }
    return record;
}

const ASNany* CRVCfgFile::findField(const KnownOid& oid) const {
    const auto found = std::ranges::find_if(*this, [&](const CfgField& field) { return field.id == oid; });
    return found == end() ? nullptr : &found->value;
}

void CRVCfgFile::setField(const KnownOid& oid, const ASNobject* value) {
    size_t at = 0;
    while (at < size() && !((*this)[at].id == oid)) ++at;
    if (!value) {
        if (at < size()) remove(at);
        return;
    }
    // Whole before it is in the list: half a field could not be written, nor anything with it.
    CfgField field;
    field.id = oid;
    field.value.build(*value);
    if (at < size()) {
        (*this)[at].value = std::move(field.value);
    } else {
        add(std::move(field));
    }
}

template <class Object>
Object CRVCfgFile::decoded(const KnownOid& oid, Object absent) const {
    const ASNany* field = findField(oid);
    VTEST(!field || field->decode(absent), kPlace);
    return absent;
}

bool CRVCfgFile::isSuchIntOpt(long id) {
    return findRow(kIntOptions, id) != nullptr;
}

long CRVCfgFile::getIntOpt(long id) const {
    const IntOption& option = demandRow(kIntOptions, id);
    return numberField(option.oid, option.absent);
}

void CRVCfgFile::setIntOpt(long id, long value) {
    setNumberField(demandRow(kIntOptions, id).oid, value);
}

long CRVCfgFile::numberField(const KnownOid& oid, long absent) const {
    const auto value = decoded<ASNinteger>(oid, ASNinteger(absent)).value();
    VTEST(value, kPlace);
    return *value;
}

void CRVCfgFile::setNumberField(const KnownOid& oid, long value) {
    const ASNinteger number(value);
    setField(oid, &number);
}

long CRVCfgFile::getStoreHistory() const {
    constexpr long kUsual = 10;
    return numberField(OID_CRV_CONFIG_STORE_HISTORY, kUsual);
}

void CRVCfgFile::setStoreHistory(long count) {
    setNumberField(OID_CRV_CONFIG_STORE_HISTORY, count);
}

std::vector<Bytes> CRVCfgFile::getDeletedKeys() const {
    std::vector<Bytes> ids;
    for (const ASNoctstr& id : decoded<ASNsequenceList<ASNoctstr>>(OID_CRV_CONFIG_DELETED_KEYS))
        ids.push_back(toBytes(id.value()));
    return ids;
}

void CRVCfgFile::setDeletedKeys(const std::vector<Bytes>& ids) {
    ASNsequenceList<ASNoctstr> list;
    for (const Bytes& id : ids) list.add().build(id);
    setField(OID_CRV_CONFIG_DELETED_KEYS, ids.empty() ? nullptr : &list);
}

bool CRVCfgFile::allowsRecertification() const {
    return getIntOpt(kOptAllowFullRecertification) != 0;
}

bool CRVCfgFile::isSuchTextOpt(long id) {
    return findRow(kTextOptions, id) != nullptr;
}

std::optional<std::string> CRVCfgFile::textField(const KnownOid& oid) const {
    if (!findField(oid)) return std::nullopt;
    return decoded<ASNutf8String>(oid).utf8();
}

void CRVCfgFile::setTextField(const KnownOid& oid, const std::optional<std::string>& value) {
    const ASNutf8String text(value.value_or(""));
    setField(oid, value ? &text : nullptr);
}

std::optional<std::string> CRVCfgFile::getTextOpt(long id) const {
    return textField(demandRow(kTextOptions, id).oid);
}

void CRVCfgFile::setTextOpt(long id, const std::optional<std::string>& value) {
    setTextField(demandRow(kTextOptions, id).oid, value);
}

std::optional<std::string> CRVCfgFile::getAlgorithmPolicy() const {
    return textField(OID_CRV_CONFIG_ALGORITHM_POLICY);
}

void CRVCfgFile::setAlgorithmPolicy(const std::optional<std::string>& text) {
    setTextField(OID_CRV_CONFIG_ALGORITHM_POLICY, text);
}

long CRVCfgFile::getProtMsgFmt() const {
    return numberField(OID_CRV_CONFIG_PROT_MSG_FMT, 1);
}

void CRVCfgFile::setProtMsgFmt(int format) {
    setNumberField(OID_CRV_CONFIG_PROT_MSG_FMT, format);
}

CRVCfgFile::Policies CRVCfgFile::getPolicies() const {
    return decoded<Policies>(OID_CRV_CONFIG_POLICIES);
}

void CRVCfgFile::setPolicies(const Policies& policies) {
    setField(OID_CRV_CONFIG_POLICIES, &policies);
}

CRVCfgFile::Policies CRVCfgFile::getAcceptedKeyUsage() const {
    return decoded<Policies>(OID_CRV_CONFIG_ACCEPTED_KEY_USAGE);
}

void CRVCfgFile::setAcceptedKeyUsage(const Policies& usages) {
    setField(OID_CRV_CONFIG_ACCEPTED_KEY_USAGE, &usages);
}

CRVCfgFile::Certificates CRVCfgFile::certificates(const KnownOid& oid) const {
    Certificates certificates;
    for (const ASNany& certificate : decoded<ASNsequenceList<ASNany>>(oid))
        certificates.push_back(toBytes(certificate.getMemory()));
    return certificates;
}

void CRVCfgFile::setCertificates(const KnownOid& oid, const Certificates& certificates) {
    ASNsequenceList<ASNany> list;
    for (const Bytes& certificate : certificates) VTEST(list.add().build(ByteView(certificate)), kPlace);
    setField(oid, &list);
}

CRVCfgFile::Certificates CRVCfgFile::getTrustedCAs() const {
    return certificates(OID_CRV_CONFIG_TRUSTED_CA);
}

void CRVCfgFile::setTrustedCAs(const Certificates& certificates) {
    setCertificates(OID_CRV_CONFIG_TRUSTED_CA, certificates);
}

CRVCfgFile::Certificates CRVCfgFile::getQualifiedTrustedCAs() const {
    return certificates(OID_CRV_CONFIG_QUALIFIED_TRUSTED_CA);
}

void CRVCfgFile::setQualifiedTrustedCAs(const Certificates& certificates) {
    setCertificates(OID_CRV_CONFIG_QUALIFIED_TRUSTED_CA, certificates);
}

ASNobjectId CRVCfgFile::getSymAlgo() const {
    return decoded<ASNobjectId>(OID_CRV_CONFIG_SYM_ALGO, ASNobjectId(OID_AES256_CBC));
}

void CRVCfgFile::setSymAlgo(const ASNobjectId& algorithm) {
    setField(OID_CRV_CONFIG_SYM_ALGO, &algorithm);
}

KcHashAlgo CRVCfgFile::getHashAlgo(KeyScheme key) const {
    if (!findField(OID_CRV_CONFIG_HASH_ALGO)) return key == KeyScheme::Dsa ? KcHashAlgo::Sha1 : KcHashAlgo::Sha256;
    const KcHashAlgo hash = hashAlgoOf(decoded<AlgorithmIdentifier>(OID_CRV_CONFIG_HASH_ALGO));
    VTEST(hash != KcHashAlgo::None, kPlace);
    return hash;
}

void CRVCfgFile::setHashAlgo(KcHashAlgo hash) {
    const AlgorithmIdentifier algorithm = hashAlgorithm(hash);
    setField(OID_CRV_CONFIG_HASH_ALGO, &algorithm);
}

std::optional<AlgorithmIdentifier> CRVCfgFile::getSignatureAlgorithmIdentifier() const {
    if (!findField(OID_CRV_CONFIG_SIGNATURE_ALGO)) return std::nullopt;
    return decoded<AlgorithmIdentifier>(OID_CRV_CONFIG_SIGNATURE_ALGO);
}

void CRVCfgFile::setSignaturaAlgorithmIdentifier(const AlgorithmIdentifier& algorithm) {
    setField(OID_CRV_CONFIG_SIGNATURE_ALGO, &algorithm);
}

}  // namespace crv
