#include "profiles/crv_profile.h"

namespace crv {
namespace {

constexpr AttrRow kCommonRows[] = {
    {"RootsFile", AttrForm::Text, {CRVPROFILE_ATTR_ROOTS_FILE, kNoAttr}},
    {"RootsReg", AttrForm::Text, {CRVPROFILE_ATTR_ROOTS_REG, kNoAttr}},
    {"TrvLibPath", AttrForm::Text, {CRVPROFILE_ATTR_TRV_LIB_PATH, kNoAttr}},
    {"RootsEmptyPassword", AttrForm::OpenNumber, {CRVPROFILE_ATTR_ROOTS_EMPTY_PASSWORD, kNoAttr}},
};

bool fitsName(std::string_view name) {
    return fitsList(name) && name.find_first_of("[\\") == std::string_view::npos;
}

}  // namespace

CrvProfile::CrvProfile(ProfileKind kind, std::span<const AttrRow> rows)
    : kind_(kind), common_(kCommonRows), own_(rows) {}

int CrvProfile::getAttr(long id, char* buf, long* len) const {
    if (own_.knows(id)) return own_.get(id, buf, len);
    switch (id) {
        case CRVPROFILE_ATTR_NAME:
            return copyAttr(name_, buf, len);
        case CRVPROFILE_ATTR_TYPE:
            if (len && *len < 0) *len = sizeof(long);
            return copyNumber(type(), buf, len);
        case CRVPROFILE_ATTR_TYPE_TEXT:
            return copyAttr(std::to_string(type()), buf, len);
        default:
            return common_.get(id, buf, len);
    }
}

int CrvProfile::getAttr(long id, std::string& value) const {
    long len = 0;
    int result = getAttr(id, nullptr, &len);
    value.resize(static_cast<size_t>(result ? 0 : len));
    return result || value.empty() ? result : getAttr(id, value.data(), &len);
}

int CrvProfile::getAttr(long id, long& value) const {
    value = 0;
    long len = sizeof value;
    return getAttr(id, reinterpret_cast<char*>(&value), &len);
}

int CrvProfile::getAttr(long id, std::vector<char>& value) const {
    std::string octets;
    int result = getAttr(id, octets);
    value.assign(octets.begin(), octets.end());
    return result;
}

int CrvProfile::setAttr(long id, const char* value, long len) {
    if (own_.knows(id)) return own_.set(id, value, len);
    if (id != CRVPROFILE_ATTR_NAME) return common_.set(id, value, len);
    if (!value || len < 0 || !fitsName({value, static_cast<size_t>(len)})) return kAttrBadArgument;
    name_.assign(value, static_cast<size_t>(len));
    return kAttrOk;
}

int CrvProfile::setAttr(long id, const std::string& value) {
    return setAttr(id, value.data(), static_cast<long>(value.size()));
}

int CrvProfile::setAttr(long id, long value) {
    return setAttr(id, std::to_string(value));
}

void CrvProfile::loadProfile(const UniversalConfMgr& store, const std::string& name) {
    const std::string prefix = "\\" + name + "\\";
    name_ = name;
    common_.load(store, prefix);
    own_.load(store, prefix);
}

}  // namespace crv
