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

/// Runs the tests in order; a wrong answer or an exception is CryptoError (selfTest) naming the primitive. The whole
/// set takes a few milliseconds.
void runSelfTests(std::span<const SelfTest> tests);
inline void runSelfTests() {
    runSelfTests(selfTests());
}

}  // namespace crv
