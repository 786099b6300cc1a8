// Small files read and written as a whole, and folders made along a path.
#pragma once

#include <string>

#include "misc/bytes.h"

namespace crv {

/// Files beyond this are not read as a whole.
constexpr size_t kMaxWholeFile = size_t{1} << 30;

/// The content of a file. Throws StoreError: "readFile(): Blad otwarcia bliku: " and the path, or
/// "readFile: blad odczytu pliku" (also for a file longer than the limit).
Bytes readFile(const std::string& path, size_t limit = kMaxWholeFile);

/// What a descriptor still gives, behind what was read from it before. Throws "readFile: blad odczytu pliku".
Bytes readRest(int fd, Bytes begun, size_t limit = kMaxWholeFile);

/// Replaces the content of a file atomically (mode and owner of the old file kept, 0644 for a new one). Throws
/// StoreError: "writeFile: blad otwarcia pliku: " and the path, or "writeFile: blad zapisy pliku".
void writeFile(const std::string& path, ByteView content);

/// Makes `to` a copy of the file `from`, whatever its length; an old file `to` is overwritten in place. False with
/// errno on failure.
[[nodiscard]] bool copyFile(const std::string& from, const std::string& to);

/// True when the name leads to something.
bool fileExists(const std::string& path);

/// Makes the folder and every missing one above it. False with errno when one cannot be made.
[[nodiscard]] bool createDirectoryPath(const std::string& path, mode_t mode = 0777);

}  // namespace crv
