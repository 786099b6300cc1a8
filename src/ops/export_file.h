// Writing what a user asked to have in a file.
#pragma once

#include <string>

#include "misc/atomic_write.h"
#include "misc/secret.h"

namespace crv {

class CrvProfile;

/// Writes a file in one step; "-" is standard output. A file that is there is replaced only with `force`, and never one
/// that a profile in the list or its environment owns or that holds keys. `write` false looks only. Throws OpError
/// (FileExists, FileProtected, FileUnwritable).
struct ExportTarget {
    std::string path;
    std::string list;  ///< a profile list to spare, too
    bool force = false;
    bool write = true;
    /// Whether nothing of a failed write may be seen: no rewriting in place, no pipe, no standard output (WrongCall).
    bool wholeOrNothing = false;
};
void exportFile(const ExportTarget& target, const CrvProfile& profile, ByteView content,
                WriteMode mode = WriteMode::KeepOrCommon);
/// The same piece by piece; what the source throws passes.
void exportPieces(const ExportTarget& target, const CrvProfile& profile, const ContentSource& source,
                  WriteMode mode = WriteMode::KeepOrCommon);

/// The octets of a file; "-" is standard input. Throws OpError (FileMissing, FileUnreadable).
Bytes importFile(const std::string& path);
/// The same of a file that may hold a private key as it is.
SecretBytes importSecretFile(const std::string& path);

}  // namespace crv
