#include "crvconfd/screens/password_entry.h"

#include "crvconfd/engines/entry.h"
#include "crvconfd/screens/password_quality.h"
#include "crvconfd/toolkit/toolkit.h"

namespace crv {

namespace {

constexpr int kAttempts = 3;

bool read(const char* prompt, SecretText& password, int size, const PasswordRule& rule = {}) {
    auto entered = askPassword(prompt, static_cast<size_t>(size) - 1, rule);
    password = entered ? std::move(*entered) : SecretText();
    return entered.has_value();
}

}  // namespace

bool readPassword(const char* prompt, SecretText& password, int size) {
    return read(prompt, password, size);
}

bool readNewPassword(SecretText& password, int size, bool emptyLeaves, const char* prompt) {
    const auto isGood = [emptyLeaves](const char* typed) {
        return (*typed == 0 && emptyLeaves) || goodPassQuality(typed) == 1;
    };
    return read(prompt, password, size, isGood) && !password.empty();
}

bool chooseFirstPassword(SecretText& password, const char* prompt) {
    SecretText repeated;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (!readNewPassword(password, kMostPassword, false, prompt)) return false;
        if (!readPassword("Powtórz hasło:", repeated)) return false;
        if (repeated == password) return true;
        errInfo(kMessageRow, "Niepoprawne powtórzenie hasła");
    }
    return false;
}

}  // namespace crv
