// The exceptions that cross layers: a failed assertion (a programming error), a library failure with its code, and a
// failure of what is kept on disk.
#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <utility>

namespace crv {

/// A failed assertion. The text is "Assertion <condition> failed in <place>"; the place is a source path without its
/// extension, fixed where a text names it, whatever file the code stands in.
class VtestException : public std::logic_error {
  public:
    VtestException(const char* condition, const char* place, int line);

    [[nodiscard]] int line() const noexcept { return line_; }

  private:
    int line_;
};

/// A library failure between layers: carries one of the ECRV_ codes of corvane/crverrors.h (20 and above).
class CrvApiException : public std::runtime_error {
  public:
    explicit CrvApiException(int code, const std::string& text = {});

    [[nodiscard]] int code() const noexcept { return code_; }
    /// Whether it brings a text of its own; without one what() only names the code, and the code's text is to be shown.
    [[nodiscard]] bool hasText() const noexcept { return hasText_; }

  private:
    int code_;
    bool hasText_;
};

/// Why a store failed, for callers that answer differently.
enum class StoreCause {
    Failed,        ///< reading or writing failed, or the content makes no sense where a sound one was expected
    NotOpened,     ///< a file that is missing or may not be opened
    Malformed,     ///< octets that are not what the file is to hold
    Damaged,       ///< a file that is not what was written; it was taken back or has to be repaired
    NotLocked,     ///< the lock cannot be had
    NeedsMending,  ///< a change was cut off, and mending it failed or is not permitted
    Refused,       ///< what was given cannot be stored
    NotFound,      ///< there is no such record, value or file
    Unreachable,   ///< a database server cannot be reached, or went away
    NoMemory       ///< memory ran out (answered, never thrown: that is std::bad_alloc)
};

/// A failure of a database, a profile list or a file read as a whole, with its text. No std::runtime_error, so that
/// nobody who handles one of the two catches the other by accident.
class StoreError : public std::exception {
  public:
    StoreError(StoreCause cause, std::string text)
        : text_(std::make_shared<const std::string>(std::move(text))), cause_(cause) {}

    [[nodiscard]] StoreCause cause() const noexcept { return cause_; }
    [[nodiscard]] const char* what() const noexcept override { return text_->c_str(); }

  private:
    std::shared_ptr<const std::string> text_;  // shared: copying an exception must not throw
    StoreCause cause_;
};

[[noreturn]] void failAssertion(const char* condition, const char* place, int line);

}  // namespace crv

/// Throws VtestException when the condition does not hold. VTEST_AT also fixes the line that the exception reports.
#define VTEST_AT(condition, place, line) ((condition) ? (void)0 : ::crv::failAssertion(#condition, place, line))
#define VTEST(condition, place) VTEST_AT(condition, place, __LINE__)
