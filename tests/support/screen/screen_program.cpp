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
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace crv::test {

namespace {

/// Silence, in milliseconds, after which a screen counts as drawn.
constexpr int kSettle = 20;

using Clock = std::chrono::steady_clock;

void appendUtf8(std::string& out, uint32_t code) {
    if (code < 0x80) {
        out += static_cast<char>(code);
        return;
    }
    const int tails = code < 0x800 ? 1 : code < 0x10000 ? 2 : 3;
    constexpr std::array<uint32_t, 4> kLead{0, 0xC0, 0xE0, 0xF0};
    out += static_cast<char>(kLead[static_cast<size_t>(tails)] | (code >> (6 * tails)));
    for (int i = tails - 1; i >= 0; --i) out += static_cast<char>(0x80 | ((code >> (6 * i)) & 0x3F));
}

std::vector<std::string> environmentOf(const ScreenProgram::Start& start) {
    const char* path = std::getenv("PATH");
    std::map<std::string, std::string> values{
        {"PATH", path == nullptr ? "/usr/bin:/bin" : path}, {"TERM", "xterm-256color"}, {"LANG", "C.UTF-8"}};
    for (const auto& [name, value] : start.environment) values[name] = value;
    std::vector<std::string> lines;
    for (const auto& [name, value] : values) {
        if (!value.empty()) lines.push_back(name + "=" + value);
    }
    return lines;
}

std::vector<char*> pointers(std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

}  // namespace

struct ScreenProgram::State {
    VTerm* terminal = nullptr;
    VTermScreen* screen = nullptr;
    int master = -1;
    pid_t child = -1;
    int status = -1;
    bool ended = false;
    std::FILE* errors = nullptr;
    bool cursorVisible = true;
    std::string title;
    int bells = 0;

    static int onProperty(VTermProp property, VTermValue* value, void* user) {
        auto* self = static_cast<State*>(user);
        if (property == VTERM_PROP_CURSORVISIBLE) self->cursorVisible = value->boolean != 0;
        if (property == VTERM_PROP_TITLE) self->title = value->string;
        return 1;
    }
    static int onBell(void* user) {
        ++static_cast<State*>(user)->bells;
        return 1;
    }
    static void onAnswer(const char* bytes, size_t length, void* user) {
        [[maybe_unused]] const ssize_t ignored = write(static_cast<State*>(user)->master, bytes, length);
    }

    void openTerminal(const Start& start) {
        static const VTermScreenCallbacks kCallbacks = [] {
            VTermScreenCallbacks callbacks{};
            callbacks.settermprop = onProperty;
            callbacks.bell = onBell;
            return callbacks;
        }();
        terminal = vterm_new(start.rows, start.columns);
        vterm_set_utf8(terminal, start.utf8 ? 1 : 0);
        vterm_output_set_callback(terminal, onAnswer, this);
        screen = vterm_obtain_screen(terminal);
        vterm_screen_enable_altscreen(screen, 1);
        vterm_screen_set_callbacks(screen, &kCallbacks, this);
        vterm_screen_reset(screen, 1);
    }

    void startChild(const Start& start) {
        errors = std::tmpfile();
        std::vector<std::string> arguments = start.arguments;
        if (!start.argumentZero.empty()) arguments[0] = start.argumentZero;
        std::vector<std::string> environment = environmentOf(start);
        const std::vector<char*> argv = pointers(arguments);
        const std::vector<char*> envp = pointers(environment);
        winsize size{};
        size.ws_row = static_cast<unsigned short>(start.rows);
        size.ws_col = static_cast<unsigned short>(start.columns);
        child = forkpty(&master, nullptr, nullptr, &size);
        if (child == 0) {
            dup2(fileno(errors), STDERR_FILENO);
            execve(start.arguments[0].c_str(), argv.data(), envp.data());
            _exit(127);
        }
        if (child < 0 || errors == nullptr) throw ScreenFailure("cannot start " + start.arguments[0]);
        fcntl(master, F_SETFD, FD_CLOEXEC);
        fcntl(master, F_SETFL, O_NONBLOCK);
    }

    /// Waits that long for output and takes it in; false when the terminal's other side is closed.
    bool take(std::chrono::milliseconds wait) {
        if (master < 0) return false;
        pollfd output{master, POLLIN, 0};
        if (poll(&output, 1, static_cast<int>(wait.count())) <= 0) return true;
        std::array<char, 4096> bytes;
        const ssize_t count = read(master, bytes.data(), bytes.size());
        if (count > 0) vterm_input_write(terminal, bytes.data(), static_cast<size_t>(count));
        return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
    }

    void reap(bool block) {
        if (ended || child < 0) return;
        int result = 0;
        if (waitpid(child, &result, block ? 0 : WNOHANG) != child) return;
        ended = true;
        status = WIFEXITED(result) ? WEXITSTATUS(result) : 128 + WTERMSIG(result);
    }
};

ScreenProgram::ScreenProgram(const Start& start) : state_(std::make_unique<State>()) {
    state_->openTerminal(start);
    state_->startChild(start);
}

ScreenProgram::~ScreenProgram() {
    state_->reap(false);
    if (!state_->ended && state_->child > 0) {
        kill(state_->child, SIGKILL);
        state_->reap(true);
    }
    if (state_->master >= 0) close(state_->master);
    if (state_->errors != nullptr) std::fclose(state_->errors);
    vterm_free(state_->terminal);
}

void ScreenProgram::send(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = write(state_->master, bytes.data(), bytes.size());
        if (count > 0) {
            bytes.remove_prefix(static_cast<size_t>(count));
        } else if (errno == EAGAIN) {
            state_->take(std::chrono::milliseconds(10));
        } else {
            throw ScreenFailure("the program takes no more keys\n" + picture());
        }
    }
}

void ScreenProgram::waitUntil(const std::string& what, const std::function<bool()>& condition,
                              std::chrono::milliseconds deadline) {
    const auto end = Clock::now() + deadline;
    while (!condition()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
        if (left.count() <= 0) throw ScreenFailure("waited in vain until " + what + "\n" + picture());
        if (!state_->take(left) && !condition()) {
            throw ScreenFailure("the program ended before " + what + "\n" + picture());
        }
    }
    // What was waited for need not be the last thing drawn: take in the rest as long as it keeps coming.
    pollfd output{state_->master, POLLIN, 0};
    for (int rest = 0; rest < 100 && poll(&output, 1, kSettle) == 1; ++rest)
        if (!state_->take(std::chrono::milliseconds(0))) break;
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
    for (state_->reap(false); !state_->ended; state_->reap(false)) {
        if (Clock::now() >= end) throw ScreenFailure("the program does not end\n" + picture());
        // A closed terminal answers at once; the process itself is gone a moment later.
        if (!state_->take(std::chrono::milliseconds(5))) poll(nullptr, 0, 1);
    }
    while (state_->take(std::chrono::milliseconds(0))) {
        pollfd output{state_->master, POLLIN, 0};
        if (poll(&output, 1, 0) <= 0) break;
    }
    return state_->status;
}

void ScreenProgram::pump() {
    state_->take(std::chrono::milliseconds(0));
}

bool ScreenProgram::shows(std::string_view text) const {
    const std::vector<std::string> all = rows();
    return std::any_of(all.begin(), all.end(),
                       [&](const std::string& row) { return row.find(text) != std::string::npos; });
}

std::string ScreenProgram::row(int row) const {
    int columns = 0;
    vterm_get_size(state_->terminal, nullptr, &columns);
    std::string text = cells(row, 0, columns);
    text.erase(text.find_last_not_of(' ') + 1);
    return text;
}

std::vector<std::string> ScreenProgram::rows() const {
    int count = 0;
    vterm_get_size(state_->terminal, &count, nullptr);
    std::vector<std::string> result;
    for (int i = 0; i < count; ++i) result.push_back(row(i));
    return result;
}

Cell ScreenProgram::cell(int row, int column) const {
    VTermScreenCell raw{};
    vterm_screen_get_cell(state_->screen, {row, column}, &raw);
    Cell result;
    // The second half of a wide character holds no character of its own.
    for (const uint32_t code : raw.chars) {
        if (code == 0 || code == static_cast<uint32_t>(-1)) break;
        appendUtf8(result.text, code);
    }
    if (result.text.empty() && raw.chars[0] == 0) result.text = " ";
    result.bold = raw.attrs.bold != 0;
    result.underline = raw.attrs.underline != 0;
    result.reverse = raw.attrs.reverse != 0;
    return result;
}

std::string ScreenProgram::cells(int row, int first, int last) const {
    std::string text;
    for (int column = first; column < last; ++column) text += cell(row, column).text;
    return text;
}

std::pair<int, int> ScreenProgram::cursor() const {
    VTermPos position{};
    vterm_state_get_cursorpos(vterm_obtain_state(state_->terminal), &position);
    return {position.row, position.col};
}

bool ScreenProgram::cursorVisible() const {
    return state_->cursorVisible;
}

const std::string& ScreenProgram::title() const {
    return state_->title;
}

int ScreenProgram::bells() const {
    return state_->bells;
}

std::string ScreenProgram::picture() const {
    int columns = 0;
    vterm_get_size(state_->terminal, nullptr, &columns);
    const std::string edge = "   +" + std::string(static_cast<size_t>(columns), '-') + "+\n";
    std::string result = edge;
    const std::vector<std::string> all = rows();
    for (size_t i = 0; i < all.size(); ++i) {
        result += (i < 10 ? " " : "") + std::to_string(i) + " |" + cells(static_cast<int>(i), 0, columns) + "|\n";
    }
    const auto [row, column] = cursor();
    result += edge + "cursor at " + std::to_string(row) + "," + std::to_string(column) +
              (state_->cursorVisible ? ", visible" : ", hidden") + "\n";
    const std::string said = errors();
    return said.empty() ? result : result + "standard error:\n" + said;
}

std::string ScreenProgram::errors() const {
    std::string text;
    std::array<char, 4096> bytes;
    off_t offset = 0;
    // The program shares the file's position, so it is read beside it.
    while (const ssize_t count = pread(fileno(state_->errors), bytes.data(), bytes.size(), offset)) {
        if (count < 0) break;
        text.append(bytes.data(), static_cast<size_t>(count));
        offset += count;
    }
    return text;
}

void ScreenProgram::resize(int rows, int columns) {
    winsize size{};
    size.ws_row = static_cast<unsigned short>(rows);
    size.ws_col = static_cast<unsigned short>(columns);
    vterm_set_size(state_->terminal, rows, columns);
    if (ioctl(state_->master, TIOCSWINSZ, &size) != 0) throw ScreenFailure("cannot resize the terminal");
}

void ScreenProgram::signal(int number) {
    kill(state_->child, number);
}

void ScreenProgram::hangUp() {
    close(state_->master);
    state_->master = -1;
}

int ScreenProgram::pid() const {
    return state_->child;
}

}  // namespace crv::test
