// Tables of the texts that a screen shows for result codes.
#pragma once

#include <exception>
#include <span>
#include <string>

namespace crv {

struct CodeText {
    int code;
    const char* text;
    bool stays = false;  ///< until a key: something is lost unless the user acts
};

/// The text of a code, or null.
[[nodiscard]] const char* findText(std::span<const CodeText> table, int code);

/// Shows the text of a code on the message row. A code that the table does not list is a failed assertion, "Assertion 0
/// failed in" the place.
void showCode(std::span<const CodeText> table, int code, const char* place = "src/crvconfd/main");

/// A line of the report that -verbose prints at the end, made printable. Never a secret.
void note(const std::string& line);

/// The same for a message of the screen: not where a line with more in it has just been noted for it.
void noteMessage(const std::string& text);

/// Keeps a text for standard error when the screen has ended.
void sayAtEnd(const std::string& text);
/// What was kept, once.
[[nodiscard]] std::string takeFarewell();

inline constexpr const char* kDatabaseFailed = "Błąd bazy danych";

/// Shows the text with what the database said last of the cause, where that helps; a lack of memory has its own.
void showDatabaseFailure(const char* text = kDatabaseFailed, const char* noMemoryText = "Brak pamięci");

/// Why the system refused something, in Polish where it is frequent.
[[nodiscard]] std::string systemReason(int error);
/// Why a file cannot be opened for reading, as errno; 0 when it can.
[[nodiscard]] int openError(const std::string& path);
/// Shows a text with the file's name in it (a format with one "%s"), and the system's reason for an errno behind it, or
/// on the row above where it has no room.
void showFileFailure(const char* format, const std::string& name, int error);

/// Warns of what happened to a file: above the text stands the reason and behind it the path, over as many rows as it
/// takes.
void warnOfFile(const std::string& text, const std::string& path, int error);

/// What to tell the user of an exception: its own text, or for a bare library code the code's text.
[[nodiscard]] std::string failureText(const std::exception& failure);
/// The same for a terminal: of a fault in a profile list the reason and the line come before the path.
[[nodiscard]] std::string reasonFirst(const std::string& text);

}  // namespace crv
