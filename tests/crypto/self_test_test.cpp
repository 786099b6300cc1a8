#include "crypto/self_test.h"

#include <stdexcept>

#include "crypto/crypto_test.h"

namespace crv {
namespace {

TEST(SelfTest, PassesAndNamesTheFirstFailure) {
    EXPECT_NO_THROW(runSelfTests());
    const SelfTest tests[] = {{"good", [] { return true; }},
                              {"bad", [] { return false; }},
                              {"worse", []() -> bool { throw std::runtime_error("no memory"); }}};
    const auto textOf = [&](std::span<const SelfTest> some) -> std::string {
        try {
            runSelfTests(some);
        } catch (const CryptoError& e) {
            return e.failure() == CryptoFailure::selfTest ? e.what() : "another failure";
        }
        return "passed";
    };
    const std::span<const SelfTest> all(tests);
    EXPECT_EQ(textOf(all.first(1)), "passed");
    EXPECT_EQ(textOf(all), "self-test of bad: wrong answer");
    EXPECT_EQ(textOf(all.last(1)), "self-test of worse: no memory");
}

}  // namespace
}  // namespace crv
