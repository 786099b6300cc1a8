#include "crypto/kc_hash.h"

#include <gtest/gtest.h>

#include "crypto/crypto_error.h"
#include "crypto/hex.h"

namespace crv {
namespace {

using enum KcHashAlgo;

struct Vector {
    KcHashAlgo algo;
    const char* message;
    const char* digest;
};

// RIPEMD-128: the publication's own vectors. The others: "abc" from FIPS 180-4, FIPS 202, RFC 1321 and the RIPEMD-160
// paper.
const Vector kVectors[] = {
    {ripemd128, "", "cdf26213a150dc3ecb610f18f6b38b46"},
    {ripemd128, "a", "86be7afa339d0fc7cfc785e72f578d33"},
    {ripemd128, "abc", "c14a12199c66e4ba84636b0f69144c77"},
    {ripemd128, "message digest", "9e327b3d6e523062afc1132d7df9d1b8"},
    {ripemd128, "abcdefghijklmnopqrstuvwxyz", "fd2aa607f71dc8f510714922b371834e"},
    {ripemd128, "abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq", "a1aa0689d0fafa2ddc22e88b49133a06"},
    {ripemd128, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789", "d1e959eb179c911faea4624c60c5c702"},
    {ripemd160, "abc", "8eb208f7e05d987a9b044a8e98c6b087f15a0bfc"},
    {md5, "abc", "900150983cd24fb0d6963f7d28e17f72"},
    {sha1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
    {sha224, "abc", "23097d223405d8228642a477bda255b32aadbce4bda0b3f7e36c9da7"},
    {sha256, "abc", "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    {sha384, "abc", "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed8086072ba1e7cc2358baeca134c825a7"},
    {sha512, "abc",
     "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e"
     "2a9ac94fa54ca49f"},
    {sha3_224, "abc", "e642824c3f8cf24ad09234ee7d3c766fc9a3a5168d0c94ad73b46fdf"},
    {sha3_256, "abc", "3a985da74fe225b2045c172d6bd390bd855f086e3e9d525b46bfe24511431532"},
    {sha3_384, "abc",
     "ec01498288516fc926459f58e2c6ad8df9b473cb0fc08c2596da7cf0e49be4b298d88cea927ac7f539f1edf228376d25"},
    {sha3_512, "abc",
     "b751850b1a57168a5693cd924b6b096e08f621827444f70d884f5d0240d2712e10e116e9192af3c91a7ec57647e3934057340b4cf408d5a5"
     "6592f8274eec53f0"},
};

TEST(KcHash, KnownAnswersHowEverTheMessageIsCut) {
    for (const Vector& v : kVectors) {
        const ByteView message = asBytes(v.message);
        EXPECT_EQ(hex(hashOf(v.algo, message)), v.digest) << v.message;
        KcHash hash(v.algo);
        EXPECT_EQ(hash.length() * 2, std::string(v.digest).size());
        for (size_t cut = 0; cut <= message.size(); ++cut) {  // also shows that final starts the hash anew
            hash.update(message.first(cut));
            hash.update(message.subspan(cut));
            ASSERT_EQ(hex(hash.final()), v.digest) << v.message << " cut at " << cut;
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
