// The prompt for a file name, and the look at what a file would be written over.
#pragma once

#include <optional>
#include <string>

#include "misc/atomic_write.h"

namespace crv {

struct TypedFile {
    std::string typed;  ///< as typed, for messages
    std::string path;   ///< with "~/" expanded
};

/// The octets of the longest name.
constexpr size_t kLongestFileName = 1023;

/// Asks for a name on the message row; without spaces when word is set. Nothing after Escape.
[[nodiscard]] std::optional<TypedFile> askForFile(const char* prompt, bool word = false,
                                                  size_t longest = kLongestFileName);

/// Whether exports, saved certificates and requests may go there: what belongs to a profile or holds keys is refused
/// with the reason, and any other file is replaced only when the user says so.
[[nodiscard]] bool mayWrite(const TypedFile& file);

/// Says why a file was not written.
void showWriteFailure(const WriteResult& result, const std::string& name);

}  // namespace crv
