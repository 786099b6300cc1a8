#include "crvconfd/engines/list_search.h"

#include "crvconfd/engines/entry.h"
#include "crvconfd/engines/polish_letters.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/utf8.h"
#include "pki/certificate_search.h"

namespace crv {

namespace {

constexpr size_t kLongestFilter = 60;

/// What an item begins with, marks in front of it left out.
char firstLetter(std::string_view item) {
    while (!item.empty())
        if (const char letter = plainLetter(takeUtf8(item))) return letter;
    return '\0';
}

}  // namespace

void ListSearch::ask() {
    clrToEol(kMessageRow, 0);
    if (auto text = askLine("Pokaż zawierające: ", kLongestFilter, false, text_)) text_ = std::move(*text);
}

std::vector<size_t> ListSearch::shown(const std::vector<std::string>& items) {
    std::vector<size_t> found;
    for (size_t i = 0; i < items.size(); ++i)
        if (containsFolded(items[i], text_)) found.push_back(i);
    if (!found.empty() || items.empty()) return found;
    errInfo(kMessageRow, "Nic na liście nie zawiera: %s", text_.c_str());
    text_.clear();
    return shown(items);
}

void ListSearch::draw(size_t count, size_t all) const {
    if (!text_.empty()) displText(kRow, 1, "Zawierające \"%s\": %zu z %zu   (/ zmienia)", text_.c_str(), count, all);
}

std::optional<size_t> ListSearch::jump(const std::vector<std::string>& items, size_t from, int key) {
    const char wanted = key > 0 && key < 128 ? plainLetter(static_cast<char32_t>(key)) : '\0';
    if (wanted == '\0') return std::nullopt;
    for (size_t step = 1; step <= items.size(); ++step) {
        const size_t index = (from + step) % items.size();
        if (firstLetter(items[index]) == wanted) return index;
    }
    return std::nullopt;
}

}  // namespace crv
