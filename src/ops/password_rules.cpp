#include "ops/password_rules.h"

#include <cctype>
#include <cstring>

#include "ops/op_error.h"

namespace crv {
namespace {

// In the order of PasswordFault.
constexpr const char* kRules[] = {
    "", "at least 8 octets", "a capital letter", "a small letter", "a character that is no letter", "a password"};

}  // namespace

int passTest(const char* password) {
    if (!password) return kPasswordMissing;
    const size_t length = std::strlen(password);
    if (length < static_cast<size_t>(kPasswordLength)) return kPasswordTooShort;
    size_t upper = 0;
    size_t lower = 0;
    size_t other = 0;
    for (size_t i = 0; i < length; ++i) {
        // The C library's tables reach from -128 on, so the byte goes in as the signed character that it is.
        const int byte = static_cast<signed char>(password[i]);
        if (std::isalpha(byte) == 0) {
            ++other;
        } else {
            ++(std::isupper(byte) != 0 ? upper : lower);
        }
    }
    if (upper == 0) return kPasswordNoUpper;
    if (other == 0) return kPasswordNoOther;
    return lower == 0 ? kPasswordNoLower : kPasswordGood;
}

void demandGoodPassword(const SecretText& password) {
    const int fault = passTest(password.c_str());
    if (fault != kPasswordGood) throw OpError(OpFault::WeakPassword, kRules[fault]);
}

}  // namespace crv
