// Streams over memory: octets to read, a buffer to write, a range of another stream.
#pragma once

#include <span>

#include "misc/generic_file.h"
#include "misc/secret.h"

namespace crv {

/// A stream in memory. Built on a view it reads the caller's octets, which must outlive it and all that is read by
/// reference from it. Built empty it collects what is written. What it owns is wiped.
class MemoryFile final : public GenericFile {
  public:
    MemoryFile() = default;
    /// `nesting`: levels of elements that already stand around these octets.
    explicit MemoryFile(ByteView octets, int nesting = 0) {
        setWindow(octets, 0);
        nesting_ = nesting;
    }

    /// Everything written so far.
    [[nodiscard]] ByteView written() const { return written_; }

    [[nodiscard]] bool inMemory() const override { return true; }
    [[nodiscard]] bool seek(long position) override;
    [[nodiscard]] bool write(ByteView octets) override;

  private:
    SecretBytes written_;
};

/// Writes into memory of the caller; a write that does not fit fails.
class SpanFile final : public GenericFile {
  public:
    explicit SpanFile(std::span<uint8_t> room) : room_(room) {}

    [[nodiscard]] size_t size() const { return size_; }
    [[nodiscard]] bool write(ByteView octets) override;

  private:
    std::span<uint8_t> room_;
    size_t size_ = 0;
};

/// The next `length` octets of another stream, which moves on as this one is read (ahead of it: this one buffers). Over
/// a stream in memory it refers to the same memory and the other stream stands behind the range at once.
class SubRangeFile final : public GenericFile {
  public:
    SubRangeFile(GenericFile& whole, long length);

    [[nodiscard]] bool inMemory() const override { return whole_.inMemory(); }

  private:
    [[nodiscard]] long fill(size_t count) override;

    GenericFile& whole_;
    long left_;
    Bytes buffer_;
};

/// Appends what a stream still has, `limit` octets of it at most; false when the stream fails.
[[nodiscard]] bool readAll(GenericFile& in, SecretBytes& out, size_t limit = SIZE_MAX);

}  // namespace crv
