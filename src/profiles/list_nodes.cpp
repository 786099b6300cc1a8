#include "profiles/list_nodes.h"

#include <algorithm>
#include <cstring>

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

ListNodes::ReadNodes ListNodes::skipTo(std::string_view path, ReadNodes nodes) {
    return {std::ranges::lower_bound(nodes, path, {}, &ReadNode::path), nodes.end()};
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
    for (ReadNodes left = skipTo(first, nodes()); !left.empty() && left[0].path() < last; left = left.subspan(1))
        changes_.emplace_hint(next, left[0].path(), std::nullopt);
    return true;
}

ListNodes ListNodes::between(std::string_view first, std::string_view last) const {
    ListNodes some;
    const ReadNodes left = skipTo(first, nodes());
    some.read_ = read_;
    some.count_ = left.size() - skipTo(last, left).size();
    some.first_ = first_ + nodes().size() - left.size();
    some.changes_.insert(changes_.lower_bound(first), changes_.lower_bound(last));
    return some;
}

std::optional<NodeView> ListNodes::find(std::string_view path) const {
    if (const auto change = changes_.find(path); change != changes_.end())
        return change->second ? std::optional(change->second->view()) : std::nullopt;
    const ReadNodes left = skipTo(path, nodes());
    return !left.empty() && left[0].path() == path ? std::optional(left[0].view()) : std::nullopt;
}

ListNodes::Cursor ListNodes::from(std::string_view path) const {
    return {*this, skipTo(path, nodes()), changes_.lower_bound(path)};
}

ListNodes::Cursor ListNodes::begin() const {
    return {*this, nodes(), changes_.begin()};
}

ListNodes::Cursor::Cursor(const ListNodes& list, ReadNodes read, Changes::const_iterator change)
    : changes_(&list.changes_), read_(read), change_(change) {
    settle();
}

void ListNodes::Cursor::settle() {
    for (; change_ != changes_->end(); ++change_) {
        const int order = read_.empty() ? 1 : read_[0].path().compare(change_->first);
        if (order < 0) break;
        if (order == 0) read_ = read_.subspan(1);
        if (!change_->second) continue;
        at_ = At::Change;
        return;
    }
    at_ = read_.empty() ? At::End : At::Read;
}

ListNodes::Cursor& ListNodes::Cursor::operator++() {
    if (at_ == At::Read) {
        read_ = read_.subspan(1);
    } else {
        ++change_;
    }
    settle();
    return *this;
}

void ListNodes::Cursor::seek(std::string_view path) {
    // What is looked for lies near: steps that double find the stretch.
    size_t step = 1;
    for (; step < read_.size() && read_[step].path() < path; step *= 2) read_ = read_.subspan(step);
    const ReadNodes stretch = read_.first(std::min(step, read_.size()));
    read_ = read_.subspan(stretch.size() - skipTo(path, stretch).size());
    if (change_ != changes_->end() && change_->first < path) change_ = changes_->lower_bound(path);
    settle();
}

std::string_view ListNodes::Cursor::path() const {
    return at_ == At::Read ? read_[0].path() : std::string_view{change_->first};
}

NodeView ListNodes::Cursor::node() const {
    return at_ == At::Read ? read_[0].view() : change_->second->view();
}

}  // namespace crv
