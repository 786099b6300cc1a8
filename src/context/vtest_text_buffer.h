// Diagnostic text of the last failure of each context.
#pragma once

#include <string>
#include <string_view>

namespace crv {

/// Process-wide and safe for several threads. A null context stands for callers without one.
class VtestTextBuffer {
  public:
    static void setVtestTxt(const void* ctx, std::string_view text);
    /// Empty when nothing is recorded.
    static std::string getVtestTxt(const void* ctx);
    /// Needs no memory.
    static void forget(const void* ctx) noexcept;
};

}  // namespace crv
