#include "support/power_cut_file_ops.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>

#include "support/temp_dir.h"

namespace crv::test {

std::map<std::string, PowerCutFileOps::Synced> PowerCutFileOps::names() {
    std::map<std::string, Synced> found;
    std::vector<std::string> all;
    static_cast<void>(FileOps::list(folder_, all));
    for (const std::string& name : all) {
        struct stat info {};
        if (::stat((folder_ + name).c_str(), &info) == 0) found[name] = files_[info.st_ino];
    }
    return found;
}

int PowerCutFileOps::open(const std::string& path, int flags, mode_t mode) {
    struct stat info {};
    const bool fresh = (flags & O_CREAT) != 0 && ::stat(path.c_str(), &info) != 0;
    const int fd = FaultyFileOps::open(path, flags, mode);
    if (fd >= 0 && fresh && FileOps::fstat(fd, &info) == 0) files_[info.st_ino] = std::make_shared<std::string>();
    return fd;
}

int PowerCutFileOps::fsync(int fd) {
    if (changesLeft == 0) return errno = EIO, -1;
    if (changesLeft > 0) --changesLeft;
    struct stat info {};
    if (FileOps::fstat(fd, &info) != 0) return -1;
    if (S_ISDIR(info.st_mode)) {
        syncedNames_ = names();
    } else if (Synced& octets = files_[info.st_ino]; octets) {
        *octets = readFile("/proc/self/fd/" + std::to_string(fd));  // it may be open for writing only
    }
    return 0;
}

void PowerCutFileOps::cut(std::mt19937_64& random) {
    const auto now = names();
    const auto& left = random() % 2 == 0 ? now : syncedNames_;
    std::map<std::string, std::string> octets;
    for (const auto& [name, file] : left) {
        if (!file) continue;
        octets[name] = *file;
        for (const auto& [written, same] : now) {
            if (same == file && random() % 2 == 0) octets[name] = readFile(folder_ + written);
        }
    }
    for (const auto& [name, file] : now) ::unlink((folder_ + name).c_str());
    for (const auto& [name, content] : octets) writeFile(folder_ + name, content);
}

}  // namespace crv::test
