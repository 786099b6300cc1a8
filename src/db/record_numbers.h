// The numbers of many records in little memory.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "misc/bytes.h"

namespace crv {

/// Ascending numbers, about two and a half octets each where records are some hundreds of octets long. Going through
/// them one after another is fast, any other access takes a search.
class RecordNumbers {
  public:
    /// A number above all others.
    void add(int64_t number);
    [[nodiscard]] size_t size() const { return size_; }
    /// The number at a place below size().
    [[nodiscard]] int64_t at(size_t place);
    /// The place of a number; nothing when it is not among them.
    [[nodiscard]] std::optional<size_t> find(int64_t number);

  private:
    static constexpr size_t kGroup = 64;
    /// The first of kGroup numbers; the others follow as differences, seven bits an octet, the lowest first.
    struct Group {
        int64_t first;
        size_t differences;  // where they begin
    };

    void goTo(size_t group);
    void step();

    std::vector<Group> groups_;
    Bytes differences_;
    size_t size_ = 0;
    int64_t last_ = 0;
    // Where the last access was: the next one is mostly there or just behind.
    size_t place_ = 0;
    int64_t number_ = 0;
    size_t following_ = 0;  // where the next difference begins
};

}  // namespace crv
