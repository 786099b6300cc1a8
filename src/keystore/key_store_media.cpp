#include "keystore/key_store_media.h"

#include "config/configuration_manager.h"
#include "config/context_services.h"
#include "misc/exceptions.h"

namespace crv {
namespace {

struct MediaRow {
    KeyMedium medium;
    std::unique_ptr<KeyStoreMedia> (*make)(ContextServices& context);
};

constexpr MediaRow kMedia[] = {
    {KeyMedium::File, makeFileMedia},         {KeyMedium::Tarvo, makeTarvoMedia},   {KeyMedium::Token, makeTokenMedia},
    {KeyMedium::Provider, makeProviderMedia}, {KeyMedium::Memory, makeMemoryMedia},
};

/// Nothing lasting: a profile in memory.
class MemoryMedia : public KeyStoreMedia {
  public:
    [[nodiscard]] bool needsPin() const override { return false; }
    KeyManagerResult login(const SecretText&) override { return kKmOk; }
};

/// Keys behind a provider, which has random generators of its own.
class ProviderMedia final : public MemoryMedia {
  public:
    [[nodiscard]] RandomSource randomSource() const override { return RandomSource::Nobody; }
};

}  // namespace

std::unique_ptr<KeyStoreMedia> KeyStoreMedia::create(ContextServices& context) {
    const KeyMedium medium = context.configuration().keyMedium();
    for (const MediaRow& row : kMedia)
        if (row.medium == medium) return row.make(context);
    VTEST(0, "src/src/keymgr");
    return nullptr;
}

std::unique_ptr<KeyStoreMedia> makeProviderMedia(ContextServices&) {
    return std::make_unique<ProviderMedia>();
}

std::unique_ptr<KeyStoreMedia> makeMemoryMedia(ContextServices&) {
    return std::make_unique<MemoryMedia>();
}

KeyManagerResult KeyStoreMedia::readFile(Bytes&, bool&) {
    VTEST(hasSecurityFile(), "src/src/keymgr");
    return kKmNotOnThisMedium;
}

KeyManagerResult KeyStoreMedia::writeFile(ByteView) {
    VTEST(hasSecurityFile(), "src/src/keymgr");
    return kKmNotOnThisMedium;
}

bool KeyStoreMedia::keepOriginal(ByteView) {
    return true;
}

HistoryFailure KeyStoreMedia::keepInHistory(ByteView, size_t) {
    return {};
}

HistoryFailure KeyStoreMedia::sealHistory() {
    return {};
}

KeyManagerResult KeyStoreMedia::readConfiguration(const RecordCheck&, Bytes& record) {
    record.clear();
    return kKmOk;
}

KeyManagerResult KeyStoreMedia::writeConfiguration(ByteView) {
    return kKmOk;
}

KeyManagerResult KeyStoreMedia::generateRsa(const KeyOrder&, SignerPtr&) {
    return kKmNotOnThisMedium;
}

KeyManagerResult KeyStoreMedia::changePin(const SecretText&, const SecretText&) {
    return kKmNotOnThisMedium;
}

KeyManagerResult KeyStoreMedia::gatherSeed(const std::optional<RbgSeed>&, SeedMaterial, bool& filled) {
    filled = false;
    return kKmOk;
}

KeyManagerResult KeyStoreMedia::deviceRandom(std::span<uint8_t>) {
    VTEST(randomSource() == RandomSource::Device, "src/src/keymgr");
    return kKmDeviceError;
}

}  // namespace crv
