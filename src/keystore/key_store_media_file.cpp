// Keys in a security file: on disk, or held as octets by a profile that names no path.
#include <algorithm>
#include <cerrno>
#include <new>

#include "config/configuration_manager.h"
#include "config/context_services.h"
#include "corvane/crvprofile.h"
#include "keystore/file_history.h"
#include "keystore/key_store_media.h"
#include "keystore/security_file.h"
#include "misc/atomic_write.h"
#include "misc/file_ops.h"

namespace crv {
namespace {

class FileMedia : public KeyStoreMedia {
  public:
    [[nodiscard]] bool hasSecurityFile() const override { return true; }
    KeyManagerResult login(const SecretText&) override { return kKmNotOnThisMedium; }
    KeyManagerResult gatherSeed(const std::optional<RbgSeed>& stored, SeedMaterial out, bool& filled) override {
        filled = stored.has_value();
        if (stored) std::ranges::copy(*stored, out.begin());
        return kKmOk;
    }
};

class DiskFileMedia final : public FileMedia {
  public:
    explicit DiskFileMedia(std::string path) : path_(std::move(path)) {}

    KeyManagerResult readFile(Bytes& octets, bool& missing) override {
        const KeyManagerResult read = readSecurityOctets(path_, octets, missing);
        if (read != kKmOk) return read;
        if (auto before = octetsBeforeCutOff(path_, octets)) {
            octets = std::move(*before);
            cutOff_ = true;
        }
        return kKmOk;
    }
    [[nodiscard]] bool wasCutOff() const override { return cutOff_; }
    KeyManagerResult writeFile(ByteView octets) override {
        const WriteResult written = writeFileAtomically(path_, octets, {.mode = WriteMode::Secret});
        if (!written && written.error == ENOMEM) throw std::bad_alloc();
        switch (written.failed) {
            case WriteStep::None:
                return kKmOk;
            case WriteStep::Open:
                return kKmOpenFailed;
            default:
                return kKmWriteFailed;
        }
    }

    HistoryFailure keepInHistory(ByteView octets, size_t most) override { return keepFormer(path_, octets, most); }
    HistoryFailure sealHistory() override { return crv::sealHistory(path_); }
    bool keepOriginal(ByteView octets) override {
        for (int copy = 1; copy <= kMostOriginals; ++copy) {
            const std::string name = path_ + ".orig" + (copy == 1 ? "" : "." + std::to_string(copy));
            struct stat info {};
            if (fileOps().lstat(name, &info) == 0) continue;
            if (errno != ENOENT) return false;
            return writeFileAtomically(name, octets, {.mode = WriteMode::Secret}).failed == WriteStep::None;
        }
        return false;
    }

  private:
    static constexpr int kMostOriginals = 99;

    std::string path_;
    bool cutOff_ = false;
};

/// The profile carries the file's octets as an attribute. A profile that has neither path nor octets has no store.
class HeldFileMedia final : public FileMedia {
  public:
    explicit HeldFileMedia(CrvProfile& profile) : profile_(profile) {}

    KeyManagerResult readFile(Bytes& octets, bool& missing) override {
        std::vector<char> held;
        missing = profile_.getAttr(CRVPROFILE_ATTR_SFT_FILE_BYTES, held) != kAttrOk || held.empty();
        octets.assign(held.begin(), held.end());
        return missing ? kKmOpenFailed : kKmOk;
    }
    KeyManagerResult writeFile(ByteView octets) override {
        Bytes held;
        bool missing = false;
        if (readFile(held, missing) != kKmOk) return kKmOpenFailed;
        const std::string_view text = asText(octets);
        const int set = profile_.setAttr(CRVPROFILE_ATTR_SFT_FILE_BYTES, text.data(), static_cast<long>(text.size()));
        return set == kAttrOk ? kKmOk : kKmWriteFailed;
    }

  private:
    CrvProfile& profile_;
};

}  // namespace

std::unique_ptr<KeyStoreMedia> makeFileMedia(ContextServices& context) {
    ConfigurationManager& configuration = context.configuration();
    const std::string path = configuration.securityFileName();
    if (path.empty()) return std::make_unique<HeldFileMedia>(*configuration.profile());
    return std::make_unique<DiskFileMedia>(path);
}

KeyManagerResult readSecurityOctets(const std::string& path, Bytes& octets, bool& missing) {
    // A name that leads to a pipe must not make the opening wait for a writer.
    const FileDescriptor fd(fileOps().open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    missing = !fd.valid() && errno == ENOENT;
    if (!fd.valid()) return kKmOpenFailed;
    struct stat info {};
    if (fileOps().fstat(fd.get(), &info) != 0 || !S_ISREG(info.st_mode)) return kKmReadFailed;
    octets.resize(std::min(static_cast<size_t>(info.st_size), kMaxSecurityFile));
    const ssize_t got = readUpTo(fd.get(), octets.data(), octets.size(), 0);
    if (got < 0) return kKmReadFailed;
    octets.resize(static_cast<size_t>(got));
    return kKmOk;
}

}  // namespace crv
