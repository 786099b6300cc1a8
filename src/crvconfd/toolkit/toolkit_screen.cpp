// The screen's life: start and end, signals, the pad, the cursor and the attributes.
#include <curses.h>
#include <langinfo.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "crvconfd/toolkit/encoding.h"
#include "crvconfd/toolkit/toolkit.h"
#include "crvconfd/toolkit/toolkit_internal.h"
#include "misc/c_string.h"
#include "misc/file_semaphore.h"

namespace crv {

namespace {

constexpr std::array kEndSignals{SIGINT, SIGTERM, SIGHUP, SIGQUIT};

/// A terminal that shows less of the screen than this is of no use.
constexpr int kLeastRows = 8;
constexpr int kLeastColumns = 40;
/// Beyond these there is nothing to win, and lines become too long to read.
constexpr int kMostRows = 200;
constexpr int kMostColumns = 160;

struct Screen {
    SCREEN* handle = nullptr;
    WINDOW* pad = nullptr;
    WINDOW* fold = nullptr;  ///< the message row where the terminal is too narrow for it
    int rows = kScreenRows;
    int columns = kScreenColumns;
    int shown = kScreenColumns;
    int least = kScreenRows;
    bool cursorVisible = true;
    std::array<struct sigaction, kEndSignals.size()> before{};
};
Screen screen;

/// The terminal as it was before the screen started, for a handler that cannot wait for the program.
termios startModes;

struct LogicalAttributes {
    int emphasis = 0;
    int selected = 0;
    int header = 0;
    int shortcut = 0;
};
LogicalAttributes attributes;

/// What leaves the screen of curses and shows the cursor again, for the same handler.
std::array<char, 128> leaveSequence;
size_t leaveLength = 0;

/// Terminals that do not know the mode pass over it (ECMA-48 5.4).
constexpr const char* kPasteOn = "\x1b[?2004h";
constexpr const char* kPasteOff = "\x1b[?2004l";

/// Makes the terminal say what is pasted, so that it never runs as commands of a menu.
void markPastes(bool on) {
    std::fputs(on ? kPasteOn : kPasteOff, stdout);
    std::fflush(stdout);
}

void addToLeaveSequence(const char* sequence) {
    const size_t length = std::strlen(sequence);
    if (leaveLength + length > leaveSequence.size()) return;
    std::memcpy(leaveSequence.data() + leaveLength, sequence, length);
    leaveLength += length;
}

void keepLeaveSequence() {
    leaveLength = 0;
    addToLeaveSequence(kPasteOff);
    for (const char* name : {"rmcup", "cnorm", "sgr0"}) {
        const char* sequence = tigetstr(name);
        if (sequence && sequence != reinterpret_cast<const char*>(-1)) addToLeaveSequence(sequence);
    }
}

/// The signal that asked for the end; 0 while none did.
std::atomic<int> endSignal{0};
static_assert(std::atomic<int>::is_always_lock_free, "a signal handler writes it");

void onEndSignal(int signal) {
    if (endSignal.exchange(signal) == 0) {
        setProcessEnding();
        return;
    }
    // Asked twice: the program hangs somewhere, so the terminal is put right from here.
    tcsetattr(STDIN_FILENO, TCSANOW, &startModes);
    [[maybe_unused]] const ssize_t ignored = write(STDOUT_FILENO, leaveSequence.data(), leaveLength);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void catchEndSignals() {
    struct sigaction action {};
    action.sa_handler = onEndSignal;
    // No SA_RESTART: waits are to end. What was ignored at the start (nohup) stays ignored.
    for (size_t i = 0; i < kEndSignals.size(); ++i) {
        sigaction(kEndSignals[i], nullptr, &screen.before[i]);
        if (screen.before[i].sa_handler != SIG_IGN) sigaction(kEndSignals[i], &action, nullptr);
    }
}

void releaseEndSignals() {
    for (size_t i = 0; i < kEndSignals.size(); ++i) sigaction(kEndSignals[i], &screen.before[i], nullptr);
}

std::string terminalName() {
    return orEmpty(std::getenv("TERM"));
}

std::string tooSmall(int columns, int rows) {
    return "Terminal jest za mały: " + std::to_string(columns) + "x" + std::to_string(rows) +
           ", potrzeba co najmniej " + std::to_string(kLeastColumns) + "x" + std::to_string(kLeastRows) + ".";
}

/// Why curses cannot draw the screens on the terminal; empty when it can.
std::string unfitness() {
    if (!tigetstr("cup")) return "Terminal nie umie ustawić kursora (TERM=" + terminalName() + ").";
    return LINES < kLeastRows || COLS < kLeastColumns ? tooSmall(COLS, LINES) : "";
}

void requireTerminal() {
    if (isatty(STDIN_FILENO) == 0 || isatty(STDOUT_FILENO) == 0) {
        throw NoScreen("Program wymaga terminala na standardowym wejściu i wyjściu.");
    }
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0 &&
        (size.ws_row < kLeastRows || size.ws_col < kLeastColumns)) {
        throw NoScreen(tooSmall(size.ws_col, size.ws_row));
    }
}

/// Curses reads texts by LC_CTYPE, so texts in UTF-8 need a locale of UTF-8.
void matchLocale() {
    if (displayEncoding() == DisplayEncoding::Utf8 && std::strcmp(nl_langinfo(CODESET), "UTF-8") != 0) {
        std::setlocale(LC_CTYPE, "C.UTF-8");
    }
}

void setKeyModes() {
    noecho();
    cbreak();
}

int resolve(int code) {
    switch (code) {
        case kAttrEmphasis:
            return attributes.emphasis;
        case kAttrSelected:
            return attributes.selected;
        case kAttrHeader:
            return attributes.header;
        case kAttrShortcut:
            return attributes.shortcut;
        default:
            return code;
    }
}

attr_t cursesAttributes(int code) {
    constexpr std::array<std::pair<int, attr_t>, 4> kBits{
        {{kAttrStandout, A_STANDOUT}, {kAttrReverse, A_REVERSE}, {kAttrBold, A_BOLD}, {kAttrUnderline, A_UNDERLINE}}};
    attr_t result = 0;
    for (const auto& [bit, attribute] : kBits) {
        if ((resolve(code) & bit) != 0) result |= attribute;
    }
    return result;
}

int wantedRows() {
    return std::clamp(LINES, screen.least, kMostRows);
}

int wantedColumns() {
    return std::clamp(COLS, kScreenColumns, kMostColumns);
}

int wantedShown() {
    return std::min(COLS, wantedColumns());
}

void takeSize(int rows, int columns) {
    if (rows == screen.rows && columns == screen.columns) return;
    if (wresize(screen.pad, rows, columns) == ERR) return;
    screen.rows = rows;
    screen.columns = columns;
    // What stood beyond the new edges is no longer drawn over.
    clearok(curscr, TRUE);
}

/// The first row or column to show so that the pen, where the prompt or message in use ends, is seen.
int firstShown(int pen, int shown, int all) {
    return std::clamp(pen - shown + 1, 0, all - shown);
}

/// Columns from the first to behind the last of the message row that hold something, the cursor of an entry included.
std::pair<int, int> usedColumns() {
    const int row = getcury(screen.pad), col = getcurx(screen.pad);
    const auto isBlank = [row](int column) {
        cchar_t cell{};
        std::array<wchar_t, CCHARW_MAX + 1> text{};
        attr_t looks = 0;
        short colours = 0;
        mvwin_wch(screen.pad, row, column, &cell);
        getcchar(&cell, text.data(), &looks, &colours, nullptr);
        return text[0] == L' ' || text[0] == 0;
    };
    int begin = 0, end = screen.columns;
    while (end > 0 && isBlank(end - 1)) --end;
    while (begin < end && isBlank(begin)) ++begin;
    if (screen.cursorVisible) begin = 0, end = std::max(end, col + 1);
    wmove(screen.pad, row, col);
    return {begin, end};
}

/// Column at which the second row goes on: of a message behind a word where there is one, of an entry always the same.
int foldAt(int begin, int end, int columns) {
    const int row = getcury(screen.pad), col = getcurx(screen.pad);
    int fold = begin + columns;
    for (int at = fold; !screen.cursorVisible && at > begin && end - at < columns; --at) {
        if ((mvwinch(screen.pad, row, at) & A_CHARTEXT) != ' ') continue;
        fold = at + 1;
        break;
    }
    wmove(screen.pad, row, col);
    return fold;
}

/// The picture with the message row in use below it, over two rows where one is too short.
void showFolded(int rows, int columns) {
    const int row = getcury(screen.pad), col = getcurx(screen.pad);
    const auto [begin, end] = usedColumns();
    const bool folded = end - begin > columns;
    const int fold = folded ? foldAt(begin, end, columns) : end, lines = folded ? 2 : 1;
    werase(screen.fold);
    if (fold > begin) copywin(screen.pad, screen.fold, row, begin, 0, 0, 0, fold - begin - 1, FALSE);
    if (folded) copywin(screen.pad, screen.fold, row, fold, 1, 0, 1, std::min(end - fold, columns) - 1, FALSE);
    const bool second = folded && col >= fold;
    wmove(screen.fold, second ? 1 : 0, std::clamp(col - (second ? fold : begin), 0, columns - 1));
    pnoutrefresh(screen.pad, screen.rows - 1 - (rows - lines), 0, 0, 0, rows - lines - 1, columns - 1);
    pnoutrefresh(screen.fold, 0, 0, rows - lines, 0, rows - 1, columns - 1);
    doupdate();
}

}  // namespace

namespace toolkit {

WINDOW* pad() {
    return screen.pad;
}

void show() {
    const int rows = std::min(screen.rows, LINES), columns = std::min(screen.columns, COLS);
    const int row = getcury(screen.pad), top = firstShown(row, rows, screen.rows);
    if (row == kMessageRow && columns < screen.columns) return showFolded(rows, columns);
    const int left = screen.cursorVisible ? firstShown(getcurx(screen.pad), columns, screen.columns) : 0;
    pnoutrefresh(screen.pad, top, left, 0, 0, rows - 1, columns - 1);
    doupdate();
}

void noteHangUp() {
    onEndSignal(SIGHUP);
}

void throwIfClosed() {
    if (const int signal = endSignal; signal != 0) throw ScreenClosed(signal);
}

bool translateKeys(bool on) {
    return keypad(screen.pad, on) == ERR;
}

}  // namespace toolkit

namespace {

/// No delscreen: when memory ran out, curses' cache of terminal strings has holes over which its freeing falls. What
/// stays is freed by the end of the process.
void closeScreen() {
    endwin();
    for (WINDOW* one : {screen.pad, screen.fold}) {
        if (one) delwin(one);
    }
    screen.pad = screen.fold = nullptr;
    screen.handle = nullptr;
}

}  // namespace

void initScr() {
    if (wasInitScr()) return;
    requireTerminal();
    matchLocale();
    tcgetattr(STDIN_FILENO, &startModes);
    // newterm and not initscr, which would end the process when the terminal is unknown.
    screen.handle = newterm(nullptr, stdout, stdin);
    if (!screen.handle) throw NoScreen("Nieznany rodzaj terminala (TERM=" + terminalName() + ").");
    if (const std::string why = unfitness(); !why.empty()) {
        closeScreen();
        throw NoScreen(why);
    }
    screen.least = kScreenRows;
    screen.rows = wantedRows();
    screen.columns = wantedColumns();
    screen.shown = wantedShown();
    screen.pad = newpad(screen.rows, screen.columns);
    screen.fold = newpad(2, kMostColumns);
    if (!screen.pad || !screen.fold) {
        closeScreen();
        throw std::bad_alloc();
    }
    screen.cursorVisible = true;
    use_legacy_coding(2);
    set_escdelay(100);
    setKeyModes();
    keepLeaveSequence();
    markPastes(true);
    catchEndSignals();
}

void downScr() {
    if (!wasInitScr()) return;
    try {
        showCursor(true);
        echo();
        clrScr();
        toolkit::show();
    } catch (const std::exception&) {  // the terminal is put right all the same
    }
    markPastes(false);
    closeScreen();
    releaseEndSignals();
}

bool wasInitScr() {
    return screen.handle != nullptr;
}

int screenRows() {
    return screen.rows;
}
int screenColumns() {
    return screen.columns;
}
int shownColumns() {
    return screen.shown;
}

bool isScreenStale() {
    return wantedRows() != screen.rows || wantedColumns() != screen.columns || wantedShown() != screen.shown;
}

void clrScr(int leastRows) {
    screen.least = leastRows;
    screen.shown = wantedShown();
    takeSize(wantedRows(), wantedColumns());
    werase(screen.pad);
    toolkit::movePen(0, 0);
}

void refreshScr() {
    toolkit::show();
}

void clrToEol(int row, int col) {
    if (!toolkit::movePen(row, col)) return;
    wclrtoeol(screen.pad);
    toolkit::show();
}

void suspendScr() {
    clrScr();
    toolkit::show();
    markPastes(false);
    def_prog_mode();
    endwin();
}

void resumeScr() {
    reset_prog_mode();
    setKeyModes();
    markPastes(true);
    clearok(curscr, TRUE);
    toolkit::show();
}

ScreenKeeper::ScreenKeeper() : kept_(dupwin(screen.pad)), least_(screen.least), shown_(screen.shown) {}

ScreenKeeper::~ScreenKeeper() {
    if (!kept_) return;
    takeSize(getmaxy(kept_), getmaxx(kept_));
    screen.least = least_;
    screen.shown = shown_;
    overwrite(kept_, screen.pad);
    delwin(kept_);
    toolkit::show();
}

void beepSignal() {
    beep();
    toolkit::show();
}

bool showCursor(bool visible) {
    const bool before = screen.cursorVisible;
    curs_set(visible ? 1 : 0);
    screen.cursorVisible = visible;
    return before;
}

int moveCursor(int row, int col) {
    if (toolkit::movePen(row, col)) toolkit::show();
    return 1;
}

bool setKeypadMode(bool /*on*/) {
    return toolkit::translateKeys(true);
}

int getEmphasisAttr() {
    return attributes.emphasis;
}
int getSelectedAttr() {
    return attributes.selected;
}
int getHeaderAttr() {
    return attributes.header;
}
int getShortcutAttr() {
    return attributes.shortcut;
}
void setEmphasisAttr(int bits) {
    attributes.emphasis = bits;
}
void setSelectedAttr(int bits) {
    attributes.selected = bits;
}
void setHeaderAttr(int bits) {
    attributes.header = bits;
}
void setShortcutAttr(int bits) {
    attributes.shortcut = bits;
}

void attrOn(int code) {
    wattr_on(screen.pad, cursesAttributes(code), nullptr);
}

void attrOff(int code) {
    wattr_off(screen.pad, cursesAttributes(code), nullptr);
}

}  // namespace crv
