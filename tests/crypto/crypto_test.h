// What the tests of this folder share: hexadecimal text, failures, sources of random octets, data files.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <optional>
#include <sstream>
#include <string>

#include "crypto/crypto_error.h"
#include "crypto/kc_hash.h"
#include "crypto/kc_rbg.h"
#include "crypto/private_key.h"
#include "crypto/random_bridge.h"
#include "support/hex.h"

namespace crv {

using test::hex;
using test::unhex;

/// The hash that a data file names by its number.
inline KcHashAlgo algoOf(const std::string& number) {
    return static_cast<KcHashAlgo>(std::stoi(number));
}

/// The failure that the action ends with, if there is one.
inline std::optional<CryptoFailure> failureOf(const std::function<void()>& action) {
    try {
        action();
    } catch (const CryptoError& e) {
        return e.failure();
    }
    return std::nullopt;
}

/// The lines of a file of test vectors: words, "-" standing for an empty one; lines that begin with "#" are left out.
inline std::vector<std::vector<std::string>> vectorsOf(const std::string& name) {
    std::ifstream file(std::string(CRV_TEST_DATA "/") + name);
    std::vector<std::vector<std::string>> lines;
    for (std::string text, word; std::getline(file, text);) {
        if (text.starts_with("#")) continue;
        std::istringstream in(text);
        for (lines.emplace_back(); in >> word;) lines.back().push_back(word == "-" ? "" : word);
    }
    EXPECT_FALSE(lines.empty()) << name;
    return lines;
}

/// A bridge over the hash generator with a fixed seed; counts what was drawn.
struct SeededRandom {
    explicit SeededRandom(std::string_view seedText = "a fixed seed for tests") { generator.seed(asBytes(seedText)); }

    KcRbgHashIso18031 generator;
    size_t drawn = 0;
    RandomBridge bridge{[this](std::span<uint8_t> out) {
        drawn += out.size();
        generator.fill(out);
        return true;
    }};
};

/// A key of the scheme; with the same seed always the same one.
inline PrivateKey makeKey(KeyScheme scheme, RandomBridge& random) {
    if (scheme == KeyScheme::Dsa) return PrivateKey::generateDsa(1024, random);
    if (scheme == KeyScheme::Ecdsa) return PrivateKey::generateEc(kDefaultCurve, false, random);
    return PrivateKey::generateRsa(1536, 65537, random);
}

}  // namespace crv
