// Known-answer tests of the primitives, run once before anything relies on them.
#pragma once

#include <span>

namespace crv {

struct SelfTest {
    const char* name;
    bool (*passes)();
};

/// One test a primitive: hashes, HMAC, ciphers, derivations, generators, RSA and ECDSA.
[[nodiscard]] std::span<const SelfTest> selfTests() noexcept;

/// Runs the tests in order; a wrong answer or an exception is CryptoError (selfTest) naming the primitive, except for
/// std::bad_alloc. The whole set takes a few milliseconds.
void runSelfTests(std::span<const SelfTest> tests);
inline void runSelfTests() {
    runSelfTests(selfTests());
}
/// Runs them unless they have passed in this process. No std::call_once: an exception that leaves it goes through the C
/// library, which a program that brings its own unwinder does not survive.
inline void requireSelfTests() {
    static const bool passed = (runSelfTests(), true);
    static_cast<void>(passed);
}

}  // namespace crv
