// A file read and written at positions: base of the table files.
#pragma once

#include <string>

#include "misc/bytes.h"
#include "misc/file_ops.h"

namespace crv {

/// What went wrong last with a file of a table.
enum class FileStatus : int { Ok = 0, IoFailure = 1, NoMemory = 2, NotOpen = 3, BadMagic = 4 };

/// An open file with positioned access. Not thread-safe. Every failing operation sets the status.
///
/// park() ends the use of the file but keeps its descriptor; opening the same path again takes it back when the name
/// still leads to the same file (device and inode). The length is looked up at opening and then followed, so the caller
/// holds the lock that keeps other writers away from open to close.
class File {
  public:
    File() = default;
    ~File() = default;
    File(const File&) = delete;
    File& operator=(const File&) = delete;

    /// Makes an empty file, over an existing one too unless open() is to be told otherwise (`how`), and opens it for
    /// reading and writing.
    [[nodiscard]] bool create(const std::string& path, mode_t mode = 0666, int how = O_TRUNC);
    /// Opens an existing file for reading and writing; only for reading when writing is not permitted.
    [[nodiscard]] bool open(const std::string& path);
    void park();
    void close();

    [[nodiscard]] bool isOpen() const { return inUse_; }
    /// True when the last open() took the parked descriptor back: the file is the one that was open before.
    [[nodiscard]] bool reused() const { return reused_; }
    [[nodiscard]] int64_t length() const { return length_; }
    [[nodiscard]] const std::string& path() const { return path_; }

    /// Reads exactly size octets; fewer are a failure.
    [[nodiscard]] bool readAt(int64_t position, void* buffer, size_t size);
    /// Reads up to size octets; -1 on failure.
    [[nodiscard]] ssize_t readSome(int64_t position, void* buffer, size_t size);
    [[nodiscard]] bool writeAt(int64_t position, ByteView data);
    /// Writes behind the end; answers the old end, or -1 after taking back what was written of it.
    [[nodiscard]] int64_t append(ByteView data);
    /// True after an append that failed and left a part behind the end, which could not be taken back.
    [[nodiscard]] bool tornTail() const { return tornTail_; }
    /// Appends n zero octets; answers the old end of the file or -1.
    [[nodiscard]] int64_t allocate(size_t n);
    [[nodiscard]] bool truncate(int64_t length);
    [[nodiscard]] bool sync();

    [[nodiscard]] FileStatus status() const { return status_; }
    void setStatus(FileStatus status) { status_ = status; }

  private:
    bool fail(FileStatus status);
    bool takeParked(const std::string& path);

    FileDescriptor fd_;
    std::string path_;
    FileId id_;
    int64_t length_ = 0;
    bool inUse_ = false;
    bool reused_ = false;
    bool writable_ = false;
    bool tornTail_ = false;
    FileStatus status_ = FileStatus::NotOpen;
};

}  // namespace crv
