// What the toolkit's sources share: the pad that is the screen, drawing with clipping, and the one place that reads
// keys.
#pragma once

#include <string>
#include <string_view>

#include "crvconfd/toolkit/toolkit.h"
#include "misc/secret.h"

namespace crv::toolkit {

/// The pad on which everything is drawn; a pad keeps its contents whatever size the terminal takes.
_win_st* pad();

/// Brings the terminal up to date with the pad, cut to the terminal's size; what is in use is seen.
void show();

/// Where the next put() draws. The column may be past the right edge, where nothing more is drawn.
struct Pen {
    int row = 0;
    int col = 0;
};
[[nodiscard]] Pen pen();
/// False, without effect, outside the screen.
bool movePen(int row, int col);

/// Draws text of the display encoding at the pen, cut at the right edge or at column limit, whichever comes first.
void put(std::string_view text, int limit = screenColumns());
/// Draws spaces up to, not including, that column.
void fillTo(int column);

/// The next byte or curses code; kNoKey when none came within the milliseconds (negative: wait for ever). Resizes are
/// dealt with here; one that makes the size stale is kListKeyResized where that is wanted. Throws ScreenClosed.
[[nodiscard]] int readKey(int milliseconds = -1, bool resizes = false);
void unreadKey(int key);

/// What followed an ESC that was just read: nothing, one character, or a CSI or SS3 sequence taken in whole ("[5~",
/// "OA").
[[nodiscard]] std::string readEscape(int milliseconds);

/// A byte for inputs that take single keys: bytes as they are, a single ESC as Escape, a paste as kKeyPaste, other
/// sequences as 0.
[[nodiscard]] int readPlainKey(int milliseconds = -1);

/// What was pasted last (bracketed paste), once.
[[nodiscard]] SecretText takePaste();

/// A key for lists: a character, a curses code, or 0 for a sequence that means nothing.
[[nodiscard]] int readListKey();

/// The terminal is gone: as if SIGHUP had come.
void noteHangUp();
/// Throws ScreenClosed once a signal asked for the end.
void throwIfClosed();

/// Switches the translation of key sequences by curses; returns whether that failed.
bool translateKeys(bool on);

/// Column from which that many bytes are centred in what is shown; at least 0.
[[nodiscard]] int centred(size_t bytes);

}  // namespace crv::toolkit
