// Key strings of a record and its data, on their way between an index and its caller.
#pragma once

#include <utility>
#include <vector>

#include "misc/bytes.h"

namespace crv {

/// The key strings of one record, owned and handed out by index.
class CrvDbKeys {
  public:
    void add(Bytes key) { keys_.push_back(std::move(key)); }
    [[nodiscard]] int size() const { return static_cast<int>(keys_.size()); }
    /// Throws std::out_of_range for an index that is not there, as `detach` does.
    [[nodiscard]] const Bytes& operator[](int index) const { return keys_.at(static_cast<size_t>(index)); }
    /// Gives the key to the caller; an empty one stays in its place.
    [[nodiscard]] Bytes detach(int index) { return std::exchange(keys_.at(static_cast<size_t>(index)), {}); }

  private:
    std::vector<Bytes> keys_;
};

/// The octets of one record.
class CrvDbData {
  public:
    CrvDbData() = default;
    explicit CrvDbData(Bytes octets) : octets_(std::move(octets)) {}

    [[nodiscard]] ByteView view() const { return octets_; }
    /// Gives the octets to the caller.
    [[nodiscard]] Bytes detach() { return std::exchange(octets_, {}); }

  private:
    Bytes octets_;
};

}  // namespace crv
