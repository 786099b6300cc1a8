#include "crvconfd/toolkit/line_editor.h"

#include <algorithm>

#include "crvconfd/toolkit/toolkit.h"
#include "misc/utf8.h"

namespace crv {

namespace {

/// The key of a letter with Ctrl.
constexpr int control(char letter) {
    return letter - '@';
}

}  // namespace

LineEditor::LineEditor(std::string_view start, size_t longest)
    : text_(cutText(start, longest)), cursor_(text_.size()), longest_(longest) {}

bool LineEditor::insert(std::string_view more) {
    if (text_.size() + more.size() > longest_) {
        lost_ = true;
        return false;
    }
    text_.insert(cursor_, more);
    cursor_ += more.size();
    return true;
}

void LineEditor::replace(std::string_view text) {
    text_ = cutText(text, longest_);
    cursor_ = text_.size();
    lost_ = text_.size() < text.size();
}

/// Start of the character that ends at the octet.
size_t LineEditor::before(size_t at) const {
    const std::string_view front = std::string_view{text_}.substr(0, at);
    return front.empty() ? 0 : cutText(front, front.size() - 1).size();
}

size_t LineEditor::behind(size_t at) const {
    std::string_view rest = std::string_view{text_}.substr(at);
    if (!rest.empty()) static_cast<void>(takeCharacter(rest));
    return text_.size() - rest.size();
}

size_t LineEditor::wordStart() const {
    const size_t end = cursor_ == 0 ? std::string::npos : text_.find_last_not_of(' ', cursor_ - 1);
    if (end == std::string::npos) return 0;
    const size_t space = text_.find_last_of(" /", end == 0 ? 0 : end - 1);
    return space == std::string::npos || space >= end ? 0 : space + 1;
}

void LineEditor::erase(size_t from, size_t to) {
    text_.erase(from, to - from);
    cursor_ = from;
    lost_ = lost_ && !text_.empty();
}

bool LineEditor::edit(int key) {
    switch (key) {
        case kKeyLeft:
            cursor_ = before(cursor_);
            return true;
        case kKeyRight:
            cursor_ = behind(cursor_);
            return true;
        case kKeyHome:
        case control('A'):
            cursor_ = 0;
            return true;
        case kKeyEnd:
        case control('E'):
            cursor_ = text_.size();
            return true;
        case kKeyBackspace:
        case kListKeyBackspace:
            erase(before(cursor_), cursor_);
            return true;
        case kKeyDelete:
            erase(cursor_, behind(cursor_));
            return true;
        case control('U'):
            erase(0, cursor_);
            return true;
        case control('W'):
            erase(wordStart(), cursor_);
            return true;
        case control('K'):
            erase(cursor_, text_.size());
            return true;
        default:
            return false;
    }
}

}  // namespace crv
