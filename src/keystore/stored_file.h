// The security file as it was last read or written, and how to come to terms with what somebody else made of it since.
#pragma once

#include "keystore/security_file.h"

namespace crv {

/// Keeps the file enciphered: that tells whether a password is the file's without keeping the password.
struct StoredFile {
    Bytes octets;
    KeyStoreContents contents;

    [[nodiscard]] bool opensWith(const SecretText& password) const;
};

/// Merges into `contents` what the octets hold and `last` (null: nothing was read yet) did not. `password` is that of
/// the octets; `foreign` tells whether another program wrote them. kKmWriteFailed when they cannot be read with it.
[[nodiscard]] KeyManagerResult mergeWithFile(const StoredFile* last, ByteView octets, const SecretText& password,
                                             bool withSecrets, KeyStoreContents& contents, bool& foreign);

}  // namespace crv
