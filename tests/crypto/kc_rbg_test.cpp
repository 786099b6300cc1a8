#include "crypto/kc_rbg.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>
#include <functional>
#include <sstream>

#include "crypto/crypto_error.h"
#include "crypto/hex.h"

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

CryptoFailure failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const CryptoError& e) {
        return e.failure();
    }
    return CryptoFailure::internal;
}

// rbg.txt comes from rbg.py, a second implementation that is itself checked against NIST's published answers.
TEST(KcRbg, AgreesWithTheVectors) {
    std::ifstream file(CRV_TEST_DATA "/rbg.txt");
    std::string line;
    int cases = 0;
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        std::string name, seed, skip, output;
        fields >> name >> seed >> skip >> output;
        const auto generator = makeGenerator(name);
        EXPECT_EQ(generator->name(), name);
        generator->seed(unhex(seed));
        std::istringstream skips(skip == "-" ? "" : skip);
        for (std::string count; std::getline(skips, count, '+');) (void)draw(*generator, std::stoul(count));
        EXPECT_EQ(hex(draw(*generator, output.size() / 2)), output) << line.substr(0, 80);
        ++cases;
    }
    EXPECT_EQ(cases, 28);
}

// The first case of NIST's CAVS file Hash_DRBG.rsp for SHA-256: entropy input and nonce, the second output of 128
// octets.
TEST(KcRbg, NistHashDrbgCase) {
    KcRbgHashIso18031 generator;
    generator.seed(
        unhex("a65ad0f345db4e0effe875c3a2e71f42c7129d620ff5c119a9ef55f05185e0fb8581f9317517276e06e9607ddbcbcc2e"));
    (void)draw(generator, 128);
    EXPECT_EQ(hex(draw(generator, 16)), "d3e160c35b99f340b2628264d1751060");
}

// The example of FIPS 186-2 appendix 5 with change notice 1.
TEST(KcRbg, FipsExampleOfTheDssGenerator) {
    KcRbgDss31 generator;
    generator.seed(unhex("bd029bbe7f51960bcf9edb2b61f06f0feb5a38b6"));
    EXPECT_EQ(hex(draw(generator, 40)),
              "2070b3223dba372fde1c0ffc7b2e3b498b2606143c6c18bacb0f6c55babb13788e20d737a3275116");
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

TEST(KcRbg, StateIsGoneWhenTheGeneratorEnds) {
    alignas(KcRbgHashIso18031) std::array<uint8_t, sizeof(KcRbgHashIso18031)> place{};
    auto* generator = new (place.data()) KcRbgHashIso18031;
    generator->seed(Bytes(32, 1));
    (void)draw(*generator, 1);
    const auto zeros = [&] { return std::count(place.begin(), place.end(), 0); };
    const auto before = zeros();
    std::destroy_at(generator);
    EXPECT_GE(zeros(), before + 100);  // V and C are 110 octets
}

}  // namespace
}  // namespace crv
