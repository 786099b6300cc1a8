// The current profile of a context: its record, what kind of keys it has, and its configuration record.
#pragma once

#include <memory>
#include <string>

#include "config/crv_cfg_file.h"
#include "profiles/crv_profile.h"

namespace crv {

/// Where the private keys of a profile live, as the key manager numbers it. No class of profile has medium 3.
enum class KeyMedium { None = 0, File = 1, Tarvo = 2, Token = 4, Provider = 5, Memory = 6 };

/// What the console does to open a profile.
enum class SessionProfileType { None = 0, File = 1, Device = 5, Unusable = 7 };

/// Owned by the context. Managers reach it through ContextServices::configuration().
class ConfigurationManager {
  public:
    /// Binds a profile, or with null releases the current one; the record becomes empty, so that every option has its
    /// default, and the trusted-list manager learns the profile's proxy.
    void setProfile(std::unique_ptr<CrvProfile> profile);
    /// The current profile, or null.
    [[nodiscard]] CrvProfile* profile() const { return profile_.get(); }

    [[nodiscard]] SessionProfileType profileType() const;
    [[nodiscard]] KeyMedium keyMedium() const;
    /// Name of the profile; empty without one.
    [[nodiscard]] std::string profileName() const;
    /// Path of the security file, "~/" expanded; empty when the profile names none.
    [[nodiscard]] std::string securityFileName() const;
    /// Path of the lock file of the key store: the security file with symbolic links resolved and ".lck" behind it; for
    /// devices "key.lck" in the database folder. Empty when there is neither.
    [[nodiscard]] std::string securityFileLockName() const;

    /// The configuration record: that of the key store after log-in. Shared records are never changed.
    [[nodiscard]] const CRVCfgFile& record() const { return *record_; }
    [[nodiscard]] std::shared_ptr<const CRVCfgFile> sharedRecord() const { return record_; }
    /// The record for a change, which is marked; a record that somebody shares is copied first. Not to be kept.
    CRVCfgFile& editRecord();
    /// Takes the key store's record; null gives an empty one. Clears the mark. Needs no memory, so that it can take a
    /// change back.
    void setRecord(std::shared_ptr<const CRVCfgFile> record) noexcept;
    /// Gives every field its default and marks the change.
    void resetRecord();
    /// Whether the record was changed since it was taken or saved.
    [[nodiscard]] bool isRecordChanged() const { return recordChanged_; }
    void setRecordChanged(bool changed) { recordChanged_ = changed; }

  private:
    std::unique_ptr<CrvProfile> profile_;
    std::shared_ptr<const CRVCfgFile> empty_ = std::make_shared<CRVCfgFile>();  // never changed
    std::shared_ptr<const CRVCfgFile> record_ = empty_;
    std::shared_ptr<CRVCfgFile> edited_;  // record_ where it was made here for a change; null elsewhere
    bool recordChanged_ = false;
};

}  // namespace crv
