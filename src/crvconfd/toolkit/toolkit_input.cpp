// Line, number, password and keystroke input, and questions.
#include <curses.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>
#include <string_view>

#include "crvconfd/toolkit/encoding.h"
#include "crvconfd/toolkit/line_editor.h"
#include "crvconfd/toolkit/toolkit.h"
#include "crvconfd/toolkit/toolkit_internal.h"
#include "crypto/kc_hash.h"
#include "misc/utf8.h"

namespace crv {

namespace {

constexpr size_t kNumberDigits = 39;
constexpr int kRestOfCharacter = 100;  // ms in which the further octets of a typed character come

bool isEnter(int key) {
    return key == kKeyEnter || key == '\r';
}

bool isBackspace(int key) {
    return key == kKeyBackspace || key == KEY_BACKSPACE;
}

/// Where typed text stands on the row: from a column on, so many columns wide, the last one kept free for the cursor.
class FieldView {
  public:
    FieldView(int row, int col, int width) : row_(row), col_(col), room_(std::max(width - 1, 2)) {}

    /// Shows what of the line stands around the cursor, with a mark at each end where more is hidden.
    void draw(const LineEditor& line) {
        const std::string_view text = line.text();
        scrollTo(text, line.cursor());
        if (!toolkit::movePen(row_, col_)) return;
        if (first_ > 0) putMark("<");
        const std::string_view shown = text.substr(first_);
        const bool cut = columns(shown) > left();
        const size_t bytes = bytesWithin(shown, static_cast<size_t>(left() - (cut ? 1 : 0)));
        toolkit::put(pl(shown.substr(0, bytes)), col_ + room_);
        if (cut) putMark(">");
        toolkit::fillTo(col_ + room_ + 1);
        const int cursor = col_ + (first_ > 0 ? 1 : 0) + columns(text.substr(first_, line.cursor() - first_));
        toolkit::movePen(row_, std::min(cursor, screenColumns() - 1));
    }

  private:
    [[nodiscard]] static int columns(std::string_view text) { return static_cast<int>(columnsOf(text)); }
    [[nodiscard]] int left() const { return room_ - (first_ > 0 ? 1 : 0); }

    static void putMark(const char* mark) {
        const AttrGuard guard(kAttrStandout);
        toolkit::put(mark);
    }

    /// From the end back as much as fits, unless the cursor stands before that.
    void scrollTo(std::string_view text, size_t cursor) {
        first_ = 0;
        if (columns(text) <= room_) return;
        const bool atStart = columns(text.substr(0, cursor)) < room_ - 1;
        if (atStart) return;
        first_ = cursor;
        while (first_ > 0) {
            const size_t previous = cutText(text.substr(0, first_), first_ - 1).size();
            const bool more = cursor < text.size();
            if (columns(text.substr(previous, cursor - previous)) > room_ - 1 - (more ? 1 : 0)) break;
            first_ = previous;
        }
    }

    int row_;
    int col_;
    int room_;
    size_t first_ = 0;  // octet at which the shown part begins
};

/// Draws the prompt and says what is left of the row behind it.
FieldView promptField(const LineField& field) {
    const std::string shown = pl(field.prompt);
    displTextNoPl(field.row, field.col, "%s", shown.c_str());
    const int left = screenColumns() - (field.col + static_cast<int>(shown.size()));
    const int width = field.width > 0 ? std::min(field.width, left) : left;
    return {field.row, std::min(toolkit::pen().col, screenColumns() - 1), width};
}

/// The character that a key began, in UTF-8; empty for what is none. On a terminal of UTF-8 its further octets follow.
std::string typedCharacter(int key) {
    if (key < 32 || key > 255) return {};
    std::string octets(1, static_cast<char>(key));
    if (key < 0x80 || displayEncoding() == DisplayEncoding::Ascii) return key < 0x80 ? octets : std::string();
    if (displayEncoding() != DisplayEncoding::Utf8) {
        std::array<char, 8> buffer{octets.front()};
        return {buffer.data(), static_cast<size_t>(typedToUtf8(buffer.data(), 1, buffer.size()))};
    }
    const int further = key >= 0xF0 ? 3 : key >= 0xE0 ? 2 : key >= 0xC0 ? 1 : 0;
    for (int i = 0; i < further; ++i) {
        const int next = toolkit::readKey(kRestOfCharacter);
        if ((next & ~0x3F) != 0x80) {
            if (next != kNoKey) toolkit::unreadKey(next);
            return {};
        }
        octets += static_cast<char>(next);
    }
    return isUtf8(octets) ? octets : std::string();
}

/// Puts the characters in that are accepted; true when that was all of them.
template <class Accepts>
bool typeInto(LineEditor& line, std::string_view text, const Accepts& accepts) {
    bool all = !text.empty();
    while (!text.empty()) {
        const std::string_view front = text;
        const auto character = takeCharacter(text);
        const bool taken = character && accepts(*character) && line.insert(front.substr(0, front.size() - text.size()));
        all = all && taken;
    }
    return all;
}

/// The first line of what was pasted that is not empty, as it came: several would be entered one by one. Further ones
/// beep.
SecretText pastedLine() {
    const SecretText pasted = toolkit::takePaste();
    std::string_view text = pasted.view();
    text.remove_prefix(std::min(text.find_first_not_of("\r\n"), text.size()));
    const size_t end = std::min(text.find_first_of("\r\n"), text.size());
    if (text.find_first_not_of("\r\n", end) != std::string_view::npos) beepSignal();
    return SecretText(text.substr(0, end));
}

/// The same in UTF-8.
std::string pastedText() {
    const SecretText line = pastedLine();
    if (displayEncoding() == DisplayEncoding::Utf8) return std::string(line.view());
    std::string converted;
    for (const char octet : line.view()) converted += typedCharacter(static_cast<unsigned char>(octet));
    return converted;
}

/// Beeps for a key that types something and found no room or no favour.
void refuseKey(int key) {
    if (key == kKeyPaste || (key >= 32 && key <= 255)) beepSignal();
}

template <class Accepts>
bool editField(const LineField& field, LineEditor& line, const LineKey& other, const Accepts& accepts) {
    FieldView view = promptField(field);
    const CursorGuard cursor(true);
    for (;;) {
        view.draw(line);
        const int key = getScrollKey();
        if (isEnter(key) || key == kKeyEscape) {
            clrToEol(field.row, field.col);
            return key != kKeyEscape;
        }
        if (line.edit(key) || (other && other(key, line))) continue;
        if (!typeInto(line, key == kKeyPaste ? pastedText() : typedCharacter(key), accepts)) refuseKey(key);
    }
}

void drawEcho(const toolkit::Pen& start, char echo, int length) {
    if (echo == 0 || !toolkit::movePen(start.row, start.col)) return;
    toolkit::put(std::string(static_cast<size_t>(std::min(length, screenColumns())), echo), screenColumns() - 1);
    const int end = toolkit::pen().col;
    toolkit::fillTo(screenColumns());
    toolkit::movePen(start.row, end);
}

/// The next key; the top bit of random becomes a trace of how long it took.
int timedKey(uint8_t& random, bool blocking) {
    for (;;) {
        const int key = toolkit::readPlainKey(blocking ? -1 : 1);
        if (key > 0 && key <= 255) return key;
        if (key == kNoKey) random ^= 0x80U;
    }
}

/// Hands a mixed byte a key to take, which answers the count to show, until Enter (that count) or Escape (-1).
int gatherTypedKeys(int row, int col, const char* prompt, bool blocking, const std::function<int(uint8_t)>& take) {
    // Predictable on purpose: what counts is the keys and their times.
    std::srand(static_cast<unsigned>(std::time(nullptr)));
    const CursorGuard cursor(false);
    toolkit::translateKeys(false);
    displText(row, col, "%s", prompt);
    const int counter = std::min(toolkit::pen().col, screenColumns() - 1);
    int count = 0;
    for (;;) {
        auto random = static_cast<uint8_t>(std::rand());
        const int key = timedKey(random, blocking);
        if (isEnter(key) || key == kKeyEscape) {
            clrToEol(row, col);
            return key == kKeyEscape ? -1 : count;
        }
        count = take(static_cast<uint8_t>(random ^ key));
        displText(row, counter, " - %d", count);
    }
}

int askYesNo() {
    for (;;) {
        switch (getKey()) {
            case 't':
            case 'T':
                return 1;
            case 'n':
            case 'N':
                return 0;
            default:
                break;
        }
    }
}

int askKeys(std::string_view keys) {
    for (;;) {
        const int key = getKey();
        if (key == kKeyEscape) return -1;
        if (key > 0 && key <= 255 && keys.find(static_cast<char>(key)) != std::string_view::npos) return key;
    }
}

}  // namespace

bool editLine(const LineField& field, LineEditor& line, const LineKey& other) {
    const auto lowest = static_cast<char32_t>(field.lowest);
    return editField(field, line, other, [lowest](char32_t one) { return one >= lowest && !isHarmful(one); });
}

int input_yx(int row, int col, const char* prompt, char* buffer, int size, int lowest, int start, int width) {
    const auto longest = static_cast<size_t>(size - 1);
    LineEditor line({buffer, static_cast<size_t>(std::clamp(start, 0, size - 1))}, longest);
    const bool entered = editLine({row, col, prompt, width, lowest}, line);
    buffer[line.text().copy(buffer, longest)] = 0;
    return entered ? static_cast<int>(line.text().size()) : -1;
}

int inputText(int row, int col, const char* prompt, char* buffer, int size, int start, int width) {
    return input_yx(row, col, prompt, buffer, size, 32, start, width);
}

int inputWord(int row, int col, const char* prompt, char* buffer, int size, int start, int width) {
    return input_yx(row, col, prompt, buffer, size, 33, start, width);
}

int input_positive_number_yx(int row, int col, const char* prompt) {
    LineEditor digits({}, kNumberDigits);
    const auto isDigit = [](char32_t one) { return one >= '0' && one <= '9'; };
    if (!editField({row, col, prompt}, digits, {}, isDigit)) return -1;
    if (digits.text().empty()) return -2;
    // Saturates at LONG_MAX by itself.
    return static_cast<int>(std::min<long>(std::strtol(digits.text().c_str(), nullptr, 10), INT_MAX));
}

int inputPassword(int row, int col, const char* prompt, char* buffer, int size, char echo, bool keep, bool* lost) {
    clrToEol(row, 0);
    displText(row, col, "%s", prompt);
    const toolkit::Pen start = {row, std::min(toolkit::pen().col, screenColumns() - 1)};
    int length = keep ? static_cast<int>(strnlen(buffer, static_cast<size_t>(size - 1))) : 0;
    bool noRoom = false;
    const auto append = [&](int octet) {
        if (octet >= 1 && octet <= 255 && length < size - 1) {
            buffer[length++] = static_cast<char>(octet);
        } else if (octet >= 1 && octet <= 255) {
            // For good: nobody sees which octet Backspace would take.
            noRoom = true;
            refuseKey(octet);
        }
    };
    toolkit::translateKeys(false);
    const CursorGuard cursor(true);
    for (;;) {
        drawEcho(start, echo, length);
        const int key = toolkit::readPlainKey();
        if (key == kKeyEscape) return -1;
        if (isEnter(key)) break;
        if (isBackspace(key) || key == 127) {
            length = std::max(length - 1, 0);
        } else if (key == kKeyPaste) {
            const SecretText line = pastedLine();
            for (const char octet : line.view()) append(static_cast<unsigned char>(octet));
        } else {
            append(key);
        }
    }
    if (lost) *lost = noRoom;
    buffer[length] = 0;
    return length;
}

int inputPassword(const char* prompt, char* buffer, int size, char echo) {
    return inputPassword(kMessageRow, 0, prompt, buffer, size, echo, false);
}

int displQuestion(int row, int col, const char* text) {
    displText(row, col, "%s", text);
    return askYesNo();
}

int displCentQuestion(int row, const char* text) {
    clrToEol(row, 0);
    return displQuestion(row, toolkit::centred(std::strlen(text)), text);
}

bool askOfLoss(const std::string& question) {
    dropTypedKeys();
    return displCentQuestion(kMessageRow, question.c_str()) == 1;
}

int displQuestion(int row, int col, const char* text, const char* keys) {
    displColText(row, col, "%s", text);
    return askKeys(keys);
}

int displCentQuestion(int row, const char* text, const char* keys) {
    clrToEol(row, 0);
    return displQuestion(row, toolkit::centred(std::strlen(text)), text, keys);
}

int inputRandomText(int row, int col, const char* prompt, std::span<uint8_t> buffer) {
    size_t count = 0;
    return gatherTypedKeys(row, col, prompt, false, [&](uint8_t octet) {
        if (count < buffer.size()) buffer[count++] = octet;
        return static_cast<int>(count);
    });
}

int inputRandomText(int row, int col, const char* prompt, SecretArray<20>& digest) {
    KcHash hash(KcHashAlgo::Sha1);
    int keys = 0;
    const int result = gatherTypedKeys(row, col, prompt, true, [&](uint8_t octet) {
        hash.update(&octet, 1);
        return ++keys;
    });
    if (result >= 0) hash.final(digest);
    return result;
}

}  // namespace crv
