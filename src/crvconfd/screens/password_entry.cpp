#include "crvconfd/screens/password_entry.h"

#include <algorithm>
#include <array>

#include "crvconfd/screens/password_quality.h"
#include "crvconfd/toolkit/encoding.h"
#include "crvconfd/toolkit/toolkit.h"

namespace crv {

namespace {

constexpr int kAttempts = 3;

/// The field and the form that its bytes take in UTF-8; wiped with it.
struct PasswordField {
    std::array<char, 256> bytes{};
    WipeGuard guard{bytes.data(), bytes.size()};

    /// Reads up to size - 1 bytes as typed; -1 on Escape.
    int read(const char* prompt, int size) {
        wipeMemory(bytes.data(), bytes.size());
        const int length = inputPassword(kMessageRow, 0, prompt, bytes.data(), size, '*', false);
        clrToEol(kMessageRow, 0);
        return length;
    }
    /// A password too long for the field once it is UTF-8 counts as not entered.
    bool toUtf8(int length, SecretText& password) {
        const int end = length < 0 ? -1 : typedToUtf8(bytes.data(), length, static_cast<int>(bytes.size()));
        password = SecretText(std::string_view(bytes.data(), static_cast<size_t>(std::max(end, 0))));
        return end >= 0;
    }
};

}  // namespace

bool readPassword(const char* prompt, SecretText& password, int size) {
    PasswordField field;
    return field.toUtf8(field.read(prompt, size), password);
}

bool readNewPassword(SecretText& password, int size, bool emptyLeaves) {
    for (;;) {
        PasswordField field;
        const int length = field.read("Wprowadź nowe hasło dostępu:", size);
        if (length < 0 || (length == 0 && emptyLeaves)) return false;
        // The rules look at the bytes as typed.
        if (goodPassQuality(field.bytes.data()) == 1) return field.toUtf8(length, password);
    }
}

bool chooseFirstPassword(SecretText& password) {
    SecretText repeated;
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (!readNewPassword(password, kMostPassword, false)) return false;
        if (!readPassword("Powtórz hasło:", repeated)) return false;
        if (repeated == password) return true;
        errInfo(kMessageRow, "Niepoprawne powtórzenie hasła");
    }
    return false;
}

}  // namespace crv
