#include "config/configuration_manager.h"

#include <filesystem>

#include "config/trusted_list_manager.h"
#include "misc/path.h"

namespace crv {
namespace {

struct KindRow {
    ProfileKind kind;
    KeyMedium medium;
    SessionProfileType session;
};

constexpr KindRow kKinds[] = {
    {ProfileKind::Pkcs12, KeyMedium::File, SessionProfileType::File},
    {ProfileKind::Tarvo23, KeyMedium::Tarvo, SessionProfileType::Device},
    {ProfileKind::Pkcs11, KeyMedium::Token, SessionProfileType::Device},
    {ProfileKind::Csp, KeyMedium::Provider, SessionProfileType::Unusable},
    {ProfileKind::Memory, KeyMedium::Memory, SessionProfileType::Unusable},
};

const KindRow* rowOf(const CrvProfile* profile) {
    for (const KindRow& row : kKinds)
        if (profile && row.kind == profile->kind()) return &row;
    return nullptr;
}

std::string pathAttr(const CrvProfile* profile, long id) {
    std::string path;
    if (profile) profile->getAttr(id, path);
    return expandHome(path);
}

}  // namespace

void ConfigurationManager::setProfile(std::unique_ptr<CrvProfile> profile) {
    profile_ = std::move(profile);
    setRecord(nullptr);
    if (!profile_) return;
    Proxy proxy;
    profile_->getProxy(proxy);
    TrustedListManager::instance().setProxy(proxy);
}

CRVCfgFile& ConfigurationManager::editRecord() {
    constexpr long kOurs = 2;
    if (!edited_ || edited_.use_count() > kOurs) {
        edited_ = std::make_shared<CRVCfgFile>(*record_);
        record_ = edited_;
    }
    recordChanged_ = true;
    return *edited_;
}

void ConfigurationManager::setRecord(std::shared_ptr<const CRVCfgFile> record) noexcept {
    record_ = record ? std::move(record) : empty_;
    edited_.reset();
    recordChanged_ = false;
}

void ConfigurationManager::resetRecord() {
    setRecord(nullptr);
    recordChanged_ = true;
}

SessionProfileType ConfigurationManager::profileType() const {
    const KindRow* row = rowOf(profile());
    return row ? row->session : SessionProfileType::None;
}

KeyMedium ConfigurationManager::keyMedium() const {
    const KindRow* row = rowOf(profile());
    return row ? row->medium : KeyMedium::None;
}

std::string ConfigurationManager::profileName() const {
    return profile_ ? profile_->name() : std::string();
}

std::string ConfigurationManager::securityFileName() const {
    return pathAttr(profile(), CRVPROFILE_ATTR_PKCS12_FILE);
}

std::string ConfigurationManager::securityFileLockName() const {
    if (keyMedium() == KeyMedium::File) {
        const std::string file = securityFileName();
        std::error_code error;
        const auto resolved = std::filesystem::weakly_canonical(file, error);
        if (file.empty()) return {};
        return (error ? file : resolved.string()) + ".lck";
    }
    const std::string folder = pathAttr(profile(), CRVPROFILE_ATTR_DB);
    return folder.empty() ? std::string() : (std::filesystem::path(folder) / "key.lck").string();
}

}  // namespace crv
