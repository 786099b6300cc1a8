#include "misc/whole_file.h"

#include <array>
#include <cerrno>

#include "misc/atomic_write.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"

namespace crv {

Bytes readFile(const std::string& path, size_t limit) {
    const FileDescriptor fd(fileOps().open(path, O_RDONLY));
    if (!fd.valid()) throw StoreError(StoreCause::NotOpened, "readFile(): Blad otwarcia bliku: " + path);
    return readRest(fd.get(), {}, limit);
}

Bytes readRest(int fd, Bytes content, size_t limit) {
    std::array<uint8_t, 65536> piece{};
    for (;;) {
        const ssize_t n = readUpTo(fd, piece.data(), piece.size(), -1);
        if (n < 0 || content.size() + static_cast<size_t>(n) > limit) {
            throw StoreError(StoreCause::Failed, "readFile: blad odczytu pliku");
        }
        if (n == 0) return content;
        content.insert(content.end(), piece.begin(), piece.begin() + n);
    }
}

void writeFile(const std::string& path, ByteView content) {
    const WriteResult result = writeFileAtomically(path, content);
    if (result.failed == WriteStep::Open)
        throw StoreError(StoreCause::NotOpened, "writeFile: blad otwarcia pliku: " + path);
    if (!result) throw StoreError(StoreCause::Failed, "writeFile: blad zapisy pliku");
}

bool copyFile(const std::string& from, const std::string& to) {
    const FileDescriptor source(fileOps().open(from, O_RDONLY));
    if (!source.valid()) return false;
    const FileDescriptor target(fileOps().open(to, O_WRONLY | O_CREAT | O_TRUNC, 0666));
    if (!target.valid()) return false;
    std::array<uint8_t, 65536> piece{};
    for (int64_t at = 0;;) {
        const ssize_t n = readUpTo(source.get(), piece.data(), piece.size(), at);
        if (n <= 0) return n == 0;
        if (!writeAll(target.get(), piece.data(), static_cast<size_t>(n), at)) return false;
        at += n;
    }
}

bool fileExists(const std::string& path) {
    struct stat info {};
    return fileOps().stat(path, &info) == 0;
}

bool createDirectoryPath(const std::string& path, mode_t mode) {
    for (size_t end = path.find('/', 1); !path.empty(); end = path.find('/', end + 1)) {
        const std::string folder = path.substr(0, end);
        struct stat info {};
        if (fileOps().mkdir(folder, mode) != 0) {
            const int why = errno;
            if (fileOps().stat(folder, &info) != 0 || !S_ISDIR(info.st_mode)) return errno = why, false;
        }
        if (end == std::string::npos) return true;
    }
    errno = ENOENT;
    return false;
}

}  // namespace crv
