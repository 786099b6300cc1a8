// The security file of a profile as the module uses it: read without leaving a trace, or given a new password.
#pragma once

#include <functional>

#include "keystore/key_store_contents.h"
#include "pkcs11_module/listed_profiles.h"

namespace crv::p11 {

struct ReadStore {
    KeyStoreContents contents;
    CertList trusted;
};

/// Reads the file under a shared lock; nothing is written, no lock file either. Refuses with CKR_PIN_INCORRECT,
/// CKR_DEVICE_REMOVED (no file), CKR_DEVICE_ERROR, kBusy. Additional trust points that cannot be read are left out and
/// told to the log.
[[nodiscard]] ReadStore readStore(const ListedProfile& profile, const SecretText& password);

/// Hands out the certificates of the profile's database, in DER; none where it has no database. Never waits, and writes
/// nothing: kBusy while another program changes it; CKR_DEVICE_ERROR, told to the log, for one that needs mending or
/// cannot be read.
void readDatabase(const ListedProfile& profile, const std::function<void(ByteView der)>& visit);

/// Enciphers the file under another password that follows the rules of passwords, else CKR_PIN_LEN_RANGE or
/// CKR_PIN_INVALID. CKR_PIN_INCORRECT for a wrong old one; CKR_TOKEN_WRITE_PROTECTED for a file that may not be written
/// or is another program's; otherwise as above.
void changePassword(const ListedProfile& profile, const SecretText& password, const SecretText& newPassword);

}  // namespace crv::p11
