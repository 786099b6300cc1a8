// Hashes, HMAC, random generators, and the self-tests that look at them when a program starts.
#include <set>
#include <stdexcept>

#include "crypto/crypto_test.h"
#include "crypto/hmac.h"
#include "crypto/kc_hash.h"
#include "crypto/self_test.h"

namespace crv {
namespace {

using enum KcHashAlgo;

TEST(KcHash, KnownAnswersHowEverTheMessageIsCut) {
    for (const auto& line : vectorsOf("hash.txt")) {
        const Bytes message = unhex(line.at(1));
        EXPECT_EQ(hex(hashOf(algoOf(line.at(0)), message)), line.at(2));
        KcHash hash(algoOf(line.at(0)));
        for (size_t cut = 0; cut <= message.size(); ++cut) {  // also shows that final starts the hash anew
            hash.update(ByteView(message).first(cut));
            hash.update(ByteView(message).subspan(cut));
            ASSERT_EQ(hex(hash.final()), line.at(2)) << "cut at " << cut;
        }
    }
}

TEST(KcHash, Ripemd128PadsAtEveryDistanceFromTheBlockEnd) {
    KcHash chain(Sha1);  // over the digests of 0 to 200 octets "a"; made by the generator in tests/crypto/data
    for (size_t length = 0; length <= 200; ++length) chain.update(hashOf(Ripemd128, Bytes(length, 'a')));
    EXPECT_EQ(hex(chain.final()), "b1da8b5e92c1af825cba5ba6a9546479a7fb8ebb");
    EXPECT_EQ(hex(hashOf(Ripemd128, Bytes(1000000, 'a'))), "4a7f5723f954eba1216c9d8f6320431f");
}

TEST(KcHash, RefusesWhatNamesNoHashAndBuffersOfAnotherLength) {
    for (const char* number : {"0", "9", "14", "255"}) {
        EXPECT_THROW(KcHash(algoOf(number)), CryptoError) << number;
        EXPECT_THROW((void)hashOf(algoOf(number), {}), CryptoError) << number;
    }
    Bytes digest(21);
    EXPECT_THROW(KcHash(Sha1).final(digest), CryptoError);
    EXPECT_THROW(hashInto(Ripemd128, {}, digest), CryptoError);
}

TEST(Hmac, PublishedVectors) {
    for (const auto& line : vectorsOf("hmac.txt")) {
        EXPECT_EQ(hex(hmac(algoOf(line.at(0)), unhex(line.at(1)), unhex(line.at(2)))), line.at(3));
    }
}

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
    for (const auto& [name, shortest, longest] :
         {std::tuple("HASH-DRBG-18031", size_t{16}, size_t{1} << 20), {"DSS31", 20, 64}, {"DSS32", 20, 64}}) {
        for (const size_t length : {size_t{0}, shortest - 1, shortest, shortest + 1, longest, longest + 1}) {
            SCOPED_TRACE(name + (" " + std::to_string(length)));
            const bool allowed = shortest <= length && length <= longest;
            const auto generator = makeGenerator(name);
            EXPECT_EQ(failureOf([&] { draw(*generator, 1); }), CryptoFailure::NotSeeded);
            const auto seed = [&] { generator->seed(Bytes(length, 7)); };
            EXPECT_EQ(failureOf(seed), allowed ? std::nullopt : std::optional(CryptoFailure::BadParameter));
            EXPECT_EQ(generator->seeded(), allowed);
        }
    }
}

TEST(KcRbg, EndOfTheCycleAsksForASeedAndGivesNothingOut) {
    for (const char* name : {"HASH-DRBG-18031", "DSS31", "DSS32"}) {
        const auto generator = makeGenerator(name, 3);
        generator->seed(Bytes(32, 1));
        const Bytes first = draw(*generator, 20);
        (void)draw(*generator, 20);
        Bytes untouched(200000, 0x5A);
        EXPECT_EQ(failureOf([&] { generator->fill(untouched); }), CryptoFailure::ReseedRequired);
        EXPECT_EQ(untouched, Bytes(200000, 0x5A));
        (void)draw(*generator, 20);
        EXPECT_EQ(failureOf([&] { draw(*generator, 1); }), CryptoFailure::ReseedRequired);
        EXPECT_NO_THROW(draw(*generator, 0));
        generator->seed(Bytes(32, 1));
        EXPECT_EQ(draw(*generator, 20), first);
    }
}

TEST(KcRbg, ReseedingMixesWithTheStateAndStartsTheCycleAnew) {
    std::set<Bytes> drawn;
    for (const uint8_t seed : {uint8_t{1}, uint8_t{2}}) {
        KcRbgHashIso18031 generator(1);
        generator.seed(Bytes(32, seed));
        drawn.insert(draw(generator, 20));
        generator.reseed(Bytes(32, 1));
        drawn.insert(draw(generator, 20));
        EXPECT_EQ(failureOf([&] { generator.reseed(Bytes(3)); }), CryptoFailure::BadParameter);
    }
    EXPECT_EQ(drawn.size(), 4u);
}

TEST(SelfTest, PassesAndNamesTheFirstFailure) {
    EXPECT_NO_THROW(runSelfTests());
    const SelfTest tests[] = {{"good", [] { return true; }},
                              {"bad", [] { return false; }},
                              {"worse", []() -> bool { throw std::runtime_error("no memory"); }}};
    const auto textOf = [&](std::span<const SelfTest> some) -> std::string {
        try {
            runSelfTests(some);
        } catch (const CryptoError& e) {
            return e.failure() == CryptoFailure::SelfTest ? e.what() : "another failure";
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
