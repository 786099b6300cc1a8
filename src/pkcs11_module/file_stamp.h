// Whether a file is still the one that was read.
#pragma once

#include <string>

#include "misc/file_ops.h"

namespace crv::p11 {

/// What changes when a file is replaced or rewritten.
struct FileStamp {
    bool there = false;
    FileId id = {};
    int64_t size = 0;
    int64_t written[2] = {};  ///< seconds, nanoseconds
    int64_t changed[2] = {};

    bool operator==(const FileStamp&) const = default;

    static FileStamp of(const std::string& path) {
        struct stat info {};
        if (fileOps().stat(path, &info) != 0) return {};
        return {true,
                FileId::of(info),
                info.st_size,
                {info.st_mtim.tv_sec, info.st_mtim.tv_nsec},
                {info.st_ctim.tv_sec, info.st_ctim.tv_nsec}};
    }
};

}  // namespace crv::p11
