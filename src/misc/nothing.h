// An empty alternative for variants whose other ones are strings, vectors and trivial types.
#pragma once

namespace crv {

/// As std::monostate, but not trivially copied. libstdc++ takes a variant of nothing but strings, vectors and trivial
/// types for one that always holds a value, and destroys what is not there when copying it failed for want of memory.
struct Nothing {
    constexpr Nothing() noexcept = default;
    constexpr Nothing(const Nothing& /*other*/) noexcept {}
    constexpr Nothing& operator=(const Nothing& /*other*/) noexcept { return *this; }
    constexpr ~Nothing() = default;
    constexpr bool operator==(const Nothing& /*other*/) const noexcept { return true; }
};

}  // namespace crv
