// A stream over a file on disk.
#pragma once

#include <string>

#include "misc/generic_file.h"

namespace crv {

/// Reads or writes one file sequentially, with a buffer. A file that is written is replaced at once, so use it for new
/// files and pipes; what must not be lost on a failure is encoded in memory and written atomically instead.
class DiskFile final : public BufferedFile {
  public:
    enum class Mode { Read, Write };

    /// Opens the file; `isOpen` and `error` (errno) tell how it went. Writing creates it with mode 0666 less the umask.
    DiskFile(const std::string& path, Mode mode);
    ~DiskFile() override;

    [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }
    /// errno of the first failed operation, 0 when there was none.
    [[nodiscard]] int error() const { return error_; }

    /// From then on the file is read by position, which a pipe cannot do.
    [[nodiscard]] bool seek(long position) override;
    [[nodiscard]] bool write(ByteView octets) override;
    /// Writes what is buffered and closes; false when any octet could not be written.
    [[nodiscard]] bool close();

  private:
    [[nodiscard]] long readSome(uint8_t* out, size_t count) override;
    [[nodiscard]] bool flush();
    bool fail();

    int descriptor_ = -1;
    int error_ = 0;
    bool sought_ = false;
    long filePosition_ = 0;  // of the next octet to be read into the buffer
    Bytes pending_;
};

}  // namespace crv
