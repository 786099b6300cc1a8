// The media on which a profile's keys can live. All differences between them stand behind this interface.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "keystore/file_history.h"
#include "keystore/key_manager_result.h"
#include "keystore/key_store_contents.h"
#include "misc/bytes.h"
#include "misc/secret.h"

namespace crv {

class ContextServices;
enum class PinSlot : long;

/// Where random octets of a profile come from.
enum class RandomSource {
    Generators,  ///< the key manager's, seeded at log-in
    Device,      ///< the device's own
    Nobody,      ///< seeded, but never asked: requests leave the buffer as it is
};

/// Octets of seed material that a medium can give.
using SeedMaterial = std::span<uint8_t, 32>;

/// An RSA key to be made.
struct KeyOrder {
    KeyType use;
    unsigned bits;
    uint64_t exponent;
    std::function<bool()> progress;  ///< called again and again; its answer stops nothing
};

/// What a stored record is to be taken for: its content, or why not.
using RecordCheck = std::function<KeyManagerResult(ByteView stored, Bytes& content)>;

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

    /// Keeps the octets of the file among its former ones, of which `most` stay; answers as keepFormer.
    [[nodiscard]] virtual HistoryFailure keepInHistory(ByteView octets, size_t most);

    /// Keeps all former files for good, before a new file takes the place of a lost one; answers as keepFormer.
    [[nodiscard]] virtual HistoryFailure sealHistory();

    /// Keeps the octets of a file that another program wrote beside it, before it is replaced for the first time.
    [[nodiscard]] virtual bool keepOriginal(ByteView octets);

    /// Device start.
    [[nodiscard]] virtual KeyManagerResult start() { return kKmOk; }
    /// What can be said before a PIN is asked for: that there is nothing to log in to, or that the PIN is locked. Tells
    /// the user how many tries are left. kKmCancelled when the user rather gives none.
    [[nodiscard]] virtual KeyManagerResult announce() { return kKmOk; }
    /// Whether log-in wants the PIN of a slot typed.
    [[nodiscard]] virtual bool wantsTypedPin(PinSlot) const { return true; }
    /// The label of the token that a slot's PIN is for; empty without one.
    [[nodiscard]] virtual std::string tokenLabel(PinSlot) const { return {}; }
    /// What the medium says of itself: names for the user with their values.
    [[nodiscard]] virtual std::vector<std::pair<std::string, std::string>> details() { return {}; }
    /// Until it is released the medium stays open; with `forChange` nobody else saves meanwhile. Null when that lock
    /// cannot be had.
    [[nodiscard]] virtual std::shared_ptr<void> together(bool forChange) {
        static_cast<void>(forChange);
        return std::make_shared<char>();
    }
    /// Log-in to a medium without a security file.
    [[nodiscard]] virtual KeyManagerResult login(const SecretText& pin) = 0;
    virtual void logout() noexcept {}
    /// Keys and certificates on a medium without a security file, after log-in.
    [[nodiscard]] virtual KeyManagerResult readKeys(KeyStoreContents&) { return kKmOk; }
    /// What the medium keeps of the user's certificates: adds those that it lacks, and removes those that it gave with
    /// readKeys and that the list lacks.
    [[nodiscard]] virtual KeyManagerResult writeCertificates(const CertList&) { return kKmOk; }
    /// The configuration record's encoding on a medium without a security file; empty when it has none. What a medium
    /// keeps that anybody could have put there has to pass the check.
    [[nodiscard]] virtual KeyManagerResult readConfiguration(const RecordCheck& check, Bytes& record);
    [[nodiscard]] virtual KeyManagerResult writeConfiguration(ByteView record);
    /// Whether the record is to be signed by the user's key before it is written.
    [[nodiscard]] virtual bool signsConfiguration() const { return false; }
    /// Nothing for a medium that takes keys made here.
    [[nodiscard]] virtual std::optional<KeyLimits> keyLimits(KeyType) { return std::nullopt; }
    /// Makes a key inside the medium; it takes minutes and cannot be stopped. kKmGenerationFailed.
    [[nodiscard]] virtual KeyManagerResult generateRsa(const KeyOrder& order, SignerPtr& key);
    [[nodiscard]] virtual KeyManagerResult changePin(const SecretText& oldPin, const SecretText& newPin);

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
[[nodiscard]] KeyManagerResult readSecurityOctets(const std::string& path, Bytes& octets, bool& missing);

}  // namespace crv
