// A token: a profile of the list, and what is open of it.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
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
    /// The list lost the profile, or gave it back. True when it was lost now: the log-in has ended, and wipeEnded() is
    /// to be called. Waits for nothing.
    [[nodiscard]] bool setListed(bool listed);

    /// Changes when what is logged in, or just logging in, has ended.
    [[nodiscard]] uint64_t loginNumber() const { return logins_; }
    /// Ends the log-in and one that is under way, without waiting for anything; wipeEnded() wipes it.
    void endLogin() { ++logins_; }
    /// Waits for the call that works with the token.
    void wipeEnded();
    /// `current` is loginNumber() of a moment at which the session was open. CKR_USER_ALREADY_LOGGED_IN,
    /// CKR_PIN_INCORRECT, CKR_DEVICE_ERROR, kBusy; CKR_SESSION_HANDLE_INVALID when endLogin() was called since.
    void login(uint64_t current, const SecretText& pin);
    /// Wipes what is open; false when nothing was. Operations that are running hold their keys until they end.
    bool logout();
    /// As changePassword of store_reader.h. Who is logged in stays so.
    void changePin(const SecretText& pin, const SecretText& newPin);

    [[nodiscard]] bool loggedIn();
    [[nodiscard]] SeenObjects objects(bool withDatabase);

  private:
    struct Open {
        uint64_t login;  ///< loginNumber() while it counts
        SecretText pin;
        std::array<FileStamp, 2> stamps;  ///< stampsOfFiles() of before the reading
        ObjectsPtr objects;
    };
    [[nodiscard]] Open read(uint64_t login, const SecretText& pin, const TokenObjects* before) const;
    /// Of the security file and of the additional trust points.
    [[nodiscard]] std::array<FileStamp, 2> stampsOfFiles() const;
    void dropEnded();
    void refresh();
    void refreshDatabase();

    const ListedProfile profile_;
    const std::string serialNumber_;
    std::mutex mutex_;
    std::atomic<bool> listed_{true};
    std::atomic<uint64_t> logins_{0};
    std::optional<Open> open_;
    FileStamp dbStamp_;                 // of the lock file, which every change of the database writes
    std::optional<FileStamp> dbTable_;  // of the certificates, when they were read after they had settled
    ObjectsPtr dbObjects_;
    std::optional<std::chrono::steady_clock::time_point> dbBusySince_;
};

}  // namespace crv::p11
