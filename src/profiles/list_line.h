// One line of a profile list: path, type letter in brackets, value.
#pragma once

#include <string>
#include <string_view>

#include "profiles/universal_conf_mgr.h"

namespace crv {

enum class ListLine { Comment, Value, Broken };

/// Parses a line without its LF and without CR. Fills path (upper-cased) and node for a Value only.
ListLine parseListLine(std::string_view line, std::string& path, NodeDesc& node);

/// The line of a node, without LF.
std::string formatListLine(std::string_view path, const NodeDesc& node);

/// Number of a long value: decimal, else hexadecimal with or without "0x" (without it, digits that begin with a decimal
/// one take upper-case letters only). The whole text must be used up and fit 64 bits.
bool parseListLong(std::string_view text, long& value);

}  // namespace crv
