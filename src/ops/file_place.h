// Whether a file of a profile can be used where it is said to be, found out before anybody types a password for it.
#pragma once

#include <string>

namespace crv {

enum class FilePlace {
    Usable,        ///< a file that may be read, or a device or pipe
    Free,          ///< nothing is there, and a file may be made
    NoFolder,      ///< the folder is missing, or is none
    NotPermitted,  ///< the file may not be read, or none be made in the folder
    IsFolder,
    Unreachable  ///< anything else: links in a circle, names too long, a failing disk
};

struct PlaceLook {
    FilePlace place = FilePlace::Usable;
    std::string where;  ///< the file or folder that is in the way

    [[nodiscard]] bool good() const { return place == FilePlace::Usable || place == FilePlace::Free; }
};

/// Looks at a path without "~/". With writing set a file that is there must be writable, too.
[[nodiscard]] PlaceLook lookAtPlace(const std::string& path, bool writing = false);

}  // namespace crv
