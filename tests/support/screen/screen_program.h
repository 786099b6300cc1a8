// Runs a program on a pseudo-terminal behind a terminal emulator, for tests of what the screen shows.
//
//     ScreenProgram console({.arguments = {binary("crvconfd"), "-profiles", list}, .environment = {{"HOME", dir}}});
//     console.waitFor("Wybierz profil:");          // up to 10 s, then the test fails with a picture of the screen
//     console.send(keys::kDown + keys::kEnter);
//     console.waitUntil("the second item is chosen", [&] { return console.cell(4, 21).reverse; });
//     EXPECT_EQ(console.row(23), "Esc,W: koniec, I: szczegóły profilu");
//     console.send(keys::kEscape);
//     EXPECT_EQ(console.waitExit(), 0);
//
// Never sleep: everything that reads the screen shows what has arrived so far, so wait for the last thing that the
// program draws before looking at the rest (a wait also takes in what follows within a moment). A wait that fails
// throws ScreenFailure, which GoogleTest reports with the picture and with what the program wrote to standard error
// (kept apart from the screen). The program is killed when the object ends. Rows and columns count from 0. Texts are
// UTF-8; row() drops trailing spaces.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "support/temp_dir.h"

struct VTerm;
struct VTermScreen;

namespace crv::test {

/// What terminals send for keys. A menu that reads keys by getKey takes kEscapeTwice at once; lists and passwords take
/// kEscape.
namespace keys {
inline const std::string kEnter = "\r";
inline const std::string kEscape = "\x1b";
inline const std::string kEscapeTwice = "\x1b\x1b";
inline const std::string kUp = "\x1b[A";
inline const std::string kDown = "\x1b[B";
inline const std::string kPageUp = "\x1b[5~";
inline const std::string kPageDown = "\x1b[6~";
inline const std::string kHome = "\x1bOH";
inline const std::string kEnd = "\x1bOF";
inline const std::string kBackspace = "\x7f";
}  // namespace keys

class ScreenFailure : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Cell {
    std::string text;  ///< the character; " " for an empty cell
    bool bold = false;
    bool underline = false;
    bool reverse = false;  ///< also what standout looks like
};

class ScreenProgram {
  public:
    struct Start {
        std::vector<std::string> arguments;  ///< the program's path first
        /// Added to PATH=/usr/bin:/bin, TERM=xterm-256color and LANG=C.UTF-8; an empty entry is removed.
        std::map<std::string, std::string> environment;
        int rows = 24;
        int columns = 80;
        bool utf8 = true;  ///< what the emulated terminal takes bytes for
    };

    static constexpr std::chrono::milliseconds kDeadline{10000};

    explicit ScreenProgram(const Start& start);
    ~ScreenProgram();
    ScreenProgram(const ScreenProgram&) = delete;
    ScreenProgram& operator=(const ScreenProgram&) = delete;

    /// Types the bytes as they are.
    void send(std::string_view bytes);

    /// Waits until the text stands in one row of the screen.
    void waitFor(std::string_view text, std::chrono::milliseconds deadline = kDeadline);
    /// Waits until the text stands in no row.
    void waitGone(std::string_view text, std::chrono::milliseconds deadline = kDeadline);
    void waitUntil(const std::string& what, const std::function<bool()>& condition,
                   std::chrono::milliseconds deadline = kDeadline);
    /// Waits for the program's end: its exit status, or 128 + the number of the signal that ended it.
    int waitExit(std::chrono::milliseconds deadline = kDeadline);

    [[nodiscard]] bool shows(std::string_view text) const;
    [[nodiscard]] std::string row(int row) const;
    [[nodiscard]] Cell cell(int row, int column) const;
    /// The text of a row's cells from the first column up to, not including, the last, spaces kept.
    [[nodiscard]] std::string cells(int row, int first, int last) const;
    [[nodiscard]] std::pair<int, int> cursor() const;  ///< row and column
    [[nodiscard]] bool cursorVisible() const { return cursorVisible_; }
    [[nodiscard]] const std::string& title() const { return title_; }
    [[nodiscard]] int bells() const { return bells_; }
    /// The screen in a box, attributes left out, and what stands on standard error.
    [[nodiscard]] std::string picture() const;
    [[nodiscard]] std::string errors() const { return readFile(folder_.file("errors")); }

    void resize(int rows, int columns);
    void signal(int number);
    /// Closes the terminal under the running program.
    void hangUp();

  private:
    struct Watcher;

    void startChild(const Start& start);
    /// Waits that long for output and takes it in; false when the terminal's other side is closed.
    bool take(std::chrono::milliseconds wait);
    /// Whether something waits to be taken in, now or within so many milliseconds.
    [[nodiscard]] bool more(int wait) const;
    void reap(bool block);

    TempDir folder_;
    VTerm* terminal_ = nullptr;
    VTermScreen* screen_ = nullptr;
    int rows_, columns_;
    int master_ = -1;
    int child_ = -1;
    int status_ = -1;
    bool ended_ = false;
    bool cursorVisible_ = true;
    std::string title_;
    int bells_ = 0;
};

}  // namespace crv::test
