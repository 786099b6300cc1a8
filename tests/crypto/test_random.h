// Sources of random octets for tests.
#pragma once

#include "crypto/kc_rbg.h"
#include "crypto/random_bridge.h"

namespace crv {

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

}  // namespace crv
