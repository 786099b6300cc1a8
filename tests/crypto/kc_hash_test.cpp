#include "crypto/kc_hash.h"

#include "crypto/crypto_test.h"

namespace crv {
namespace {

using enum KcHashAlgo;

TEST(KcHash, KnownAnswersHowEverTheMessageIsCut) {
    for (const auto& line : vectorsOf("hash.txt")) {
        const auto algo = static_cast<KcHashAlgo>(std::stoi(line.at(0)));
        const Bytes message = unhex(line.at(1));
        EXPECT_EQ(hex(hashOf(algo, message)), line.at(2));
        KcHash hash(algo);
        for (size_t cut = 0; cut <= message.size(); ++cut) {  // also shows that final starts the hash anew
            hash.update(ByteView(message).first(cut));
            hash.update(ByteView(message).subspan(cut));
            ASSERT_EQ(hex(hash.final()), line.at(2)) << "cut at " << cut;
        }
    }
}

TEST(KcHash, Ripemd128PadsAtEveryDistanceFromTheBlockEnd) {
    KcHash chain(sha1);  // over the digests of 0 to 200 octets "a"; made by the generator in tests/crypto/data
    for (size_t length = 0; length <= 200; ++length) chain.update(hashOf(ripemd128, Bytes(length, 'a')));
    EXPECT_EQ(hex(chain.final()), "b1da8b5e92c1af825cba5ba6a9546479a7fb8ebb");
    EXPECT_EQ(hex(hashOf(ripemd128, Bytes(1000000, 'a'))), "4a7f5723f954eba1216c9d8f6320431f");
}

TEST(KcHash, RefusesWhatNamesNoHashAndBuffersOfAnotherLength) {
    for (const int number : {0, 9, 14, 255}) {
        EXPECT_FALSE(isHash(static_cast<KcHashAlgo>(number)));
        EXPECT_THROW(KcHash(static_cast<KcHashAlgo>(number)), CryptoError);
        EXPECT_THROW((void)hashOf(static_cast<KcHashAlgo>(number), {}), CryptoError);
    }
    Bytes digest(21);
    EXPECT_THROW(KcHash(sha1).final(digest), CryptoError);
    EXPECT_THROW(hashInto(ripemd128, {}, digest), CryptoError);
}

}  // namespace
}  // namespace crv
