// The media on which a profile's keys can live. All differences between them stand behind this interface.
#pragma once

#include <memory>
#include <span>

#include "keystore/key_manager_result.h"
#include "keystore/key_store_contents.h"
#include "misc/bytes.h"
#include "misc/secret.h"

namespace crv {

class ContextServices;

/// Where random octets of a profile come from.
enum class RandomSource {
    Generators,  ///< the key manager's, seeded at log-in
    Device,      ///< the device's own
    Nobody,      ///< seeded, but never asked: requests leave the buffer as it is
};

/// Octets of seed material that a medium can give.
using SeedMaterial = std::span<uint8_t, 32>;

/// One medium, bound to the profile that was current when it was made.
class KeyStoreMedia {
  public:
    /// The strategy for the current profile's key medium; throws VtestException when there is no profile.
    static std::unique_ptr<KeyStoreMedia> create(ContextServices& context);

    virtual ~KeyStoreMedia() = default;
    KeyStoreMedia(const KeyStoreMedia&) = delete;
    KeyStoreMedia& operator=(const KeyStoreMedia&) = delete;

    /// Whether the keys stand in a security file, which readFile and writeFile then carry.
    [[nodiscard]] virtual bool hasSecurityFile() const { return false; }
    /// Whether log-in takes a password or PIN.
    [[nodiscard]] virtual bool needsPin() const { return true; }
    [[nodiscard]] virtual RandomSource randomSource() const { return RandomSource::Generators; }

    /// The security file's octets. kKmOpenFailed, kKmReadFailed; `missing` tells that there is none yet.
    [[nodiscard]] virtual KeyManagerResult readFile(Bytes& octets, bool& missing);
    /// Whether readFile met a write that was cut off, and gave what stood there before.
    [[nodiscard]] virtual bool wasCutOff() const { return false; }
    /// Replaces it. kKmOpenFailed, kKmWriteFailed.
    [[nodiscard]] virtual KeyManagerResult writeFile(ByteView octets);

    /// Keeps the octets of a file that another program wrote beside it, before it is replaced for the first time.
    [[nodiscard]] virtual bool keepOriginal(ByteView octets);

    /// Device start.
    [[nodiscard]] virtual KeyManagerResult start() { return kKmOk; }
    /// Log-in to a medium without a security file.
    [[nodiscard]] virtual KeyManagerResult login(const SecretText& pin) = 0;
    virtual void logout() noexcept {}
    /// The configuration record's encoding on a medium without a security file; empty when it has none.
    [[nodiscard]] virtual KeyManagerResult readConfiguration(Bytes& record);
    [[nodiscard]] virtual KeyManagerResult writeConfiguration(ByteView record);

    /// Puts the medium's share of the seed material into the zeroed octets; `filled` tells whether it has one.
    [[nodiscard]] virtual KeyManagerResult gatherSeed(const std::optional<RbgSeed>& stored, SeedMaterial out,
                                                      bool& filled);
    /// Fills from the device; only for RandomSource::Device.
    [[nodiscard]] virtual KeyManagerResult deviceRandom(std::span<uint8_t> out);

  protected:
    KeyStoreMedia() = default;
};

/// The strategies; each in a file of its own. `create` chooses.
std::unique_ptr<KeyStoreMedia> makeFileMedia(ContextServices& context);
std::unique_ptr<KeyStoreMedia> makeTarvoMedia(ContextServices& context);
std::unique_ptr<KeyStoreMedia> makeTokenMedia(ContextServices& context);
std::unique_ptr<KeyStoreMedia> makeProviderMedia(ContextServices& context);
std::unique_ptr<KeyStoreMedia> makeMemoryMedia(ContextServices& context);

/// The content of a regular file of at most `limit` octets; a longer one is cut behind that. kKmOpenFailed with
/// `missing` when there is no such file; kKmReadFailed also for what is no regular file.
[[nodiscard]] KeyManagerResult readKeyFile(const std::string& path, Bytes& octets, bool& missing);

}  // namespace crv
