// Writing a whole file so that after a failure or a crash either the old or the new content is there.
#pragma once

#include <functional>
#include <optional>
#include <string>

#include "misc/bytes.h"

namespace crv {

/// Access rights of the written file.
enum class WriteMode {
    /// Keys, in one DER encoding that no sector of the old one survives in: 0600. Over an old file its owner, group,
    /// mode (without the rights of others, and 0600 where others had some and the group could not write: that was no
    /// choice), access control list and extended attributes; where a new file cannot have them, the old one is
    /// rewritten in place after its octets were put beside it ("<file>.crv-old"). They stay there when the process dies
    /// or the rewriting fails; the next writer puts them back.
    Secret,
    /// What leaves a profile for a file of the user's: 0600 and the process's own, whatever stood there before.
    Private,
    KeepOrSecret,  ///< mode and owner of the old file; 0600 when there was none
    KeepOrCommon   ///< mode and owner of the old file; 0644 when there was none
};

enum class WriteStep {
    None,
    Open,
    Write,
    Content  ///< the source of the content gave up
};

/// The step that failed and the errno it left; WriteStep::none is success.
struct [[nodiscard]] WriteResult {
    WriteStep failed = WriteStep::None;
    int error = 0;
    explicit operator bool() const { return failed == WriteStep::None; }
};

struct WriteOptions {
    WriteMode mode = WriteMode::KeepOrCommon;
    /// Where the folder admits no new file: rewrite the file itself. A failure then may leave a part.
    bool inPlaceFallback = false;
};

/// Writes a temporary file in the same folder, syncs it, renames it over the path and syncs the folder. A symbolic
/// link is followed first, and its target replaced; a target that is no regular file (pipe, device) is written
/// directly. A failed write removes the temporary file and leaves the old one. Never throws.
WriteResult writeFileAtomically(const std::string& path, ByteView content, const WriteOptions& options = {}) noexcept;

/// Takes the next piece of a content; false when it cannot be written, after which no more is wanted.
using ContentSink = std::function<bool(ByteView piece)>;
/// Gives a content piece by piece; false when it gives up.
using ContentSource = std::function<bool(const ContentSink& put)>;
/// The same for a content that nobody holds as a whole. What the source throws passes, and leaves the old file as a
/// failure does.
WriteResult writePiecesAtomically(const std::string& path, const ContentSource& source,
                                  const WriteOptions& options = {});

/// What a Secret file held before a rewriting in place that was cut off; nothing when it holds what it should. `now` is
/// what stands in it.
std::optional<Bytes> octetsBeforeCutOff(const std::string& path, ByteView now);

/// Deletes the temporary files that killed processes left in a folder: those of processes of this machine that are
/// gone, and old enough not to be another machine's.
void removeStaleTemporaries(const std::string& folder);

/// The folder part of a path with its slash ("./" when there is none).
std::string folderOf(const std::string& path);

/// Makes names created, renamed or deleted in the folder last. False when the system cannot.
bool syncFolder(const std::string& folder);

/// Gives a file the mode of another one, and its owner as far as that is permitted. False when it cannot.
bool copyRights(const std::string& from, const std::string& to);

}  // namespace crv
