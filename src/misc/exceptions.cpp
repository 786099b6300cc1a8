#include "misc/exceptions.h"

namespace crv {

VtestException::VtestException(const char* condition, const char* place, int line)
    : std::logic_error(std::string("Assertion ") + condition + " failed in " + place), line_(line) {}

CrvApiException::CrvApiException(int code, const std::string& text)
    : std::runtime_error(text.empty() ? "library error " + std::to_string(code) : text),
      code_(code),
      hasText_(!text.empty()) {}

void failAssertion(const char* condition, const char* place, int line) {
    throw VtestException(condition, place, line);
}

}  // namespace crv
