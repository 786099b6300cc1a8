// The console's toolkit: everything that a screen draws and reads goes through these functions over one screen of 80
// columns by 24 rows, or of the terminal's size where that is larger. Curses stands in the toolkit's source only.
//
// Texts are UTF-8 and pass through pl() on their way, unless a function says that it takes text of the display
// encoding. A text that is longer than its row is cut on a character at the right edge; it never runs on to the next
// row, and a centred one never starts left of column 0. Control characters are drawn as "?", so data from files never
// reaches the terminal raw. Lengths and centring count bytes. Functions with a format take printf formats: data is
// never the format, "%s" is. At most 256 bytes remain after formatting. Moves outside the screen are ignored.
//
// A smaller terminal shows the rows in which something was drawn or typed last, and folds the message row over two of
// its rows. A larger one gives the screen its rows and columns from the next clrScr() on: what is drawn keeps its place
// until then.
//
// The terminal may be resized and the process suspended at any time: the contents survive and are drawn again. When the
// process is asked to end (SIGINT, SIGTERM, SIGHUP, SIGQUIT) or the terminal hangs up, whichever function waits for a
// key throws ScreenClosed.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <stdexcept>
#include <string>

#include "misc/secret.h"

struct _win_st;  // NOLINT(bugprone-reserved-identifier): the tag that curses gives its windows

namespace crv {

/// The least screen.
inline constexpr int kScreenRows = 24;
inline constexpr int kScreenColumns = 80;
/// The screen as it was cleared last.
[[nodiscard]] int screenRows();
[[nodiscard]] int screenColumns();
/// Those of its columns that the terminal had room for then: the width of what is drawn outside the message row.
[[nodiscard]] int shownColumns();

/// A row that is as far from the bottom of every screen as from that of the least.
struct BottomRow {
    int ofLeast;
    operator int() const {  // NOLINT(google-explicit-constructor): it is the number of a row wherever one is wanted
        return ofLeast + screenRows() - kScreenRows;
    }
};
/// The row of messages, questions and prompts.
inline constexpr BottomRow kMessageRow{23};
/// Where contents begin, and the row of the keys below them.
inline constexpr int kFirstRow = 2;
inline constexpr BottomRow kFooterRow{22};

/// Keys as getKey answers them; every other key is its character code, 0 an escape sequence that is not known.
enum InternalKey : int {
    kKeyBackspace = 8,
    kKeyEnter = 10,
    kKeyEscape = 27,
    kKeyUp = 1072,
    kKeyPageUp = 1073,
    kKeyLeft = 1074,
    kKeyHome = 1075,
    kKeyDown = 1080,
    kKeyPageDown = 1081,
    kKeyRight = 1082,
    kKeyEnd = 1083,
    kKeyDelete = 1084,  ///< from getScrollKey only, as the next ones
    kKeyPaste = 1085,
    kKeyHelp = 1086,     ///< F1
    kKeyResized = 1087,  ///< from getScreenKey only: the screen would have another size if it was cleared now
};

/// Keys as a list menu's callback sees them: curses' own codes (checked against curses in the source).
enum ListKey : int {
    kListKeyDown = 0402,
    kListKeyUp = 0403,
    kListKeyLeft = 0404,
    kListKeyRight = 0405,
    kListKeyHome = 0406,
    kListKeyHelp = 0411,  ///< F1
    kListKeyBackspace = 0407,
    kListKeyDelete = 0512,
    kListKeyInsert = 0513,
    kListKeyPageDown = 0522,
    kListKeyPageUp = 0523,
    kListKeyEnter = 0527,
    kListKeyEnd = 0550,
    kListKeyResized = 0632,  ///< as kKeyResized
};

/// What waitForKeyOrTimeout answers when the time ran out (curses' error value).
inline constexpr int kNoKey = -1;

/// Bits of an attribute; 0 draws plainly.
enum AttrBit : int { kAttrStandout = 1, kAttrReverse = 2, kAttrBold = 4, kAttrUnderline = 8 };

/// Pseudo-attribute codes: they stand for whatever the logical attribute is set to.
enum AttrCode : int { kAttrEmphasis = 4096, kAttrSelected = 4097, kAttrHeader = 4098, kAttrShortcut = 4099 };

/// The screen cannot be started: no terminal, an unknown one, or one below 40x8. The text is Polish, for standard
/// error.
class NoScreen : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// The process was asked to end while a key was awaited. Deliberately no std::exception, so that no handler of errors
/// on the way keeps the program running; the entry point ends the screen and then the process by the signal.
class ScreenClosed {
  public:
    explicit ScreenClosed(int signal) : signal_(signal) {}
    [[nodiscard]] int signal() const { return signal_; }

  private:
    int signal_;
};

// Screen control

/// Starts the screen: no echo, a key at a time; takes over SIGINT, SIGTERM, SIGHUP and SIGQUIT. Throws NoScreen.
void initScr();
/// Clears and ends a started screen and gives the signals back; does nothing otherwise.
void downScr();
[[nodiscard]] bool wasInitScr();
/// Whether it would have another size if it was cleared now.
[[nodiscard]] bool isScreenStale();
/// A screen that finds its places from the bottom may have fewer rows, down to so many, on a terminal that has no more.
void clrScr(int leastRows = kScreenRows);
/// Shows what was drawn so far without waiting for a key: before work that takes a while.
void refreshScr();
/// Clears from (row, col) to the end of the line.
void clrToEol(int row, int col);
/// Leaves the screen to run something outside it (cleared, the terminal as it was before initScr), and takes it back.
void suspendScr();
void resumeScr();
void beepSignal();
/// Returns whether the cursor was visible before.
bool showCursor(bool visible);
/// Returns 1. A position outside the screen leaves the cursor where it is.
int moveCursor(int row, int col);
/// Turns keypad translation on, whatever the argument, and returns whether that failed.
bool setKeypadMode(bool on);

[[nodiscard]] int getEmphasisAttr();
[[nodiscard]] int getSelectedAttr();
[[nodiscard]] int getHeaderAttr();
[[nodiscard]] int getShortcutAttr();
void setEmphasisAttr(int bits);
void setSelectedAttr(int bits);
void setHeaderAttr(int bits);
void setShortcutAttr(int bits);
/// Switches an attribute (AttrCode or a set of AttrBit) on or off for what is drawn from now on.
void attrOn(int code);
void attrOff(int code);

/// What the screen showed stands there again at the end of the scope.
class ScreenKeeper {
  public:
    ScreenKeeper();
    ~ScreenKeeper();
    ScreenKeeper(const ScreenKeeper&) = delete;
    ScreenKeeper& operator=(const ScreenKeeper&) = delete;

  private:
    _win_st* kept_;
    int least_, shown_;
};

/// Shows or hides the cursor for a scope.
class CursorGuard {
  public:
    explicit CursorGuard(bool visible) : before_(showCursor(visible)) {}
    ~CursorGuard() { showCursor(before_); }
    CursorGuard(const CursorGuard&) = delete;
    CursorGuard& operator=(const CursorGuard&) = delete;

  private:
    bool before_;
};

/// An attribute for a scope.
class AttrGuard {
  public:
    explicit AttrGuard(int code) : code_(code) { attrOn(code_); }
    ~AttrGuard() { attrOff(code_); }
    AttrGuard(const AttrGuard&) = delete;
    AttrGuard& operator=(const AttrGuard&) = delete;

  private:
    int code_;
};

// Text output

/// Columns that a text takes once it is converted and drawn.
[[nodiscard]] size_t columnsOf(std::string_view text);
/// Bytes at the front of a text that fit so many columns.
[[nodiscard]] size_t bytesWithin(std::string_view text, size_t columns);
/// The text in exactly so many columns: cut, or filled up with spaces.
[[nodiscard]] std::string fitText(std::string_view text, size_t columns);

/// As displText, without the limit of 256 bytes: for lines that screens have cut to their width.
void displLine(int row, int col, std::string_view text);
[[gnu::format(printf, 3, 4)]] void displText(int row, int col, const char* format, ...);
/// As displText, for text that is in the display encoding already.
[[gnu::format(printf, 3, 4)]] void displTextNoPl(int row, int col, const char* format, ...);
/// Centred on the bytes of the converted text; the rest of the line stays.
[[gnu::format(printf, 2, 3)]] void displCentText(int row, const char* format, ...);
/// "~" marks the letter after it as a mnemonic: drawn in the shortcut attribute, or in upper case when that is 0.
[[gnu::format(printf, 3, 4)]] void displColText(int row, int col, const char* format, ...);
/// As displColText, centred on the bytes that are not "~"; an empty text is placed at column 40.
[[gnu::format(printf, 2, 3)]] void displCentColText(int row, const char* format, ...);
/// A bar of the full width in the header attribute, the text centred in it; more bytes than columns are cut and end in
/// "...".
[[gnu::format(printf, 2, 3)]] void displHeader(int row, const char* format, ...);
/// Clears the row, shows the text for up to 2 x n seconds or until a key, and clears the row again.
void displInfo(int row, int col, const char* text, int n);
void displCentInfo(int row, const char* text, int n);
/// Clears the row, beeps and shows the text centred for up to 4 seconds or until a key that is typed now: keys typed
/// before nobody meant for it.
[[gnu::format(printf, 2, 3)]] void errInfo(int row, const char* format, ...);
/// The same without an end: for failures by which something is lost unless the user does something.
[[gnu::format(printf, 2, 3)]] void warnInfo(int row, const char* format, ...);
/// Is told the text of every message, question aside, for a report; null: nobody.
using MessageObserver = void (*)(const std::string& text);
void observeMessages(MessageObserver observer);
/// Draws text of the display encoding at the cursor with "~" mnemonics; a negative length means the whole text.
void printTextWithShortcuts(const char* text, int length);

// Input

/// One key as an internal code. A lone ESC counts as Escape after 500 ms of silence (a second one within a second after
/// that is swallowed), or when another key follows after 100 ms; ESC ESC is Escape at once; any other sequence that is
/// not known is taken in whole and answers 0.
[[nodiscard]] int getKey();
/// The same with both sides, both ends, Delete, F1 and pastes: for text fields and screens that scroll.
[[nodiscard]] int getScrollKey();

/// The same for screens that can draw themselves anew: answers kKeyResized, too.
[[nodiscard]] int getScreenKey();

class LineEditor;

/// Where a line is typed and what may stand in it.
struct LineField {
    int row;
    int col;
    const char* prompt;
    int width = 0;    ///< columns of the field; 0: up to the right edge
    int lowest = 32;  ///< code of the first character that is accepted: 33 takes no spaces
};
/// Offered each key that neither types nor edits (Tab, Up, Down ...); answers whether it was of use.
using LineKey = std::function<bool(int key, LineEditor& line)>;

/// Edits a line until Enter (true) or Escape; the prompt disappears. Typed characters of the display encoding become
/// UTF-8; what is pasted goes in as far as it is accepted. What is not accepted or finds no room beeps.
bool editLine(const LineField& field, LineEditor& line, const LineKey& other = {});

/// editLine in the caller's buffer of size bytes, the terminating zero included. The first start bytes of the buffer
/// are kept and edited further. Returns the length on Enter, -1 on Escape (the buffer keeps what was typed).
int input_yx(int row, int col, const char* prompt, char* buffer, int size, int lowest, int start = 0, int width = 0);
/// input_yx from code 32 (space) upward.
int inputText(int row, int col, const char* prompt, char* buffer, int size, int start = 0, int width = 0);
/// input_yx from code 33 upward: no spaces.
int inputWord(int row, int col, const char* prompt, char* buffer, int size, int start = 0, int width = 0);

/// The number typed (digits only, at most 39; INT_MAX stands for everything above it); -2 for Enter on an empty field,
/// -1 on Escape.
int input_positive_number_yx(int row, int col, const char* prompt);

/// Reads a password into the caller's buffer of size bytes; bytes 128 to 255 are taken as typed or pasted. For
/// each byte one echo character is drawn, nothing for 0. With keep, the text already in the buffer is continued. Keys
/// beep when the buffer is full; lost, when given, receives whether one did.
/// Returns the length on Enter; -1 on Escape, with the buffer unterminated: wipe it all. The line is not cleared
/// afterwards.
int inputPassword(int row, int col, const char* prompt, char* buffer, int size, char echo, bool keep,
                  bool* lost = nullptr);
/// The same on the message row, column 0, without keeping.
int inputPassword(const char* prompt, char* buffer, int size, char echo);

/// 1 for "t" or "T", 0 for "n" or "N"; other keys are ignored.
[[nodiscard]] int displQuestion(int row, int col, const char* text);
/// The same, centred, after clearing the row.
[[nodiscard]] int displCentQuestion(int row, const char* text);
/// displCentQuestion on the message row where an answer loses something: keys typed before nobody meant for it.
[[nodiscard]] bool askOfLoss(const std::string& question);
/// Shows the text with mnemonics and returns the first key typed that stands in keys (exact case), or -1 on Escape.
[[nodiscard]] int displQuestion(int row, int col, const char* text, const char* keys);
/// The same, centred on the length of the text.
[[nodiscard]] int displCentQuestion(int row, const char* text, const char* keys);

/// Gathers a byte a key, mixed from the key and the time that it took, until Enter or Escape; keys beyond the buffer
/// are ignored. Returns the number of bytes, or -1 on Escape. " - n" after the prompt counts along.
int inputRandomText(int row, int col, const char* prompt, std::span<uint8_t> buffer);

/// The same with a SHA-1 digest of the bytes instead of the bytes, for any number of keys.
int inputRandomText(int row, int col, const char* prompt, SecretArray<20>& digest);

/// Waits up to that many tenths of a second: the key as getKey decodes it, or kNoKey.
[[nodiscard]] int waitForKeyOrTimeout(int tenths);

/// Forgets what was typed and not read yet.
void dropTypedKeys();

/// Takes the keys that were typed meanwhile; whether one of them was Escape. One ESC is enough, and is told within a
/// twentieth of a second.
[[nodiscard]] bool escapePressed();

/// Work that goes on twice a second while somebody waits for a key without an end, for the time of a scope. It must
/// neither read keys nor take long; what it draws is shown.
class IdleWork {
  public:
    explicit IdleWork(void (*work)());
    ~IdleWork();
    IdleWork(const IdleWork&) = delete;
    IdleWork& operator=(const IdleWork&) = delete;

  private:
    void (*before_)();
};

/// What a list menu's callback wants done with the key.
enum class ShowMenuListCallbackRet : int {
    Continue = 0,       ///< default handling of the key
    NextKey = 1,        ///< key consumed
    Redraw = 2,         ///< draw the list again and go on
    LeaveCancel = 3,    ///< leave with -1
    LeaveSelected = 4,  ///< leave with the current index, if an entry is selected
};

/// Called with each key (a character or a ListKey) and the current index (-1: none). It may draw and read keys itself.
using ShowMenuListCallback = std::function<ShowMenuListCallbackRet(int key, int index)>;

/// A scrolling list. selected outside the items means that nothing is selected at first; rows is the number of visible
/// items, 0 for as many as fit. Framed, the items stand one row below and one column right of (row, col). Returns the
/// index chosen with Enter, or -1.
[[nodiscard]] int showMenuList(int row, int col, std::span<const std::string> items, int selected, int rows,
                               bool framed, const ShowMenuListCallback& callback = {});
/// showMenuList in the middle: column (80 - w) / 2, where w is the longest item + 4 when framed, + 1 otherwise.
[[nodiscard]] int showCentMenuList(int row, std::span<const std::string> items, int selected, int rows, bool framed,
                                   const ShowMenuListCallback& callback = {});

}  // namespace crv
