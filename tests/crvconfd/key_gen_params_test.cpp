// The rules that tie scheme, length and signature algorithm together.
#include "crvconfd/screens/key_gen_params.h"

#include <gtest/gtest.h>

namespace crv {
namespace {

KeyGenParams allSchemes() {
    KeyGenParams params;
    params.offersDsa = params.offersEcdsa = params.offersRsaPss = true;
    params.defaultHash = [](KeyScheme scheme) {
        return scheme == KeyScheme::Dsa ? KcHashAlgo::Sha1 : KcHashAlgo::Sha256;
    };
    return params;
}

TEST(KeyGenParams, SignatureAlgorithmsFollowTheKey) {
    KeyGenParams params = allSchemes();
    auto list = params.signAlgos();
    EXPECT_EQ(list.size(), 10u) << "all of RSA but MD5";
    EXPECT_EQ(list[params.currentSignAlgo(list)].hash, KcHashAlgo::Sha256);
    params.signScheme = KeyScheme::RsaPss;
    EXPECT_EQ(list[params.currentSignAlgo(list)].hash, KcHashAlgo::Sha256) << "the first with the same hash";
    params.hash = KcHashAlgo::Ripemd128;
    EXPECT_EQ(params.currentSignAlgo(list), list.size());

    params = allSchemes();
    params.chooseScheme(KeyScheme::RsaPss);
    params.hash = KcHashAlgo::Sha512;
    params.chooseLength(1040);
    EXPECT_EQ(params.hash, KcHashAlgo::Sha512);
    params.chooseLength(1039);
    EXPECT_EQ(params.hash, KcHashAlgo::Sha256) << "no room for SHA-512: back to the default";
}

TEST(KeyGenParams, TokensOfferTheirLengthsAndRefuseWhatTheyCannot) {
    using Lengths = std::vector<unsigned>;
    const std::tuple<unsigned, unsigned, Lengths> cases[] = {
        {0, 0, {}}, {0, 256, {128, 256}}, {1000, 1200, {1000, 1024, 1152, 1200}}, {2048, 2048, {2048}}};
    for (const auto& [least, most, lengths] : cases) EXPECT_EQ(tokenKeyLengths(least, most), lengths);
    const Lengths many = tokenKeyLengths(1, UINT32_MAX);
    EXPECT_EQ(many.size(), 100u);
    EXPECT_EQ(many.back(), UINT32_MAX) << "the maximum is always there";

    KeyGenParams token = allSchemes();
    token.token = true;
    EXPECT_EQ(token.schemes(), std::vector<KeyScheme>{KeyScheme::Rsa});

    EXPECT_EQ(tokenRefusal({true, false, true}, false, true), nullptr);
    EXPECT_NE(std::string(tokenRefusal({true, false, true}, true, true)).find("podpisu"), std::string::npos);
    EXPECT_NE(std::string(tokenRefusal({true, true, false}, true, true)).find("deszyfrowania"), std::string::npos);
    EXPECT_NE(std::string(tokenRefusal({false, true, true}, true, false)).find("generowania"), std::string::npos);
}

}  // namespace
}  // namespace crv
