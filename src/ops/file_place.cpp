#include "ops/file_place.h"

#include <unistd.h>

#include <cerrno>

#include "misc/atomic_write.h"
#include "misc/file_ops.h"

namespace crv {

namespace {

/// What failed with the errno, for the file itself.
FilePlace placeOf(int error) {
    switch (error) {
        case ENOTDIR:
            return FilePlace::NoFolder;
        case EACCES:
        case EPERM:
        case EROFS:
            return FilePlace::NotPermitted;
        default:
            return FilePlace::Unreachable;
    }
}

PlaceLook lookAtFolder(const std::string& folder) {
    struct stat info {};
    if (fileOps().stat(folder, &info) != 0) return {errno == ENOENT ? FilePlace::NoFolder : placeOf(errno), folder};
    if (!S_ISDIR(info.st_mode)) return {FilePlace::NoFolder, folder};
    if (fileOps().access(folder, W_OK | X_OK) != 0) return {placeOf(errno), folder};
    return {FilePlace::Free, folder};
}

}  // namespace

PlaceLook lookAtPlace(const std::string& path, bool writing) {
    struct stat info {};
    if (fileOps().stat(path, &info) != 0) {
        if (errno == ENOENT) return lookAtFolder(folderOf(path));
        const FilePlace place = placeOf(errno);
        return {place, place == FilePlace::Unreachable ? path : folderOf(path)};
    }
    if (S_ISDIR(info.st_mode)) return {FilePlace::IsFolder, path};
    if (fileOps().access(path, writing ? R_OK | W_OK : R_OK) != 0) return {placeOf(errno), path};
    return {FilePlace::Usable, path};
}

}  // namespace crv
