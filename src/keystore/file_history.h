// Former security files, kept enciphered as they were in "<file>.d/" beside the file (folder 0700, files 0600).
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "misc/bytes.h"

namespace crv {

/// "20271122T155901Z-3.p12": when it was replaced, in UTC, and a number that orders those of one second;
/// "-kept" stands behind the number of one that is kept until the history is cleared.
struct FormerFile {
    std::string name;
    std::string path;
    int64_t size = 0;  ///< octets
};

/// What kept a file from being kept; nothing failed when the path is empty.
struct HistoryFailure {
    std::string path;
    int error = 0;  ///< errno

    [[nodiscard]] bool empty() const { return path.empty(); }
    /// "path: reason" for programs without words of their own for the reason.
    [[nodiscard]] std::string text() const;
};

/// The folder of a security file, with its slash.
[[nodiscard]] std::string historyFolder(const std::string& securityFile);

/// The oldest first; empty when there is none, and when the folder cannot be read, which `failure` tells. Other files
/// in the folder are passed over.
[[nodiscard]] std::vector<FormerFile> historyOf(const std::string& securityFile, HistoryFailure* failure = nullptr);

/// Keeps the octets as the newest and deletes the oldest beyond `most` (1 or more); without a number they are kept
/// until the history is cleared and nothing is deleted. Octets that the newest has already are not kept again: repeated
/// saves that fail do not push the others out. When they cannot be kept the older ones stay, and the
/// answer is not empty. The caller holds the lock on the file.
[[nodiscard]] HistoryFailure keepFormer(const std::string& securityFile, ByteView octets, std::optional<size_t> most);

/// Keeps all that are there until the history is cleared: the file that they belonged to is lost, and another one
/// begins. Answers as keepFormer.
[[nodiscard]] HistoryFailure sealHistory(const std::string& securityFile);

/// Deletes all of them. False with errno when one stays. The caller holds the lock on the file.
[[nodiscard]] bool clearHistory(const std::string& securityFile);

}  // namespace crv
