// Octets that an object owns, or refers to in memory of somebody else.
#pragma once

#include <memory>

#include "misc/generic_file.h"

namespace crv {

/// Either a view of foreign memory (cheap, valid as long as that memory) or an own copy, which is wiped when it is
/// given back because private keys and passwords pass through it. A copy of the object always owns its octets.
class HeldBytes {
  public:
    HeldBytes() = default;
    HeldBytes(const HeldBytes& other) { assign(other.view()); }
    HeldBytes(HeldBytes&& other) noexcept : view_(other.view_), own_(std::move(other.own_)) { other.view_ = {}; }
    HeldBytes& operator=(const HeldBytes& other);
    HeldBytes& operator=(HeldBytes&& other) noexcept;
    ~HeldBytes() { clear(); }

    [[nodiscard]] ByteView view() const { return view_; }
    [[nodiscard]] size_t size() const { return view_.size(); }
    [[nodiscard]] bool empty() const { return view_.empty(); }

    /// Keeps an own copy. The octets may lie in the present ones.
    void assign(ByteView octets);
    /// Refers to the caller's memory.
    void refer(ByteView octets);
    /// Drops all but the first `count` octets, at once.
    void shorten(size_t count);
    void clear();

    /// Reads up to `count` octets into own memory, which grows as they arrive, so that an absurd count costs nothing.
    /// The number read, fewer than `count` only at the end of the stream; -1 on failure.
    [[nodiscard]] long load(GenericFile& in, long count);

  private:
    ByteView view_;
    std::unique_ptr<uint8_t[]> own_;
};

}  // namespace crv
