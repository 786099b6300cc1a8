#include "crypto/kc_rbg.h"

#include "crypto/crypto_test.h"

namespace crv {
namespace {

std::unique_ptr<KcRbg> makeGenerator(const std::string& name, uint64_t cycle = KcRbgDss::kCycle) {
    if (name == "DSS31") return std::make_unique<KcRbgDss31>(cycle);
    if (name == "DSS32") return std::make_unique<KcRbgDss32>(cycle);
    return std::make_unique<KcRbgHashIso18031>(cycle);
}

Bytes draw(KcRbg& generator, size_t length) {
    Bytes out(length);
    generator.fill(out);
    return out;
}

// rbg.txt comes from rbg.py, a second implementation that is itself checked against NIST's published answers.
TEST(KcRbg, AgreesWithTheVectors) {
    for (const auto& line : vectorsOf("rbg.txt")) {
        const auto generator = makeGenerator(line.at(0));
        EXPECT_EQ(generator->name(), line.at(0));
        generator->seed(unhex(line.at(1)));
        std::istringstream skips(line.at(2));
        for (std::string count; std::getline(skips, count, '+');) (void)draw(*generator, std::stoul(count));
        EXPECT_EQ(hex(draw(*generator, line.at(3).size() / 2)), line.at(3)) << line.at(0) << " " << line.at(1);
    }
}

TEST(KcRbg, SeedLengthRules) {
    const std::tuple<const char*, size_t, bool> cases[] = {
        {"HASH-DRBG-18031", 15, false},
        {"HASH-DRBG-18031", 16, true},
        {"HASH-DRBG-18031", 88, true},
        {"DSS31", 19, false},
        {"DSS31", 20, true},
        {"DSS31", 21, true},
        {"DSS31", 64, true},
        {"DSS31", 65, false},
        {"DSS32", 0, false},
    };
    for (const auto& [name, length, allowed] : cases) {
        const auto generator = makeGenerator(name);
        EXPECT_EQ(failureOf([&] { draw(*generator, 1); }), CryptoFailure::notSeeded);
        if (allowed) {
            EXPECT_NO_THROW(generator->seed(Bytes(length, 7)));
        } else {
            EXPECT_EQ(failureOf([&] { generator->seed(Bytes(length, 7)); }), CryptoFailure::badParameter);
        }
        EXPECT_EQ(generator->seeded(), allowed) << name << " " << length;
    }
}

TEST(KcRbg, EndOfTheCycleAsksForASeedAndGivesNothingOut) {
    for (const char* name : {"HASH-DRBG-18031", "DSS31", "DSS32"}) {
        const auto generator = makeGenerator(name, 3);
        generator->seed(Bytes(32, 1));
        const Bytes first = draw(*generator, 20);
        (void)draw(*generator, 20);
        Bytes untouched(200000, 0x5A);
        EXPECT_EQ(failureOf([&] { generator->fill(untouched); }), CryptoFailure::reseedRequired);
        EXPECT_EQ(untouched, Bytes(200000, 0x5A));
        (void)draw(*generator, 20);
        EXPECT_EQ(failureOf([&] { draw(*generator, 1); }), CryptoFailure::reseedRequired);
        EXPECT_NO_THROW(draw(*generator, 0));
        generator->seed(Bytes(32, 1));
        EXPECT_EQ(draw(*generator, 20), first);
    }
    KcRbgHashIso18031 generator(1);
    generator.seed(Bytes(32, 1));
    const Bytes first = draw(generator, 20);
    generator.reseed(Bytes(32, 1));  // mixes with the state instead of starting over
    EXPECT_NE(draw(generator, 20), first);
    EXPECT_EQ(failureOf([&] { generator.reseed(Bytes(3)); }), CryptoFailure::badParameter);
}

}  // namespace
}  // namespace crv
