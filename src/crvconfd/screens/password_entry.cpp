#include "crvconfd/screens/password_entry.h"

#include "crvconfd/screens/password_quality.h"
#include "crvconfd/toolkit/encoding.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/secret.h"

namespace crv {

namespace {

constexpr int kAttempts = 3;

/// Reads up to size - 1 bytes as typed; -1 with the buffer wiped on Escape.
int readTyped(const char* prompt, PasswordBuffer& password, int size) {
    wipeMemory(password.data(), password.size());
    const int length = inputPassword(kMessageRow, 0, prompt, password.data(), size, '*', false);
    clrToEol(kMessageRow, 0);
    if (length < 0) wipeMemory(password.data(), password.size());
    return length;
}

/// A password too long for the buffer once it is UTF-8 counts as not entered. Nothing of what was typed and taken back
/// stays behind the end.
bool toUtf8(PasswordBuffer& password, int length) {
    const int end = typedToUtf8(password.data(), length, static_cast<int>(password.size()));
    if (end >= 0) wipeMemory(password.data() + end, password.size() - static_cast<size_t>(end));
    return end >= 0;
}

}  // namespace

bool readPassword(const char* prompt, PasswordBuffer& password, int size) {
    const int length = readTyped(prompt, password, size);
    return length >= 0 && toUtf8(password, length);
}

bool readNewPassword(PasswordBuffer& password, int size, bool emptyLeaves) {
    for (;;) {
        const int length = readTyped("Wprowadź nowe hasło dostępu:", password, size);
        if (length < 0 || (length == 0 && emptyLeaves)) return false;
        // The rules look at the bytes as typed.
        if (goodPassQuality(password.data()) == 1) return toUtf8(password, length);
    }
}

bool chooseFirstPassword(PasswordBuffer& password) {
    PasswordBuffer repeated{};
    const WipeGuard guard(repeated.data(), repeated.size());
    for (int attempt = 0; attempt < kAttempts; ++attempt) {
        if (!readNewPassword(password, kMostPassword, false)) return false;
        if (!readPassword("Powtórz hasło:", repeated)) return false;
        if (repeated == password) return true;
        errInfo(kMessageRow, "Niepoprawne powtórzenie hasła");
    }
    return false;
}

}  // namespace crv
