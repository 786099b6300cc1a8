// Keys in a Tarvo device: its own random generator, and the configuration record kept inside it.
#include <algorithm>

#include "config/configuration_manager.h"
#include "config/context_services.h"
#include "corvane/crvprofile.h"
#include "keystore/key_store_media.h"
#include "keystore/tarvo_library.h"
#include "misc/logger.h"
#include "misc/path.h"

namespace crv {
namespace {

constexpr unsigned kMaxConfiguration = 16u << 20;

class TarvoMedia final : public KeyStoreMedia {
  public:
    explicit TarvoMedia(ContextServices& context) : context_(context) {
        const CrvProfile& profile = *context.configuration().profile();
        std::string path;
        profile.getAttr(CRVPROFILE_ATTR_TRV_LIB_PATH, path);
        path_ = expandHome(path);
        if (profile.getAttr(CRVPROFILE_ATTR_T23_CARD_ID, cardId_) != kAttrOk) cardId_.clear();
        profile.getAttr(CRVPROFILE_ATTR_T23_TYPE, type_);
    }
    ~TarvoMedia() override { TarvoMedia::logout(); }

    [[nodiscard]] RandomSource randomSource() const override { return RandomSource::Device; }

    KeyManagerResult start() override {
        std::string diagnostic;
        const KeyManagerResult loaded = library_.load(path_, diagnostic);
        if (loaded != kKmOk) {
            context_.setDiagnosticText(diagnostic);
            return loaded;
        }
        const auto* id = cardId_.empty() ? nullptr : reinterpret_cast<const unsigned char*>(cardId_.data());
        return result(library_->DtGetStatus(id, type_), kKmDeviceNotFound);
    }

    KeyManagerResult login(const SecretText& pin) override {
        if (const KeyManagerResult started = start(); started != kKmOk) return started;
        const auto length = static_cast<unsigned>(pin.size());
        const KeyManagerResult entered = result(library_->DtLogin(pin.c_str(), length), kKmWrongPassword);
        loggedIn_ = entered == kKmOk;
        return entered;
    }

    void logout() noexcept override {
        if (loggedIn_) library_->DtLogout();
        loggedIn_ = false;
    }

    KeyManagerResult readConfiguration(const RecordCheck&, Bytes& record) override {
        record.clear();
        unsigned length = 0;
        const int answer = library_->DtReadConfig(nullptr, &length);
        if (answer == kDtNo) return kKmOk;
        if (answer == kDtOk && length > kMaxConfiguration) return kKmBadFormat;
        if (answer != kDtOk) return result(answer, kKmDeviceError);
        record.resize(length);
        const KeyManagerResult read = result(library_->DtReadConfig(record.data(), &length), kKmDeviceError);
        // It may have become shorter between the two calls.
        record.resize(std::min<size_t>(length, record.size()));
        return read;
    }

    KeyManagerResult writeConfiguration(ByteView record) override {
        if (!library_.loaded()) return kKmDeviceLibrary;
        const auto length = static_cast<unsigned>(record.size());
        return result(library_->DtWriteConfig(record.data(), length), kKmDeviceError);
    }

    KeyManagerResult deviceRandom(std::span<uint8_t> out) override {
        if (library_.loaded() && library_->DtGetRBGSamples(out.data(), static_cast<unsigned>(out.size())) == kDtOk)
            return kKmOk;
        logLine(LogLevel::Error, "KeyManager::rbgFill: DtGetRBGSamples nie powiodlo sie");
        noteLastError();
        return kKmDeviceError;
    }

  private:
    KeyManagerResult result(int answer, KeyManagerResult onNo) {
        if (answer == kDtOk) return kKmOk;
        noteLastError();
        if (answer == kDtNo) return onNo;
        return answer == kDtBlocked ? kKmCardBlocked : kKmDeviceError;
    }
    void noteLastError() {
        if (library_.loaded()) context_.setLastDeviceError(library_->DtGetLastError());
    }

    ContextServices& context_;
    TarvoLibrary library_;
    std::string path_;
    std::string cardId_;
    long type_ = 0;
    bool loggedIn_ = false;
};

}  // namespace

std::unique_ptr<KeyStoreMedia> makeTarvoMedia(ContextServices& context) {
    return std::make_unique<TarvoMedia>(context);
}

}  // namespace crv
