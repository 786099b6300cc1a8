#include "support/screen/screen_program.h"

#include <fcntl.h>
#include <poll.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <vterm.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>

#include "misc/utf8.h"

namespace crv::test {

namespace {

/// Silence, in milliseconds, after which a screen counts as drawn.
constexpr int kSettle = 20;

using Clock = std::chrono::steady_clock;

/// In the child: becomes the program.
[[noreturn]] void become(const ScreenProgram::Start& start) {
    std::vector<char*> arguments;
    for (const std::string& text : start.arguments) arguments.push_back(const_cast<char*>(text.c_str()));
    arguments.push_back(nullptr);
    std::map<std::string, std::string> environment = start.environment;
    environment.insert({{"PATH", "/usr/bin:/bin"}, {"TERM", "xterm-256color"}, {"LANG", "C.UTF-8"}});
    clearenv();
    for (const auto& [name, value] : environment)
        if (!value.empty()) setenv(name.c_str(), value.c_str(), 1);
    execv(arguments[0], arguments.data());
    _exit(127);
}

winsize sizeOf(int rows, int columns) {
    return {static_cast<unsigned short>(rows), static_cast<unsigned short>(columns), 0, 0};
}

}  // namespace

/// What the terminal emulator calls back.
struct ScreenProgram::Watcher {
    static int onProperty(VTermProp property, VTermValue* value, void* user) {
        auto* self = static_cast<ScreenProgram*>(user);
        if (property == VTERM_PROP_CURSORVISIBLE) self->cursorVisible_ = value->boolean != 0;
        if (property == VTERM_PROP_TITLE) self->title_ = value->string;
        return 1;
    }
    static int onBell(void* user) { return ++static_cast<ScreenProgram*>(user)->bells_; }
    static void onAnswer(const char* bytes, size_t length, void* user) {
        [[maybe_unused]] const ssize_t ignored = write(static_cast<ScreenProgram*>(user)->master_, bytes, length);
    }
};

ScreenProgram::ScreenProgram(const Start& start)
    : terminal_(vterm_new(start.rows, start.columns)),
      screen_(vterm_obtain_screen(terminal_)),
      rows_(start.rows),
      columns_(start.columns) {
    static const VTermScreenCallbacks kCallbacks = [] {
        VTermScreenCallbacks callbacks{};
        callbacks.settermprop = Watcher::onProperty;
        callbacks.bell = Watcher::onBell;
        return callbacks;
    }();
    vterm_set_utf8(terminal_, start.utf8 ? 1 : 0);
    vterm_output_set_callback(terminal_, Watcher::onAnswer, this);
    vterm_screen_enable_altscreen(screen_, 1);
    vterm_screen_set_callbacks(screen_, &kCallbacks, this);
    vterm_screen_reset(screen_, 1);
    startChild(start);
}

void ScreenProgram::startChild(const Start& start) {
    const int errors = open(folder_.file("errors").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    const winsize size = sizeOf(rows_, columns_);
    child_ = forkpty(&master_, nullptr, nullptr, &size);
    if (child_ == 0) {
        dup2(errors, STDERR_FILENO);
        become(start);
    }
    close(errors);
    if (child_ < 0 || errors < 0) throw ScreenFailure("cannot start " + start.arguments[0]);
    fcntl(master_, F_SETFD, FD_CLOEXEC);
    fcntl(master_, F_SETFL, O_NONBLOCK);
}

ScreenProgram::~ScreenProgram() {
    reap(false);
    if (!ended_) {
        kill(child_, SIGKILL);
        reap(true);
    }
    if (master_ >= 0) close(master_);
    vterm_free(terminal_);
}

bool ScreenProgram::more(int wait) const {
    pollfd output{master_, POLLIN, 0};
    return poll(&output, 1, wait) == 1;
}

bool ScreenProgram::take(std::chrono::milliseconds wait) {
    if (master_ < 0) return false;
    if (!more(static_cast<int>(wait.count()))) return true;
    std::array<char, 4096> bytes;
    const ssize_t count = read(master_, bytes.data(), bytes.size());
    if (count > 0) vterm_input_write(terminal_, bytes.data(), static_cast<size_t>(count));
    return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
}

void ScreenProgram::reap(bool block) {
    int result = 0;
    if (ended_ || waitpid(child_, &result, block ? 0 : WNOHANG) != child_) return;
    ended_ = true;
    status_ = WIFEXITED(result) ? WEXITSTATUS(result) : 128 + WTERMSIG(result);
}

void ScreenProgram::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(master_, bytes.data(), bytes.size());
        if (count < 0 && errno != EAGAIN) throw ScreenFailure("the program takes no more keys\n" + picture());
        if (count < 0) take(std::chrono::milliseconds(10));
        bytes.remove_prefix(static_cast<size_t>(std::max<ssize_t>(count, 0)));
    }
}

void ScreenProgram::waitUntil(const std::string& what, const std::function<bool()>& condition,
                              std::chrono::milliseconds deadline) {
    const auto end = Clock::now() + deadline;
    while (!condition()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        if (left.count() <= 0) throw ScreenFailure("waited in vain until " + what + "\n" + picture());
        if (!take(left) && !condition()) throw ScreenFailure("the program ended before " + what + "\n" + picture());
    }
    // What was waited for need not be the last thing drawn: take in the rest as long as it keeps coming.
    for (int rest = 0; rest < 100 && more(kSettle); ++rest)
        if (!take(std::chrono::milliseconds(0))) break;
}

void ScreenProgram::waitFor(std::string_view text, std::chrono::milliseconds deadline) {
    waitUntil(
        "\"" + std::string(text) + "\" shows", [&] { return shows(text); }, deadline);
}

void ScreenProgram::waitGone(std::string_view text, std::chrono::milliseconds deadline) {
    waitUntil(
        "\"" + std::string(text) + "\" is gone", [&] { return !shows(text); }, deadline);
}

int ScreenProgram::waitExit(std::chrono::milliseconds deadline) {
    const auto end = Clock::now() + deadline;
    for (reap(false); !ended_; reap(false)) {
        if (Clock::now() >= end) throw ScreenFailure("the program does not end\n" + picture());
        // A closed terminal answers at once; the process itself is gone a moment later.
        if (!take(std::chrono::milliseconds(5))) poll(nullptr, 0, 1);
    }
    while (take(std::chrono::milliseconds(0)) && more(0)) {
    }
    return status_;
}

bool ScreenProgram::shows(std::string_view text) const {
    for (int i = 0; i < rows_; ++i)
        if (row(i).find(text) != std::string::npos) return true;
    return false;
}

std::string ScreenProgram::row(int row) const {
    std::string text = cells(row, 0, columns_);
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

Cell ScreenProgram::cell(int row, int column) const {
    VTermScreenCell raw{};
    vterm_screen_get_cell(screen_, {row, column}, &raw);
    Cell result{"", raw.attrs.bold != 0, raw.attrs.underline != 0, raw.attrs.reverse != 0};
    // The second half of a wide character holds no character of its own.
    for (const uint32_t code : raw.chars) {
        if (code == 0 || code == static_cast<uint32_t>(-1)) break;
        appendUtf8(result.text, code);
    }
    if (raw.chars[0] == 0) result.text = " ";
    return result;
}

std::string ScreenProgram::cells(int row, int first, int last) const {
    std::string text;
    for (int column = first; column < last; ++column) text += cell(row, column).text;
    return text;
}

std::pair<int, int> ScreenProgram::cursor() const {
    VTermPos position{};
    vterm_state_get_cursorpos(vterm_obtain_state(terminal_), &position);
    return {position.row, position.col};
}

std::string ScreenProgram::picture() const {
    const std::string edge = "   +" + std::string(static_cast<size_t>(columns_), '-') + "+\n";
    std::string result = edge;
    for (int i = 0; i < rows_; ++i)
        result += (i < 10 ? " " : "") + std::to_string(i) + " |" + cells(i, 0, columns_) + "|\n";
    const auto [row, column] = cursor();
    return result + edge + "cursor at " + std::to_string(row) + "," + std::to_string(column) +
           (cursorVisible_ ? ", visible" : ", hidden") + "\nstandard error:\n" + errors();
}

void ScreenProgram::resize(int rows, int columns) {
    rows_ = rows;
    columns_ = columns;
    vterm_set_size(terminal_, rows, columns);
    const winsize size = sizeOf(rows, columns);
    if (ioctl(master_, TIOCSWINSZ, &size) != 0) throw ScreenFailure("cannot resize the terminal");
}

void ScreenProgram::signal(int number) {
    kill(child_, number);
}

void ScreenProgram::hangUp() {
    close(master_);
    master_ = -1;
}

}  // namespace crv::test
