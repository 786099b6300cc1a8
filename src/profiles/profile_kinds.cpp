#include "profiles/profile_kinds.h"

#include <algorithm>
#include <iterator>

namespace crv {
namespace {

using enum AttrForm;

constexpr AttrRow kPkcs12Rows[] = {
    {"Pkcs12File", Text, {CRVPROFILE_ATTR_PKCS12_FILE, CRVPROFILE_ATTR_PKCS12_FILE_PATH}},
    {nullptr, Number, {CRVPROFILE_ATTR_IGNORE_SFT_FILE, kNoAttr}},
    {nullptr, Octets, {CRVPROFILE_ATTR_SFT_FILE_BYTES, kNoAttr}},
};

constexpr AttrRow kTarvo23Rows[] = {
    {"T23CardId", Octets, {CRVPROFILE_ATTR_T23_CARD_ID, kNoAttr}, kNoAttr, true, 16},
    {"T23Type", Number, {CRVPROFILE_ATTR_T23_TYPE, kNoAttr}, CRVPROFILE_ATTR_T23_TYPE_TEXT},
    {nullptr, Number, {CRVPROFILE_ATTR_IGNORE_SFT_FILE, kNoAttr}},
};

constexpr AttrRow kPkcs11Rows[] = {
    {"ReaderName", Text, {CRVPROFILE_ATTR_READER_NAME, kNoAttr}},
    {"PKCS11Library", Text, {CRVPROFILE_ATTR_PKCS11_LIBRARY, CRVPROFILE_ATTR_PKCS11_LIBRARIES}},
    {"PKCS11SyncByLib", Flag, {CRVPROFILE_ATTR_PKCS11_SYNC_BY_LIB, kNoAttr}},
    {"CertFilter", Text, {CRVPROFILE_ATTR_CERT_FILTER, kNoAttr}},
    {"CertFilterFieldType", Number, {CRVPROFILE_ATTR_CERT_FILTER_FIELD_TYPE, kNoAttr}},
    {"PKCS11KeepSessionOpen", Flag, {CRVPROFILE_ATTR_PKCS11_KEEP_SESSION_OPEN, kNoAttr}},
    {"IgnoreSftFile", Flag, {CRVPROFILE_ATTR_IGNORE_SFT_FILE, kNoAttr}},
    {"SKeyTok", Label, {CRVPROFILE_ATTR_SKEY_TOK, kNoAttr}, kNoAttr, true, 32},
    {"DKeyTok", Label, {CRVPROFILE_ATTR_DKEY_TOK, kNoAttr}, kNoAttr, true, 32},
    {"SKeyId", Octets, {CRVPROFILE_ATTR_SKEY_ID, kNoAttr}, kNoAttr, true},
    {"DKeyId", Octets, {CRVPROFILE_ATTR_DKEY_ID, kNoAttr}, kNoAttr, true},
    {"SKeyUsageSpec", Number, {CRVPROFILE_ATTR_SKEY_USAGE_SPEC, kNoAttr}},
    {"DKeyUsageSpec", Number, {CRVPROFILE_ATTR_DKEY_USAGE_SPEC, kNoAttr}},
    {"externSPin", Flag, {CRVPROFILE_ATTR_EXTERN_SPIN, kNoAttr}},
    {"externDPin", Flag, {CRVPROFILE_ATTR_EXTERN_DPIN, kNoAttr}},
    {"DisableAutoExternPins", Flag, {CRVPROFILE_ATTR_AUTO_EXTERN_PINS, kNoAttr}},
    {nullptr, Octets, {CRVPROFILE_ATTR_SKEY_CERT, kNoAttr}},
};

constexpr AttrRow kCspRows[] = {
    {"CspProvider", Text, {CRVPROFILE_ATTR_CSP_PROVIDER, kNoAttr}},
    {"CspContainer", Text, {CRVPROFILE_ATTR_CSP_CONTAINER, kNoAttr}},
    {"CspProvType", Number, {CRVPROFILE_ATTR_CSP_PROV_TYPE, kNoAttr}, CRVPROFILE_ATTR_CSP_PROV_TYPE_TEXT},
    {"CspKeySpec", Number, {CRVPROFILE_ATTR_CSP_KEY_SPEC, kNoAttr}, CRVPROFILE_ATTR_CSP_KEY_SPEC_TEXT},
};

template <class Profile>
std::unique_ptr<CrvProfile> make() {
    return std::make_unique<Profile>();
}

struct ListedKind {
    ProfileKind kind;
    std::unique_ptr<CrvProfile> (*make)();
};

constexpr ListedKind kListedKinds[] = {
    {ProfileKind::Pkcs12, make<Pkcs12Profile>},
    {ProfileKind::Tarvo23, make<Tarvo23Profile>},
    {ProfileKind::Pkcs11, make<Pkcs11Profile>},
    {ProfileKind::Memory, make<MemoryProfile>},
};

long typeOf(const ListedKind& row) {
    return static_cast<long>(row.kind);
}

}  // namespace

Pkcs12Profile::Pkcs12Profile() : CrvProfile(ProfileKind::Pkcs12, kPkcs12Rows) {}
Tarvo23Profile::Tarvo23Profile() : CrvProfile(ProfileKind::Tarvo23, kTarvo23Rows) {}
Pkcs11Profile::Pkcs11Profile() : CrvProfile(ProfileKind::Pkcs11, kPkcs11Rows) {}
MemoryProfile::MemoryProfile() : CrvProfile(ProfileKind::Memory, {}) {}
CspProfile::CspProfile() : CrvProfile(ProfileKind::Csp, kCspRows) {}

std::vector<std::string> Pkcs11Profile::splitLibs(std::string_view libs) {
    std::vector<std::string> paths;
    while (!libs.empty()) {
        const size_t end = std::min(libs.find(';'), libs.size());
        if (end > 0) paths.emplace_back(libs.substr(0, end));
        libs.remove_prefix(std::min(end + 1, libs.size()));
    }
    return paths;
}

bool isListedKind(long type) {
    return std::ranges::find(kListedKinds, type, typeOf) != std::end(kListedKinds);
}

std::unique_ptr<CrvProfile> CrvProfile::create(long type) {
    const auto* row = std::ranges::find(kListedKinds, type, typeOf);
    return row == std::end(kListedKinds) ? nullptr : row->make();
}

std::unique_ptr<CrvProfile> CrvProfile::clone() const {
    auto copy = kind_ == ProfileKind::Csp ? make<CspProfile>() : create(type());
    *copy = *this;
    return copy;
}

}  // namespace crv
