// The nodes of a profile list in the order of their paths: what was read, packed, and what was changed since.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <memory_resource>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "misc/nothing.h"

namespace crv {

/// Type of a node; Key is an inner node, which is never stored but derived from the paths of the values below it.
enum class UCMNodeType { Key = 1, Long = 2, String = 4, Binary = 8 };

/// A value that lies elsewhere.
struct NodeView {
    UCMNodeType type = UCMNodeType::String;
    std::string_view octets;  ///< of a Long its sizeof(long), in the order of the machine
    size_t line = 0;

    bool operator==(const NodeView& other) const { return type == other.type && octets == other.octets; }
};

/// A value with its type.
struct NodeDesc {
    std::variant<long, std::string, std::vector<char>, Nothing> value;
    size_t line = 0;  ///< of the list that it was read from, from 1; 0 for one that was set

    static NodeDesc of(const NodeView& node);
    /// Looks at this object's octets.
    [[nodiscard]] NodeView view() const;
    [[nodiscard]] UCMNodeType type() const { return view().type; }
    bool operator==(const NodeDesc& other) const { return value == other.value; }
};

/// Upper-cased paths with their values. What a list gave is packed and shared by the copies; over it lies a map of what
/// was set or removed since. Views that it hands out are good until it is changed.
class ListNodes {
  public:
    class Cursor;
    /// Longest path and longest value that can be read, in octets.
    static constexpr size_t kMaxRead = UINT16_MAX;

    /// Takes in a node of a list that is being read, of which there is no copy yet. It is found once it is settled.
    void read(std::string_view path, const NodeView& node);
    /// Number of the nodes that were read and stand in order, and of those behind them that do not yet.
    [[nodiscard]] size_t settled() const { return read_->settled; }
    [[nodiscard]] size_t unsettled() const { return read_->nodes.size() - read_->settled; }
    /// Puts what was read in order. The first line whose path was there already; none when there is no such line.
    [[nodiscard]] std::optional<size_t> settle();

    void set(const std::string& path, NodeDesc node) { changes_.insert_or_assign(path, std::move(node)); }
    /// Removes what lies from the first path to before the last one; whether there was anything.
    bool remove(std::string_view first, std::string_view last);

    /// The nodes from the first path to before the last one.
    [[nodiscard]] ListNodes between(std::string_view first, std::string_view last) const;
    [[nodiscard]] std::optional<NodeView> find(std::string_view path) const;
    /// The first node whose path is not before this one.
    [[nodiscard]] Cursor from(std::string_view path) const;
    [[nodiscard]] Cursor begin() const;

  private:
    /// A node that was read: its path, and the octets of its value behind it.
    struct ReadNode {
        const char* text;
        size_t line;
        uint16_t pathSize, valueSize;
        UCMNodeType type;

        [[nodiscard]] std::string_view path() const { return {text, pathSize}; }
        [[nodiscard]] NodeView view() const { return {type, {text + pathSize, valueSize}, line}; }
    };
    struct Read {
        std::pmr::monotonic_buffer_resource texts;
        std::vector<ReadNode> nodes;
        size_t settled = 0;
    };
    using ReadNodes = std::span<const ReadNode>;
    /// Without a value: what was read is removed.
    using Changes = std::map<std::string, std::optional<NodeDesc>, std::less<>>;

    /// Those of the nodes that were read which count here.
    [[nodiscard]] ReadNodes nodes() const { return ReadNodes(read_->nodes).subspan(first_, count_); }
    /// Those of them whose paths are not before this one.
    [[nodiscard]] static ReadNodes skipTo(std::string_view path, ReadNodes nodes);

    std::shared_ptr<Read> read_ = std::make_shared<Read>();
    size_t first_ = 0;
    size_t count_ = std::dynamic_extent;  // to the end
    Changes changes_;
};

/// A node of a list, or the end. It becomes invalid when the list changes.
class ListNodes::Cursor {
  public:
    Cursor() = default;
    explicit operator bool() const { return at_ != At::End; }
    Cursor& operator++();
    /// Moves forward to the first node whose path is not before this one; stays when there it is already.
    void seek(std::string_view path);
    [[nodiscard]] std::string_view path() const;
    [[nodiscard]] NodeView node() const;

  private:
    friend class ListNodes;
    enum class At { Read, Change, End };
    Cursor(const ListNodes& list, ReadNodes read, Changes::const_iterator change);
    /// Of the next that was read and the next change, stops at the one that comes first.
    void settle();

    const Changes* changes_ = nullptr;
    ReadNodes read_;  // those to come
    Changes::const_iterator change_;
    At at_ = At::End;
};

}  // namespace crv
