// The byte stream through which structures are read and written: files, memory, a range of another stream, Base64.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "misc/bytes.h"
#include "misc/secret.h"

namespace crv {

/// Abstract byte stream. Reading goes through a window of octets that are at hand, so that looking at and taking single
/// octets costs no virtual call: a stream over memory has everything in its window, others refill a buffer.
///
/// A stream is used for reading or for writing; a form that cannot do one of them reports failure. Not for sharing
/// between threads. Results: octet counts, `kEnd`/`kFailed` where an octet is asked for, -1 or false for a failing
/// stream.
class GenericFile {
  public:
    static constexpr int kEnd = -1;           ///< no more octets
    static constexpr int kFailed = -2;        ///< the source failed (or its coding is broken)
    static constexpr int kMaxNesting = 100;   ///< deepest nesting of elements that a reader follows
    static constexpr size_t kLookAhead = 16;  ///< octets that `lookAhead` can always bring into the window

    GenericFile() = default;
    GenericFile(const GenericFile&) = delete;
    GenericFile& operator=(const GenericFile&) = delete;
    virtual ~GenericFile() = default;

    /// The next octet (0 to 255) without taking it, or kEnd, kFailed.
    [[nodiscard]] int peek() { return next_ != end_ ? *next_ : peekBeyond(); }
    /// Takes the next octet.
    [[nodiscard]] int get() {
        const int octet = peek();
        if (octet >= 0) ++next_;
        return octet;
    }
    /// Brings `count` octets (at most kLookAhead) into the window when the stream still has them; false when it does
    /// not.
    [[nodiscard]] bool lookAhead(size_t count) {
        return window().size() >= count || fill(count) >= static_cast<long>(count);
    }

    /// The octets at hand; valid until the next call, for a stream in memory as long as the memory itself.
    [[nodiscard]] ByteView window() const { return {next_, end_}; }
    /// Takes octets of the window; `count` is at most the window's size.
    void consume(size_t count) { next_ += count; }

    /// Reads up to `count` octets: fewer only at the end of the stream; -1 on failure.
    [[nodiscard]] long read(uint8_t* out, long count);
    /// Takes `count` octets without looking at them; the number taken as for `read`.
    [[nodiscard]] long skip(long count);
    /// Octets taken since the start of the stream.
    [[nodiscard]] long position() const { return base_ + (next_ - start_); }
    /// Whether the window holds all that is left and lives as long as the caller's memory.
    [[nodiscard]] virtual bool inMemory() const { return false; }
    /// Moves to an absolute position for reading; false when this form cannot or the position is outside.
    [[nodiscard]] virtual bool seek(long position);

    /// Writes all octets; false on failure.
    [[nodiscard]] virtual bool write(ByteView octets);

    /// Levels of nested elements that are being read; a reader adds one per level (`Nesting`).
    [[nodiscard]] int nesting() const { return nesting_; }

    /// One more level of nesting while the object lives; false when that is one too many.
    class Nesting {
      public:
        explicit Nesting(GenericFile& file) : file_(file) { ++file_.nesting_; }
        Nesting(const Nesting&) = delete;
        Nesting& operator=(const Nesting&) = delete;
        ~Nesting() { --file_.nesting_; }
        [[nodiscard]] bool allowed() const { return file_.nesting_ <= kMaxNesting; }

      private:
        GenericFile& file_;
    };

  protected:
    /// Brings at least `count` octets into the window if the stream has them. Returns the window's size, -1 on failure.
    [[nodiscard]] virtual long fill(size_t count);

    /// A new window whose first octet has the given position.
    void setWindow(ByteView octets, long position) {
        start_ = next_ = octets.data();
        end_ = start_ + octets.size();
        base_ = position;
    }
    [[nodiscard]] long windowStart() const { return base_; }
    [[nodiscard]] size_t windowTaken() const { return static_cast<size_t>(next_ - start_); }

    int nesting_ = 0;

  private:
    [[nodiscard]] int peekBeyond();

    const uint8_t* start_ = nullptr;
    const uint8_t* next_ = nullptr;
    const uint8_t* end_ = nullptr;
    long base_ = 0;
};

/// A reading stream with a buffer of its own over some source of octets.
class BufferedFile : public GenericFile {
  protected:
    /// Reads 1 to `count` octets from the source; 0 at the end, -1 on failure.
    [[nodiscard]] virtual long readSome(uint8_t* out, size_t count) = 0;
    [[nodiscard]] long fill(size_t count) final;
    /// Forgets what the buffer holds; the next octet read has the given position.
    void dropBuffer(long position) { setWindow({}, position); }

  private:
    SecretBytes buffer_;  // a key may have been in it
};

}  // namespace crv
