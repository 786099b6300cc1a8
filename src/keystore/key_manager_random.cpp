// What the key manager's generators are seeded from, and who draws from them.
#include "keystore/key_manager.h"
#include "keystore/key_store_media.h"

namespace crv {

KeyManagerResult KeyManager::initRBGFromTheSeed() {
    demand({State::Creating, State::Unseeded, State::Open});
    if (media().randomSource() == RandomSource::Device) return kKmOk;
    LogInMaterial material;
    bool filled = false;
    const KeyManagerResult gathered = media().gatherSeed(contents_.seed, material.ofMedium(), filled);
    if (gathered != kKmOk) return gathered;
    return material.complete(filled) ? rbgInit(material.octets()) : kKmNoSeed;
}

KeyManagerResult KeyManager::rbgInit(ByteView material) {
    demand({State::Creating, State::Unseeded, State::Open});
    if (media().randomSource() != RandomSource::Device) contents_.seed = generators_.seed(material);
    return kKmOk;
}

bool KeyManager::generatorsReady() const {
    return state_ != State::Closed && (media().randomSource() == RandomSource::Device || generators_.seeded());
}

KeyManagerResult KeyManager::rbgFill(std::span<uint8_t> out) {
    if (!generatorsReady()) return kKmNoSeed;
    const RandomSource source = media().randomSource();
    if (source == RandomSource::Device) return media().deviceRandom(out);
    if (source == RandomSource::Nobody) return kKmOk;
    Generators::Drawn drawn = generators_.fill(out);
    if (drawn == Generators::Drawn::ReseedRequired) {
        if (const KeyManagerResult result = initRBGFromTheSeed(); result != kKmOk) return result;
        drawn = generators_.fill(out);
    }
    return drawn == Generators::Drawn::Done ? kKmOk : kKmNoSeed;
}

}  // namespace crv
