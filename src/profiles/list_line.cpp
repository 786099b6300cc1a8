#include "profiles/list_line.h"

#include <algorithm>
#include <charconv>

#include "misc/ascii.h"
#include "misc/hex.h"

namespace crv {
namespace {

void skipBlanks(std::string_view& text) {
    while (text.starts_with(' ') || text.starts_with('\t')) text.remove_prefix(1);
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

bool parseValue(char type, std::string_view text, ListEntry& entry) {
    switch (asciiUpper(type)) {
        case 'L':
            entry.node = {UCMNodeType::Long, {reinterpret_cast<const char*>(&entry.number), sizeof entry.number}};
            return parseListLong(text, entry.number);
        case 'S':
            entry.node = {UCMNodeType::String, text};
            return true;
        case 'B': {
            auto octets = fromHex(text);
            if (!octets) return false;
            entry.octets = std::move(*octets);
            entry.node = {UCMNodeType::Binary, asText(entry.octets)};
            return true;
        }
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

ListLine parseListLine(std::string_view line, ListEntry& entry) {
    skipBlanks(line);
    if (line.empty() || line.front() == '#') return ListLine::Comment;
    size_t bracket = line.find('[');
    if (bracket == std::string_view::npos || line.front() != '\\') return ListLine::Broken;
    entry.path = line.substr(0, bracket);
    while (entry.path.ends_with(' ')) entry.path.remove_suffix(1);
    line.remove_prefix(bracket + 1);
    skipBlanks(line);
    if (line.empty()) return ListLine::Broken;
    char type = line.front();
    line.remove_prefix(1);
    if (!skipChar(line, ']') || !skipChar(line, '=') || !cutValue(line) || !parseValue(type, line, entry))
        return ListLine::Broken;
    return ListLine::Value;
}

void appendListLine(std::string& text, std::string_view path, const NodeView& node) {
    text.append(path);
    switch (node.type) {
        case UCMNodeType::Long:
            text.append("[l] = ").append(std::to_string(std::get<long>(NodeDesc::of(node).value)));
            break;
        case UCMNodeType::String:
            text.append("[s] = \"").append(node.octets).push_back('"');
            break;
        case UCMNodeType::Binary:
            text.append("[b] = ").append(toHex(asBytes(node.octets)));
            break;
        case UCMNodeType::Key:
            break;
    }
}

}  // namespace crv
