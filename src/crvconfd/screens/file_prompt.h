// The prompt for a file name, and the files that the console never writes over.
#pragma once

#include <optional>
#include <string>

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

/// Whether a name leads to what the current profile lives in: its security file and trust-point store, a profile list,
/// a lock, anything in the folder of its database. Exports, saved certificates and requests never go there.
[[nodiscard]] bool isProfileFile(const std::string& path);

}  // namespace crv
