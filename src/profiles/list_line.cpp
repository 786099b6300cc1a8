#include "profiles/list_line.h"

#include <algorithm>
#include <charconv>

#include "misc/ascii.h"
#include "misc/hex.h"

namespace crv {
namespace {

constexpr std::string_view kBlanks = " \t";

void skipBlanks(std::string_view& text) {
    text.remove_prefix(std::min(text.find_first_not_of(kBlanks), text.size()));
}

bool onlyCommentFollows(std::string_view rest) {
    skipBlanks(rest);
    return rest.empty() || rest.front() == '#';
}

bool skipChar(std::string_view& text, char expected) {
    skipBlanks(text);
    if (text.empty() || text.front() != expected) return false;
    text.remove_prefix(1);
    skipBlanks(text);
    return true;
}

/// Cuts the value out of what follows the equals sign.
bool cutValue(std::string_view& text) {
    if (text.starts_with('"')) {
        size_t end = text.find('"', 1);
        if (end == std::string_view::npos || !onlyCommentFollows(text.substr(end + 1))) return false;
        text = text.substr(1, end - 1);
        return true;
    }
    size_t end = std::min(text.find_first_of("# "), text.size());
    if (!onlyCommentFollows(text.substr(end))) return false;
    text = text.substr(0, end);
    // A value cannot hold a double quote: it could not be written again.
    return text.find('"') == std::string_view::npos;
}

template <class T>
bool wholeNumber(std::string_view digits, int base, T& value) {
    auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value, base);
    return error == std::errc() && end == digits.data() + digits.size();
}

bool parseBinary(std::string_view text, NodeDesc& node) {
    const auto octets = fromHex(text);
    if (octets) node.value.emplace<std::vector<char>>(octets->begin(), octets->end());
    return octets.has_value();
}

bool parseValue(char type, std::string_view text, NodeDesc& node) {
    switch (asciiUpper(type)) {
        case 'L':
            return parseListLong(text, node.value.emplace<long>());
        case 'S':
            node.value = std::string(text);
            return true;
        case 'B':
            return parseBinary(text, node);
        default:
            return false;
    }
}

}  // namespace

bool parseListLong(std::string_view text, long& value) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t\n\v\f\r"), text.size()));
    bool negative = text.starts_with('-');
    std::string_view digits = text.substr(negative || text.starts_with('+') ? 1 : 0);
    if (digits.starts_with('-')) return false;
    if (wholeNumber(negative ? text : digits, 10, value)) return true;
    unsigned long bits = 0;
    if (digits.starts_with("0x") || digits.starts_with("0X")) {
        digits.remove_prefix(2);
    } else if (!digits.empty() && digits.front() >= '0' && digits.front() <= '9' &&
               std::ranges::any_of(digits, [](char c) { return c >= 'a'; })) {
        return false;
    }
    if (!wholeNumber(digits, 16, bits)) return false;
    value = static_cast<long>(negative ? 0 - bits : bits);
    return true;
}

ListLine parseListLine(std::string_view line, std::string& path, NodeDesc& node) {
    skipBlanks(line);
    if (line.empty() || line.front() == '#') return ListLine::Comment;
    size_t bracket = line.find('[');
    if (bracket == std::string_view::npos || line.front() != '\\') return ListLine::Broken;
    std::string_view name = line.substr(0, bracket);
    name = name.substr(0, name.find_last_not_of(' ') + 1);
    line.remove_prefix(bracket + 1);
    skipBlanks(line);
    if (line.empty()) return ListLine::Broken;
    char type = line.front();
    line.remove_prefix(1);
    if (!skipChar(line, ']') || !skipChar(line, '=') || !cutValue(line) || !parseValue(type, line, node))
        return ListLine::Broken;
    path = asciiUpper(name);
    return ListLine::Value;
}

std::string formatListLine(std::string_view path, const NodeDesc& node) {
    std::string line(path);
    switch (node.type()) {
        case UCMNodeType::Long:
            return line + "[l] = " + std::to_string(std::get<long>(node.value));
        case UCMNodeType::String:
            return line + "[s] = \"" + std::get<std::string>(node.value) + '"';
        case UCMNodeType::Binary: {
            const auto& octets = std::get<std::vector<char>>(node.value);
            return line + "[b] = " + toHex(asBytes({octets.data(), octets.size()}));
        }
        case UCMNodeType::Key:
            break;
    }
    return line;
}

}  // namespace crv
