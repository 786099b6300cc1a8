#include "crypto/sign_algo_map.h"

#include <gtest/gtest.h>
#include <openssl/objects.h>

#include <set>

namespace crv {
namespace {

using enum KcHashAlgo;

TEST(SignAlgoMap, WalksEverySchemeInTheOrderOfTheTable) {
    const std::pair<KeyScheme, std::vector<int>> orders[] = {
        {KeyScheme::rsa, {1, 2, 3, 4, 5, 10, 11, 12, 13, 8, 7}},
        {KeyScheme::rsaPss, {1, 2, 3, 4, 5, 10, 11, 12, 13}},
        {KeyScheme::dsa, {1, 7}},
        {KeyScheme::ecdsa, {1, 2, 3, 4, 5, 10, 11, 12, 13}},
        {KeyScheme::none, {1, 2, 3, 4, 5, 10, 11, 12, 13, 8, 6, 7}}};
    size_t rows = 4;  // the bare schemes
    for (const auto& [scheme, expected] : orders) {
        std::vector<int> met;
        for (auto h = firstSignAlgo(scheme); h != none; h = nextSignAlgo(scheme, h)) met.push_back(static_cast<int>(h));
        EXPECT_EQ(met, expected);
        rows += met.size();
        EXPECT_EQ(isHashSupported(scheme, ripemd160), scheme == KeyScheme::rsa || scheme == KeyScheme::dsa);
        EXPECT_FALSE(isHashSupported(scheme, none));
    }
    EXPECT_EQ(signAlgoMap().size(), rows);
    EXPECT_EQ(nextSignAlgo(KeyScheme::dsa, md5), none);
    EXPECT_EQ(firstSignAlgo(static_cast<KeyScheme>(77)), none);
    EXPECT_EQ(signAlgoName(KeyScheme::rsa, ripemd128), nullptr);
    std::set<std::string> names;
    for (const SignAlgo& row : signAlgoMap()) EXPECT_TRUE(names.insert(row.name).second) << row.name;
}

// libcrypto's own object table is the judge of the identifiers that it has.
TEST(SignAlgoMap, IdentifiersMeanWhatTheRowSays) {
    const std::pair<KeyScheme, int> keys[] = {
        {KeyScheme::rsa, NID_rsaEncryption}, {KeyScheme::dsa, NID_dsa}, {KeyScheme::ecdsa, NID_X9_62_id_ecPublicKey}};
    const std::pair<KcHashAlgo, int> hashes[] = {
        {sha1, NID_sha1},         {sha224, NID_sha224},     {sha256, NID_sha256},       {sha384, NID_sha384},
        {sha512, NID_sha512},     {md5, NID_md5},           {ripemd160, NID_ripemd160}, {sha3_224, NID_sha3_224},
        {sha3_256, NID_sha3_256}, {sha3_384, NID_sha3_384}, {sha3_512, NID_sha3_512}};
    for (const auto& [hash, hashNid] : hashes) {
        EXPECT_EQ(OBJ_txt2nid(hashOid(hash)), hashNid);
        for (const auto& [scheme, keyNid] : keys) {
            int signNid = 0;
            if (!isHashSupported(scheme, hash) || OBJ_find_sigid_by_algs(&signNid, hashNid, keyNid) == 0) continue;
            EXPECT_EQ(OBJ_txt2nid(findSignAlgo(scheme, hash)->oid), signNid) << findSignAlgo(scheme, hash)->name;
        }
    }
    EXPECT_EQ(findSignAlgo("1.2.840.10045.4.3.2")->hash, sha256);
    EXPECT_EQ(findSignAlgo("1.2.3"), nullptr);
    EXPECT_STREQ(hashOid(ripemd128), "1.3.36.3.2.2");
    EXPECT_STREQ(hashOid(none), "");
}

TEST(SignAlgoMap, KeyLengthsAtTheEdge) {
    const std::tuple<KeyScheme, KcHashAlgo, unsigned> firstValid[] = {
        // DigestInfo octets + 11, the last octet of the key may be begun only
        {KeyScheme::rsa, sha1, 45 * 8 + 1},      {KeyScheme::rsa, md5, 44 * 8 + 1},
        {KeyScheme::rsa, ripemd160, 45 * 8 + 1}, {KeyScheme::rsa, sha256, 61 * 8 + 1},
        {KeyScheme::rsa, sha512, 93 * 8 + 1},    {KeyScheme::rsa, sha3_384, 77 * 8 + 1},
        {KeyScheme::rsaPss, sha512, 130 * 8},    {KeyScheme::rsaPss, sha1, 42 * 8},
    };
    for (const auto& [scheme, hash, bits] : firstValid) {
        EXPECT_TRUE(isSignAlgoValidForKeyLength(scheme, hash, bits)) << signAlgoName(scheme, hash);
        EXPECT_FALSE(isSignAlgoValidForKeyLength(scheme, hash, bits - 1)) << signAlgoName(scheme, hash);
        EXPECT_TRUE(isSignAlgoValidForKeyLength(scheme, hash, 0));
        EXPECT_TRUE(isSignAlgoValidForKeyLength(scheme, hash, 2048));
        EXPECT_TRUE(isSignAlgoValidForKeyLength(KeyScheme::ecdsa, hash, 1));
    }
}

}  // namespace
}  // namespace crv
