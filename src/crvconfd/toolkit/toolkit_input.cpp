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
#include "crvconfd/toolkit/toolkit.h"
#include "crvconfd/toolkit/toolkit_internal.h"
#include "crypto/kc_hash.h"

namespace crv {

namespace {

constexpr size_t kNumberDigits = 39;

bool isEnter(int key) {
    return key == kKeyEnter || key == '\r';
}

bool isBackspace(int key) {
    return key == kKeyBackspace || key == KEY_BACKSPACE;
}

/// Where typed text stands on the row: from a column on, so many columns wide, the last one kept free for the cursor.
struct Field {
    int row;
    int col;
    int width;

    void draw(std::string_view text) const {
        const int room = width - 1;
        const bool hidden = static_cast<int>(text.size()) > room;
        if (!toolkit::movePen(row, col)) return;
        if (hidden) {
            {
                const AttrGuard guard(kAttrStandout);
                toolkit::put("<");
            }
            text.remove_prefix(text.size() - static_cast<size_t>(std::max(room - 1, 0)));
        }
        toolkit::put(pl(text), col + room);
        const toolkit::Pen end = toolkit::pen();
        toolkit::fillTo(col + width);
        toolkit::movePen(end.row, std::min(end.col, kScreenColumns - 1));
    }
};

/// Draws the prompt and says what is left of the row behind it.
Field promptField(int row, int col, const char* prompt, int width) {
    const std::string shown = pl(prompt);
    displTextNoPl(row, col, "%s", shown.c_str());
    const int left = kScreenColumns - (col + static_cast<int>(shown.size()));
    return {row, std::min(toolkit::pen().col, kScreenColumns - 1), width > 0 ? std::min(width, left) : left};
}

/// Beeps for a key that types something and found no room or no favour.
void refuseKey(int key) {
    if (key >= 32 && key <= 255) beepSignal();
}

/// Edits text of at most size - 1 bytes until Enter (true) or Escape; accepts tells which keys are appended. lost: the
/// last key that was accepted found no room.
template <typename Accepts>
bool editLine(const Field& field, char* buffer, int size, int& length, bool& lost, Accepts accepts) {
    const CursorGuard cursor(true);
    for (;;) {
        field.draw({buffer, static_cast<size_t>(length)});
        const int key = getKey();
        if (isEnter(key) || key == kKeyEscape) return key != kKeyEscape;
        if (isBackspace(key)) {
            length = std::max(length - 1, 0);
            lost = false;
        } else if (accepts(key) && length < size - 1) {
            buffer[length++] = static_cast<char>(key);
        } else {
            lost = lost || accepts(key);
            refuseKey(key);
        }
    }
}

void drawEcho(const toolkit::Pen& start, char echo, int length) {
    if (echo == 0 || !toolkit::movePen(start.row, start.col)) return;
    toolkit::put(std::string(static_cast<size_t>(std::min(length, kScreenColumns)), echo), kScreenColumns - 1);
    const int end = toolkit::pen().col;
    toolkit::fillTo(kScreenColumns);
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
    const int counter = std::min(toolkit::pen().col, kScreenColumns - 1);
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

int input_yx(int row, int col, const char* prompt, char* buffer, int size, int lowest, int start, int width,
             bool* lost) {
    const Field field = promptField(row, col, prompt, width);
    int length = std::clamp(start, 0, size - 1);
    bool noRoom = false;
    const bool entered =
        editLine(field, buffer, size, length, noRoom, [lowest](int key) { return key >= lowest && key <= 127; });
    if (lost) *lost = noRoom;
    clrToEol(row, col);
    buffer[length] = 0;
    return entered ? length : -1;
}

int inputText(int row, int col, const char* prompt, char* buffer, int size, int start, int width) {
    return input_yx(row, col, prompt, buffer, size, 32, start, width);
}

int inputWord(int row, int col, const char* prompt, char* buffer, int size, int start, int width) {
    return input_yx(row, col, prompt, buffer, size, 33, start, width);
}

int input_positive_number_yx(int row, int col, const char* prompt) {
    std::array<char, kNumberDigits + 1> digits{};
    const Field field = promptField(row, col, prompt, 0);
    int length = 0;
    bool lost = false;  // does not matter: the number is beyond all others by then
    const bool entered = editLine(field, digits.data(), static_cast<int>(digits.size()), length, lost,
                                  [](int key) { return key >= '0' && key <= '9'; });
    clrToEol(row, col);
    if (!entered) return -1;
    if (length == 0) return -2;
    digits[static_cast<size_t>(length)] = 0;
    // Saturates at LONG_MAX by itself.
    return static_cast<int>(std::min<long>(std::strtol(digits.data(), nullptr, 10), INT_MAX));
}

int inputPassword(int row, int col, const char* prompt, char* buffer, int size, char echo, bool keep, bool* lost) {
    clrToEol(row, 0);
    displText(row, col, "%s", prompt);
    const toolkit::Pen start = {row, std::min(toolkit::pen().col, kScreenColumns - 1)};
    int length = keep ? static_cast<int>(strnlen(buffer, static_cast<size_t>(size - 1))) : 0;
    bool noRoom = false;
    toolkit::translateKeys(false);
    const CursorGuard cursor(true);
    for (;;) {
        drawEcho(start, echo, length);
        const int key = toolkit::readPlainKey();
        if (key == kKeyEscape) return -1;
        if (isEnter(key)) break;
        if (isBackspace(key) || key == 127) {
            length = std::max(length - 1, 0);
        } else if (key >= 1 && key <= 255 && length < size - 1) {
            buffer[length++] = static_cast<char>(key);
        } else if (key >= 1 && key <= 255) {
            // For good: nobody sees which octet Backspace would take.
            noRoom = true;
            refuseKey(key);
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
