#include "crypto/sign_algo_map.h"

#include <gtest/gtest.h>
#include <openssl/objects.h>

#include <set>

namespace crv {
namespace {

using enum KcHashAlgo;

TEST(SignAlgoMap, WalksEverySchemeInTheOrderOfTheTable) {
    const std::pair<KeyScheme, std::vector<int>> orders[] = {
        {KeyScheme::Rsa, {1, 2, 3, 4, 5, 10, 11, 12, 13, 8, 7}},
        {KeyScheme::RsaPss, {1, 2, 3, 4, 5, 10, 11, 12, 13}},
        {KeyScheme::Dsa, {1, 7}},
        {KeyScheme::Ecdsa, {1, 2, 3, 4, 5, 10, 11, 12, 13}},
        {KeyScheme::None, {1, 2, 3, 4, 5, 10, 11, 12, 13, 8, 6, 7}}};
    size_t rows = 4;  // the bare schemes
    for (const auto& [scheme, expected] : orders) {
        std::vector<int> met;
        for (auto h = firstSignAlgo(scheme); h != None; h = nextSignAlgo(scheme, h)) met.push_back(static_cast<int>(h));
        EXPECT_EQ(met, expected);
        rows += met.size();
        EXPECT_EQ(isHashSupported(scheme, Ripemd160), scheme == KeyScheme::Rsa || scheme == KeyScheme::Dsa);
        EXPECT_FALSE(isHashSupported(scheme, None));
    }
    EXPECT_EQ(signAlgoMap().size(), rows);
    EXPECT_EQ(nextSignAlgo(KeyScheme::Dsa, Md5), None);
    EXPECT_EQ(firstSignAlgo(static_cast<KeyScheme>(77)), None);
    EXPECT_EQ(signAlgoName(KeyScheme::Rsa, Ripemd128), nullptr);
    std::set<std::string> names;
    for (const SignAlgo& row : signAlgoMap()) EXPECT_TRUE(names.insert(row.name).second) << row.name;
}

// libcrypto's own object table is the judge of the identifiers that it has.
TEST(SignAlgoMap, IdentifiersMeanWhatTheRowSays) {
    const std::pair<KeyScheme, int> keys[] = {
        {KeyScheme::Rsa, NID_rsaEncryption}, {KeyScheme::Dsa, NID_dsa}, {KeyScheme::Ecdsa, NID_X9_62_id_ecPublicKey}};
    const std::pair<KcHashAlgo, int> hashes[] = {
        {Sha1, NID_sha1},        {Sha224, NID_sha224},    {Sha256, NID_sha256},       {Sha384, NID_sha384},
        {Sha512, NID_sha512},    {Md5, NID_md5},          {Ripemd160, NID_ripemd160}, {Sha3224, NID_sha3_224},
        {Sha3256, NID_sha3_256}, {Sha3384, NID_sha3_384}, {Sha3512, NID_sha3_512}};
    for (const auto& [hash, hashNid] : hashes) {
        EXPECT_EQ(OBJ_txt2nid(hashOid(hash)), hashNid);
        for (const auto& [scheme, keyNid] : keys) {
            int signNid = 0;
            if (!isHashSupported(scheme, hash) || OBJ_find_sigid_by_algs(&signNid, hashNid, keyNid) == 0) continue;
            EXPECT_EQ(OBJ_txt2nid(findSignAlgo(scheme, hash)->oid), signNid) << findSignAlgo(scheme, hash)->name;
        }
    }
    EXPECT_EQ(findSignAlgo("1.2.840.10045.4.3.2")->hash, Sha256);
    EXPECT_EQ(findSignAlgo("1.2.3"), nullptr);
    EXPECT_STREQ(hashOid(Ripemd128), "1.3.36.3.2.2");
    EXPECT_STREQ(hashOid(None), "");
}

TEST(SignAlgoMap, KeyLengthsAtTheEdge) {
    const std::tuple<KeyScheme, KcHashAlgo, unsigned> firstValid[] = {
        // DigestInfo octets + 11, the last octet of the key may be begun only
        {KeyScheme::Rsa, Sha1, 45 * 8 + 1},      {KeyScheme::Rsa, Md5, 44 * 8 + 1},
        {KeyScheme::Rsa, Ripemd160, 45 * 8 + 1}, {KeyScheme::Rsa, Sha256, 61 * 8 + 1},
        {KeyScheme::Rsa, Sha512, 93 * 8 + 1},    {KeyScheme::Rsa, Sha3384, 77 * 8 + 1},
        {KeyScheme::RsaPss, Sha512, 130 * 8},    {KeyScheme::RsaPss, Sha1, 42 * 8},
    };
    for (const auto& [scheme, hash, bits] : firstValid) {
        EXPECT_TRUE(isSignAlgoValidForKeyLength(scheme, hash, bits)) << signAlgoName(scheme, hash);
        EXPECT_FALSE(isSignAlgoValidForKeyLength(scheme, hash, bits - 1)) << signAlgoName(scheme, hash);
        EXPECT_TRUE(isSignAlgoValidForKeyLength(scheme, hash, 0));
        EXPECT_TRUE(isSignAlgoValidForKeyLength(scheme, hash, 2048));
        EXPECT_TRUE(isSignAlgoValidForKeyLength(KeyScheme::Ecdsa, hash, 1));
    }
}

}  // namespace
}  // namespace crv
