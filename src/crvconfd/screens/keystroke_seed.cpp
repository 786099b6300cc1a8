#include "crvconfd/screens/keystroke_seed.h"

#include <algorithm>
#include <ctime>
#include <functional>

#include "crvconfd/session/context.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/toolkit.h"
#include "crypto/kc_hash.h"
#include "keystore/key_manager.h"
#include "misc/secret.h"

namespace crv {

namespace {

constexpr size_t kMostKeys = 256;
constexpr int kFewestKeys = 30;

using KeyBuffer = SecretArray<kMostKeys>;
using SeedBuffer = SecretArray<20>;

/// Gathers the keys; false when the user gives up.
bool gatherKeys(KeyBuffer& keys) {
    for (;;) {
        wipeMemory(keys.data(), keys.size());
        const int count = inputRandomText(
            kMessageRow, 0, "Naciśnij 30 losowych klawiszy aby zainicjowac generator pseudolosowy:", keys);
        if (count >= kFewestKeys) return true;
        errInfo(kMessageRow, "%s",
                count < 0 ? "Operacja przerwana przez użytkownika !!!"
                          : "Zainicjowanie generatora wymaga podania co najmniej 30 znaków tekstu !!!");
        if (count < 0) return false;
    }
}

/// SHA-1 of the current time XOR SHA-1 of the whole key buffer.
SeedBuffer seedOf(const KeyBuffer& keys) {
    const int64_t now = std::time(nullptr);
    SeedBuffer seed;
    hashInto(KcHashAlgo::Sha1, {reinterpret_cast<const uint8_t*>(&now), sizeof now}, seed);
    SeedBuffer other;
    hashInto(KcHashAlgo::Sha1, keys, other);
    std::transform(seed.begin(), seed.end(), other.begin(), seed.begin(), std::bit_xor<uint8_t>());
    return seed;
}

}  // namespace

bool seedFromKeystrokes(const char* noMemoryText) {
    KeyBuffer keys;
    if (!gatherKeys(keys)) return false;
    const KeyManagerResult result = keyManager->rbgInit(seedOf(keys));
    if (result == kKmOk) return true;
    const CodeText texts[] = {{kKmNoMemory, noMemoryText}};
    showCode(texts, result);
    return false;
}

}  // namespace crv
