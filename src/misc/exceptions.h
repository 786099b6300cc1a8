// The two exceptions that cross layers: a failed assertion (a programming error) and a library failure with its code.
#pragma once

#include <stdexcept>
#include <string>

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

[[noreturn]] void failAssertion(const char* condition, const char* place, int line);

}  // namespace crv

/// Throws VtestException when the condition does not hold. VTEST_AT also fixes the line that the exception reports.
#define VTEST_AT(condition, place, line) ((condition) ? (void)0 : ::crv::failAssertion(#condition, place, line))
#define VTEST(condition, place) VTEST_AT(condition, place, __LINE__)
