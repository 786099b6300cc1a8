#include "keystore/stored_file.h"

#include <new>

#include "keystore/key_pairing.h"
#include "misc/memory_file.h"

namespace crv {

bool StoredFile::opensWith(const SecretText& password) const {
    if (octets.empty()) return false;
    MemoryFile file(octets);
    const KeyManagerResult checked = checkPasswdGF(file, password);
    // It was read before, so that it cannot be now is a lack of memory.
    if (checked != kKmOk && checked != kKmWrongPassword) throw std::bad_alloc();
    return checked == kKmOk;
}

KeyManagerResult mergeWithFile(const StoredFile* last, ByteView octets, const SecretText& password, bool withSecrets,
                               KeyStoreContents& contents, bool& foreign) {
    LoadedSecurityFile loaded;
    KeyStoreContents theirs;
    const bool opened = readSecurityFile(octets, password, withSecrets, loaded) == kKmOk &&
                        loaded.signedConfiguration.empty() && analyzeKeysAndCerts(loaded, true, theirs) == kKmOk;
    if (!opened) return kKmWriteFailed;
    foreign = loaded.foreign;
    contents = mergeContents(last ? last->contents : KeyStoreContents(), contents, theirs);
    return kKmOk;
}

}  // namespace crv
