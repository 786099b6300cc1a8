// A token: a profile of the list, and what is open of it.
#pragma once

#include <atomic>
#include <memory>
#include <mutex>
#include <optional>

#include "pkcs11_module/token_objects.h"

namespace crv::p11 {

/// What a session sees.
struct SeenObjects {
    ObjectsPtr ofFile;      ///< null without log-in
    ObjectsPtr ofDatabase;  ///< null unless they are asked for

    [[nodiscard]] const TokenObject* find(CK_OBJECT_HANDLE handle) const {
        const TokenObject* found = findObject(ofFile.get(), handle);
        return found ? found : findObject(ofDatabase.get(), handle);
    }
    /// Each object once: what stands in the file is left out of the database.
    void each(const std::function<void(const TokenObject&)>& visit) const;
};

/// Used by many threads. Everything refuses with CKR_DEVICE_REMOVED when the profile is no longer listed or its file is
/// gone; whatever was open is then forgotten. A file that another program changed is read anew before anything is
/// answered of it; one that the password does not open any longer ends the log-in.
class Token {
  public:
    explicit Token(ListedProfile profile);

    [[nodiscard]] const ListedProfile& profile() const { return profile_; }
    /// 16 hexadecimal digits: the beginning of the SHA-256 of the file's path.
    [[nodiscard]] const std::string& serialNumber() const { return serialNumber_; }
    /// Whether it is listed and has its file.
    [[nodiscard]] bool present() const;
    /// The list lost the profile, or gave it back.
    void setListed(bool listed);

    /// CKR_USER_ALREADY_LOGGED_IN, CKR_PIN_INCORRECT, CKR_DEVICE_ERROR, kBusy.
    void login(const SecretText& pin);
    /// Wipes what is open; false when nothing was. Operations that are running hold their keys until they end.
    bool logout();
    /// As changePassword of store_reader.h. Who is logged in stays so.
    void changePin(const SecretText& pin, const SecretText& newPin);

    [[nodiscard]] bool loggedIn();
    [[nodiscard]] SeenObjects objects(bool withDatabase);

  private:
    struct Open {
        SecretText pin;
        FileStamp stamp;
        ObjectsPtr objects;
    };
    [[nodiscard]] Open read(const SecretText& pin, const TokenObjects* before) const;
    void refresh();
    void refreshDatabase();

    const ListedProfile profile_;
    const std::string serialNumber_;
    std::mutex mutex_;
    std::atomic<bool> listed_{true};
    std::optional<Open> open_;
    FileStamp dbStamp_;  // of the lock file, which every change of the database writes
    ObjectsPtr dbObjects_;
};

}  // namespace crv::p11
