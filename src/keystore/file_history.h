// Former security files, kept enciphered as they were in "<file>.d/" beside the file (folder 0700, files 0600).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "misc/bytes.h"

namespace crv {

/// "20271122T155901Z-3.p12": when it was replaced, in UTC, and a number that orders those of one second.
struct FormerFile {
    std::string name;
    std::string path;
    int64_t size = 0;  ///< octets
};

/// The folder of a security file, with its slash.
[[nodiscard]] std::string historyFolder(const std::string& securityFile);

/// The oldest first; empty when there is none. Other files in the folder are passed over.
[[nodiscard]] std::vector<FormerFile> historyOf(const std::string& securityFile);

/// Keeps the octets as the newest and deletes the oldest beyond `most` (1 or more). False when they cannot be kept; the
/// older ones then stay. The caller holds the lock on the file.
[[nodiscard]] bool keepFormer(const std::string& securityFile, ByteView octets, size_t most);

}  // namespace crv
