#include "profiles/list_nodes.h"

#include <algorithm>
#include <cstring>
#include <span>

#include "misc/ascii.h"

namespace crv {

NodeDesc NodeDesc::of(const NodeView& node) {
    NodeDesc desc{long{0}, node.line};
    if (node.type == UCMNodeType::Long) {
        std::memcpy(&std::get<long>(desc.value), node.octets.data(), sizeof(long));
    } else if (node.type == UCMNodeType::Binary) {
        desc.value = std::vector<char>(node.octets.begin(), node.octets.end());
    } else {
        desc.value = std::string(node.octets);
    }
    return desc;
}

NodeView NodeDesc::view() const {
    if (const auto* number = std::get_if<long>(&value))
        return {UCMNodeType::Long, {reinterpret_cast<const char*>(number), sizeof *number}, line};
    if (const auto* text = std::get_if<std::string>(&value)) return {UCMNodeType::String, *text, line};
    const auto& octets = std::get<std::vector<char>>(value);
    return {UCMNodeType::Binary, {octets.data(), octets.size()}, line};
}

size_t ListNodes::Read::lowerBound(std::string_view path, size_t low, size_t high) const {
    const std::span<const ReadNode> all = nodes;
    const auto found = std::ranges::lower_bound(all.subspan(low, high - low), path, {}, &ReadNode::path);
    return static_cast<size_t>(std::to_address(found) - nodes.data());
}

void ListNodes::read(std::string_view path, const NodeView& node) {
    auto& [texts, nodes, settled] = *read_;
    auto* text = static_cast<char*>(texts.allocate(path.size() + node.octets.size(), 1));
    asciiUpper(path, text);
    node.octets.copy(text + path.size(), node.octets.size());
    const ReadNode read{text, node.line, static_cast<uint16_t>(path.size()), static_cast<uint16_t>(node.octets.size()),
                        node.type};
    // Lists are saved in order; only one that was written by hand has to be sorted.
    if (settled == nodes.size() && (nodes.empty() || nodes.back().path() < read.path())) ++settled;
    nodes.push_back(read);
}

std::optional<size_t> ListNodes::settle() {
    auto& [texts, nodes, settled] = *read_;
    if (settled == nodes.size()) return std::nullopt;
    const auto middle = nodes.begin() + static_cast<ptrdiff_t>(settled);
    std::ranges::stable_sort(middle, nodes.end(), {}, &ReadNode::path);
    std::ranges::inplace_merge(nodes.begin(), middle, nodes.end(), {}, &ReadNode::path);
    settled = nodes.size();
    // Equal paths stand in the order of their lines.
    std::optional<size_t> line;
    for (size_t i = 1; i < nodes.size(); ++i)
        if (nodes[i - 1].path() == nodes[i].path()) line = std::min(line.value_or(SIZE_MAX), nodes[i].line);
    return line;
}

bool ListNodes::remove(std::string_view first, std::string_view last) {
    const Cursor begin = from(first);
    if (!begin || begin.path() >= last) return false;
    const auto next = changes_.erase(changes_.lower_bound(first), changes_.lower_bound(last));
    const size_t end = read_->lowerBound(last, 0, read_->nodes.size());
    for (size_t i = read_->lowerBound(first, 0, end); i < end; ++i)
        changes_.emplace_hint(next, read_->nodes[i].path(), std::nullopt);
    return true;
}

std::optional<NodeView> ListNodes::find(std::string_view path) const {
    if (const auto change = changes_.find(path); change != changes_.end())
        return change->second ? std::optional(change->second->view()) : std::nullopt;
    const auto& nodes = read_->nodes;
    const size_t at = read_->lowerBound(path, 0, nodes.size());
    return at < nodes.size() && nodes[at].path() == path ? std::optional(nodes[at].view()) : std::nullopt;
}

ListNodes::Cursor ListNodes::from(std::string_view path) const {
    return {*this, read_->lowerBound(path, 0, read_->nodes.size()), changes_.lower_bound(path)};
}

ListNodes::Cursor ListNodes::begin() const {
    return {*this, 0, changes_.begin()};
}

ListNodes::Cursor::Cursor(const ListNodes& list, size_t read, Changes::const_iterator change)
    : list_(&list), read_(read), change_(change) {
    settle();
}

void ListNodes::Cursor::settle() {
    const auto& nodes = list_->read_->nodes;
    for (; change_ != list_->changes_.end(); ++change_) {
        const int order = read_ == nodes.size() ? 1 : nodes[read_].path().compare(change_->first);
        if (order < 0) break;
        if (order == 0) ++read_;
        if (!change_->second) continue;
        at_ = At::Change;
        return;
    }
    at_ = read_ < nodes.size() ? At::Read : At::End;
}

ListNodes::Cursor& ListNodes::Cursor::operator++() {
    if (at_ == At::Read) {
        ++read_;
    } else {
        ++change_;
    }
    settle();
    return *this;
}

void ListNodes::Cursor::seek(std::string_view path) {
    const Read& read = *list_->read_;
    // What is looked for lies near: steps that double find the stretch.
    size_t step = 1;
    for (; read_ + step < read.nodes.size() && read.nodes[read_ + step].path() < path; step *= 2) read_ += step;
    read_ = read.lowerBound(path, read_, std::min(read_ + step, read.nodes.size()));
    if (change_ != list_->changes_.end() && change_->first < path) change_ = list_->changes_.lower_bound(path);
    settle();
}

std::string_view ListNodes::Cursor::path() const {
    return at_ == At::Read ? list_->read_->nodes[read_].path() : std::string_view{change_->first};
}

NodeView ListNodes::Cursor::node() const {
    return at_ == At::Read ? list_->read_->nodes[read_].view() : change_->second->view();
}

}  // namespace crv
