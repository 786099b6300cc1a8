// Reading keys: the one wait of the console, escape sequences, and the codes that callers see.
#include <curses.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <ctime>
#include <string_view>
#include <utility>

#include "crvconfd/toolkit/toolkit.h"
#include "crvconfd/toolkit/toolkit_internal.h"

namespace crv {

namespace {

static_assert(KEY_DOWN == kListKeyDown && KEY_UP == kListKeyUp && KEY_LEFT == kListKeyLeft &&
              KEY_RIGHT == kListKeyRight && KEY_HOME == kListKeyHome && KEY_BACKSPACE == kListKeyBackspace &&
              KEY_DC == kListKeyDelete && KEY_IC == kListKeyInsert && KEY_NPAGE == kListKeyPageDown &&
              KEY_PPAGE == kListKeyPageUp && KEY_ENTER == kListKeyEnter && KEY_END == kListKeyEnd &&
              KEY_F(1) == kListKeyHelp && KEY_RESIZE == kListKeyResized && ERR == kNoKey);

using Clock = std::chrono::steady_clock;

constexpr int kLoneEscape = 500;         // ms of silence that make a lone ESC an Escape
constexpr int kEscapeTail = 100;         // ms in which the rest of a sequence follows; what comes later is a key
constexpr size_t kLongestSequence = 32;  // longer ones are hostile
constexpr std::chrono::milliseconds kSwallowAfterLone{1000};
constexpr std::chrono::milliseconds kSwallowAfterSingle{300};

// Bracketed paste of xterm: what stands between these, after ESC each, was pasted and not typed.
constexpr std::string_view kPasteBegin = "[200~";
constexpr std::string_view kPasteEnd = "\x1b[201~";
constexpr int kPasteSilence = 2000;  // ms after which a paste without an end is over
constexpr size_t kLongestPaste = 64 * 1024;

/// What was pasted last; perhaps a password.
SecretText pasted;

/// Until then a lone ESC is the second half of a habitual double press.
Clock::time_point swallowUntil;

using KeyTable = std::span<const std::pair<std::string_view, int>>;

constexpr std::array<std::pair<std::string_view, int>, 7> kRawSequences{{
    {"\x1b", kKeyEscape},
    {"D", kKeyPageDown},
    {"M", kKeyPageUp},
    {"[5~", kKeyPageUp},
    {"[6~", kKeyPageDown},
    {"[A", kKeyUp},
    {"[B", kKeyDown},
}};

// What text fields and screens that scroll know besides.
constexpr std::array<std::pair<std::string_view, int>, 19> kFurtherSequences{{
    {"OP", kKeyHelp},  {"[11~", kKeyHelp}, {"[[A", kKeyHelp},   {"[D", kKeyLeft},         {"OD", kKeyLeft},
    {"[C", kKeyRight}, {"OC", kKeyRight},  {"OA", kKeyUp},      {"OB", kKeyDown},         {"[H", kKeyHome},
    {"OH", kKeyHome},  {"[1~", kKeyHome},  {"[7~", kKeyHome},   {"[F", kKeyEnd},          {"OF", kKeyEnd},
    {"[4~", kKeyEnd},  {"[8~", kKeyEnd},   {"[3~", kKeyDelete}, {kPasteBegin, kKeyPaste},
}};

constexpr std::array<std::pair<std::string_view, int>, 1> kPlainSequences{{{kPasteBegin, kKeyPaste}}};

// What curses passes on untranslated because the terminal description has the other form of the key.
constexpr std::array<std::pair<std::string_view, int>, 20> kListSequences{{
    {"\x1b", kKeyEscape}, {"OP", KEY_F(1)}, {"[11~", KEY_F(1)}, {"[[A", KEY_F(1)}, {"[A", KEY_UP},
    {"OA", KEY_UP},       {"[B", KEY_DOWN}, {"OB", KEY_DOWN},   {"[H", KEY_HOME},  {"OH", KEY_HOME},
    {"[1~", KEY_HOME},    {"[F", KEY_END},  {"OF", KEY_END},    {"[4~", KEY_END},  {"[5~", KEY_PPAGE},
    {"[6~", KEY_NPAGE},   {"[2~", KEY_IC},  {"[3~", KEY_DC},    {"[7~", KEY_HOME}, {"[8~", KEY_END},
}};

constexpr std::array<std::pair<int, int>, 12> kTranslatedKeys{{
    {KEY_F(1), kKeyHelp},
    {KEY_DOWN, kKeyDown},
    {KEY_UP, kKeyUp},
    {KEY_LEFT, kKeyLeft},
    {KEY_RIGHT, kKeyRight},
    {KEY_HOME, kKeyHome},
    {KEY_BACKSPACE, kKeyBackspace},
    {KEY_DC, kKeyBackspace},
    {KEY_NPAGE, kKeyPageDown},
    {KEY_PPAGE, kKeyPageUp},
    {KEY_ENTER, kKeyEnter},
    {KEY_END, kKeyEnd},
}};

constexpr std::array<std::pair<int, int>, 3> kRawControls{{{2, kKeyPageUp}, {6, kKeyPageDown}, {127, kKeyBackspace}}};

template <typename Table, typename Key>
int findSequence(const Table& table, const Key& key, int otherwise) {
    for (const auto& [known, code] : table) {
        if (known == key) return code;
    }
    return otherwise;
}

/// Holds back the signals that a wait must see, so that none slips in between the look for input and the wait for it.
class SignalMask {
  public:
    SignalMask() {
        sigset_t held;
        sigemptyset(&held);
        for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGWINCH}) sigaddset(&held, signal);
        pthread_sigmask(SIG_BLOCK, &held, &before_);
    }
    ~SignalMask() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    SignalMask(const SignalMask&) = delete;
    SignalMask& operator=(const SignalMask&) = delete;
    [[nodiscard]] const sigset_t* before() const { return &before_; }

  private:
    sigset_t before_{};
};

/// Readable without a byte to read: the terminal is gone.
bool hungUp() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    int available = 0;
    return poll(&input, 1, 0) == 1 && (ioctl(STDIN_FILENO, FIONREAD, &available) != 0 || available == 0);
}

constexpr int kIdleStep = 500;  // ms
void (*idleWork)() = nullptr;

/// A curses code or byte that is there already, after dealing with resizes; kNoKey when there is none.
int takeKey(bool resizes) {
    wtimeout(toolkit::pad(), 0);
    for (;;) {
        const int key = wgetch(toolkit::pad());
        if (key != KEY_RESIZE) return key;
        clearok(curscr, TRUE);
        toolkit::show();
        if (resizes && isScreenStale()) return key;
    }
}

/// Takes in a paste that has begun, up to its end; beyond the longest the rest is dropped.
void readPaste() {
    pasted.clear();
    std::string_view end = kPasteEnd;
    while (!end.empty()) {
        const int key = toolkit::readKey(kPasteSilence);
        if (key == kNoKey) return;
        const char octet = static_cast<char>(key);
        if (octet == end.front()) {
            end.remove_prefix(1);
            continue;
        }
        // What began like the end belongs to the paste.
        pasted.append(kPasteEnd.substr(0, kPasteEnd.size() - end.size()));
        end = kPasteEnd;
        if (octet == end.front()) {
            end.remove_prefix(1);
        } else if (pasted.size() < kLongestPaste) {
            pasted.append({&octet, 1});
        }
    }
}

bool inputWaits() {
    pollfd input{STDIN_FILENO, POLLIN, 0};
    return poll(&input, 1, 0) == 1;
}

void doIdleWork() {
    idleWork();
    toolkit::show();
}

/// Waits for input or a signal; false when the deadline has passed.
bool waitForInput(int milliseconds, Clock::time_point deadline, const sigset_t* mask) {
    timespec left{};
    if (milliseconds >= 0) {
        const auto ns = std::chrono::duration_cast<std::chrono::nanoseconds>(deadline - Clock::now()).count();
        if (ns <= 0) return false;
        left = {static_cast<time_t>(ns / 1000000000), static_cast<long>(ns % 1000000000)};
    }
    pollfd input{STDIN_FILENO, POLLIN, 0};
    ppoll(&input, 1, milliseconds < 0 ? nullptr : &left, mask);
    return true;
}

/// kNoKey: an Escape, with silence behind it or another key that a person pressed.
int decodeRaw(int key, KeyTable further) {
    if (key != kKeyEscape) return findSequence(kRawControls, key, key);
    const auto pressed = Clock::now();
    const std::string sequence = toolkit::readEscape(kLoneEscape);
    if (sequence.empty()) return kNoKey;
    if (sequence.size() == 1 && sequence[0] != '\x1b' &&
        Clock::now() - pressed > std::chrono::milliseconds(kEscapeTail)) {
        toolkit::unreadKey(static_cast<unsigned char>(sequence[0]));
        return kNoKey;
    }
    const std::string_view text = sequence;
    return findSequence(kRawSequences, text, findSequence(further, text, 0));
}

/// A key as getKey answers it on a terminal whose sequences are decoded here.
int readDecoded(int milliseconds, KeyTable further = {}, bool resizes = false) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
    for (;;) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
        const int key = toolkit::readKey(milliseconds < 0 ? -1 : std::max(static_cast<int>(left), 0), resizes);
        if (key == kNoKey) return kNoKey;
        if (key == KEY_RESIZE) return kKeyResized;
        const auto pressed = Clock::now();
        const int code = decodeRaw(key, further);
        if (code != kNoKey) return code;
        const bool second = pressed < swallowUntil;
        swallowUntil = second ? Clock::time_point{} : Clock::now() + kSwallowAfterLone;
        if (!second) return kKeyEscape;
    }
}

int readTranslated(bool resizes) {
    const int key = toolkit::readKey(-1, resizes);
    if (key == KEY_RESIZE) return kKeyResized;
    return key == kKeyEscape ? toolkit::readKey() : findSequence(kTranslatedKeys, key, key);
}

int readAnyKey(KeyTable further, bool resizes = false) {
    const bool refused = setKeypadMode(true);
    toolkit::translateKeys(refused);
    return refused ? readTranslated(resizes) : readDecoded(-1, further, resizes);
}

/// What an ESC means where one is enough: Escape, or the code of the sequence that it begins.
int decodeSingleEscape(int milliseconds, KeyTable sequences) {
    const std::string sequence = toolkit::readEscape(milliseconds);
    if (sequence.size() > 1) return findSequence(sequences, std::string_view{sequence}, 0);
    if (sequence.size() == 1 && sequence[0] != '\x1b') toolkit::unreadKey(static_cast<unsigned char>(sequence[0]));
    swallowUntil = Clock::now() + kSwallowAfterSingle;
    return kKeyEscape;
}

}  // namespace

namespace toolkit {

int readKey(int milliseconds, bool resizes) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
    show();
    const SignalMask mask;
    bool waited = false;
    for (;;) {
        throwIfClosed();
        const int key = takeKey(resizes);
        if (key != ERR) return key;
        if (waited && hungUp()) {
            noteHangUp();
            continue;
        }
        if (idleWork && milliseconds < 0) {
            waited = waitForInput(kIdleStep, Clock::now() + std::chrono::milliseconds(kIdleStep), mask.before());
            if (!inputWaits()) doIdleWork();
            continue;
        }
        if (!waitForInput(milliseconds, deadline, mask.before())) return kNoKey;
        waited = true;
    }
}

void unreadKey(int key) {
    ungetch(key);
}

std::string readEscape(int milliseconds) {
    const int first = readKey(milliseconds);
    if (first == kNoKey || first > 255) return {};
    std::string sequence(1, static_cast<char>(first));
    const auto take = [&sequence] {
        const int key = readKey(kLoneEscape);
        if (key >= 0 && key <= 255) sequence += static_cast<char>(key);
        return key;
    };
    if (first == 'O') {
        take();
    } else if (first == '[') {
        // Parameters and intermediate bytes, then a final byte from 0x40 to 0x7E (ECMA-48 5.4); "[[A" is the Linux
        // console's F1.
        int key = take();
        if (key == '[') key = take();
        while (key >= 0x20 && key < 0x40 && sequence.size() < kLongestSequence) key = take();
    }
    if (sequence == kPasteBegin) readPaste();
    return sequence;
}

int readPlainKey(int milliseconds) {
    const int key = readKey(milliseconds);
    return key == kKeyEscape ? decodeSingleEscape(kEscapeTail, kPlainSequences) : key;
}

SecretText takePaste() {
    return std::exchange(pasted, {});
}

int readListKey() {
    const int key = readKey(-1, true);
    // Curses has waited for the rest of a sequence already.
    return key == kKeyEscape ? decodeSingleEscape(0, kListSequences) : key;
}

}  // namespace toolkit

int getKey() {
    return readAnyKey({});
}

int getScrollKey() {
    return readAnyKey(kFurtherSequences);
}

int getScreenKey() {
    return readAnyKey(kFurtherSequences, true);
}

void dropTypedKeys() {
    static_cast<void>(escapePressed());
}

bool escapePressed() {
    toolkit::translateKeys(false);
    bool escape = false;
    for (int key = toolkit::readKey(0); key != kNoKey; key = toolkit::readKey(0))
        escape = escape || (key == kKeyEscape && decodeSingleEscape(kEscapeTail / 2, kPlainSequences) == kKeyEscape);
    return escape;
}

IdleWork::IdleWork(void (*work)()) : before_(std::exchange(idleWork, work)) {}

IdleWork::~IdleWork() {
    idleWork = before_;
}

int waitForKeyOrTimeout(int tenths) {
    toolkit::translateKeys(false);
    return readDecoded(std::max(tenths, 0) * 100);
}

}  // namespace crv
