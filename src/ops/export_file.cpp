#include "ops/export_file.h"

#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <filesystem>

#include "misc/file_ops.h"
#include "misc/path.h"
#include "misc/whole_file.h"
#include "ops/file_guard.h"
#include "ops/messages.h"
#include "ops/op_error.h"

namespace crv {

namespace {

void putOut(const ContentSource& source) {
    const auto put = [](ByteView piece) {
        if (!writeAll(STDOUT_FILENO, piece.data(), piece.size(), -1))
            throw OpError(OpFault::OutputFailed, std::strerror(errno));
        return true;
    };
    (void)source(put);
}

void demandPlainFile(const std::string& path) {
    std::error_code none;
    const std::string name = expandHome(path);
    if (path == "-" || (std::filesystem::exists(name, none) && !std::filesystem::is_regular_file(name, none)))
        throw OpError(OpFault::WrongCall, path);
}

/// Everything that a file gives. A device may have no end.
template <class Octets>
Octets octetsOf(const std::string& path) {
    Octets content;
    readPieces(path, [&](ByteView piece) {
        if (content.size() + piece.size() > kMaxWholeFile)
            throw OpError(OpFault::FileUnreadable, path + ": " + std::strerror(EFBIG));
        content.insert(content.end(), piece.begin(), piece.end());
    });
    return content;
}

}  // namespace

void exportFile(const ExportTarget& target, const CrvProfile& profile, ByteView content, WriteMode mode) {
    exportPieces(
        target, profile, [content](const ContentSink& put) { return put(content); }, mode);
}

void exportPieces(const ExportTarget& target, const CrvProfile& profile, const ContentSource& source, WriteMode mode) {
    if (target.wholeOrNothing) demandPlainFile(target.path);
    if (target.path == "-") {
        if (target.write) putOut(source);
        return;
    }
    FileGuard guard({target.list});
    guard.add(profile);
    const FileVerdict verdict = guard.judge(target.path);
    if (verdict.claim != FileClaim::None) throw OpError(OpFault::FileProtected, target.path);
    if (verdict.exists && !target.force) throw OpError(OpFault::FileExists, target.path);
    if (!target.write) return;
    const WriteResult written = writePiecesAtomically(expandHome(target.path), source, {mode, !target.wholeOrNothing});
    if (!written) throw OpError(OpFault::FileUnwritable, target.path + ": " + std::strerror(written.error));
}

Bytes importFile(const std::string& path) {
    return octetsOf<Bytes>(path);
}

SecretBytes importSecretFile(const std::string& path) {
    return octetsOf<SecretBytes>(path);
}

}  // namespace crv
