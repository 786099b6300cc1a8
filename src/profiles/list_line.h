// One line of a profile list: path, type letter in brackets, value.
#pragma once

#include <string>
#include <string_view>

#include "misc/bytes.h"
#include "profiles/list_nodes.h"

namespace crv {

enum class ListLine { Comment, Value, Broken };

/// What a line says; the views are good as long as the line and this object.
struct ListEntry {
    std::string_view path;  ///< with its letters as they stand in the line
    NodeView node;
    long number = 0;  ///< looked at by the node of a long value
    Bytes octets;     ///< looked at by the node of a binary one

    ListEntry() = default;
    ListEntry(const ListEntry&) = delete;
    ListEntry& operator=(const ListEntry&) = delete;
};

/// Parses a line without its LF and without CR. Fills the entry, but for its line number, for a Value only.
ListLine parseListLine(std::string_view line, ListEntry& entry);

/// Appends the line of a node, without LF.
void appendListLine(std::string& text, std::string_view path, const NodeView& node);

/// Number of a long value: decimal, else hexadecimal with or without "0x" (without it, digits that begin with a decimal
/// one take upper-case letters only). The whole text must be used up and fit 64 bits.
bool parseListLong(std::string_view text, long& value);

}  // namespace crv
