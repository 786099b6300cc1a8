// What the sources of the key manager share among themselves.
#pragma once

#include "keystore/key_manager.h"
#include "keystore/key_store_media.h"

namespace crv {

/// Where the key manager's assertions say that they failed.
inline constexpr const char* kKeyManagerPlace = "src/src/keymgr";

/// The security file as it was last read or written: the ancestor for a merge.
struct KeyManager::FileState {
    FileState(ByteView octets, KeyStoreContents held, SecretText text)
        : digest(hashOf(KcHashAlgo::Sha256, octets)), contents(std::move(held)), password(std::move(text)) {}

    Bytes digest;
    KeyStoreContents contents;
    SecretText password;
};

/// The configuration record of an encoding, with its lists of certificates checked; null when it is none.
[[nodiscard]] std::shared_ptr<const CRVCfgFile> decodeRecord(ByteView encoding);

/// Option 13: whether a key may be certified under two names.
[[nodiscard]] bool allowsRecertification(const CRVCfgFile& record);

}  // namespace crv
