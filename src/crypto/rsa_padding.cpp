#include "crypto/rsa_padding.h"

#include <algorithm>

#include "crypto/crypto_error.h"

namespace crv {
namespace {

constexpr uint8_t kPssTrailer = 0xBC;
constexpr size_t kFewestPadding = 8;
constexpr size_t kPkcs1Head = 2;

/// XORs MGF1 of the seed onto the octets (RFC 8017 B.2.1).
void maskWith(KcHashAlgo hash, ByteView seed, std::span<uint8_t> octets) {
    SecretBytes input = toSecret(seed);
    input.resize(seed.size() + 4);
    for (size_t at = 0, block = 0; at < octets.size(); ++block) {
        for (size_t i = 0; i < 4; ++i) input[seed.size() + i] = static_cast<uint8_t>(block >> (24 - 8 * i));
        SecretBytes mask(hashLength(hash));
        hashInto(hash, input, mask);
        for (size_t i = 0; i < mask.size() && at < octets.size(); ++i) octets[at++] ^= mask[i];
    }
}

/// 0xFF.. for true, without a branch.
size_t maskIf(bool condition) {
    return ~static_cast<size_t>(condition) + 1;
}

/// The end of a block behind its first octet of the value from `start` on; `good` collects whether there is one,
/// looking at every octet whatever it finds.
size_t behindFirst(ByteView block, size_t start, uint8_t value, size_t& good, bool onlyZeros) {
    size_t found = 0, searching = ~size_t{0};
    for (size_t i = start; i < block.size(); ++i) {
        const size_t hit = maskIf(block[i] == value);
        found |= searching & hit & (i + 1);
        if (onlyZeros) good &= ~(searching & ~hit & maskIf(block[i] != 0));
        searching &= ~hit;
    }
    good &= ~searching;
    return found;
}

SecretBytes tailOf(const SecretBytes& block, size_t from, size_t good) {
    if (good == 0) throw CryptoError(CryptoFailure::BadData, "the ciphertext does not decrypt");
    return {block.begin() + static_cast<long>(from), block.end()};
}

SecretBytes removePkcs1(const SecretBytes& block) {
    if (block.size() < kPkcs1Head + kFewestPadding + 1) return tailOf(block, 0, 0);
    size_t good = maskIf(block[0] == 0) & maskIf(block[1] == 2);
    const size_t from = behindFirst(block, kPkcs1Head, 0, good, false);
    good &= maskIf(from > kPkcs1Head + kFewestPadding);
    return tailOf(block, from, good);
}

SecretBytes removeOaep(SecretBytes block, const OaepParams& oaep) {
    const size_t length = hashLength(oaep.hash);
    if (length == 0 || block.size() < 2 * length + 2) return tailOf(block, 0, 0);
    const KcHashAlgo mgf = oaep.mgfHash == KcHashAlgo::None ? oaep.hash : oaep.mgfHash;
    const std::span<uint8_t> seed(block.data() + 1, length);
    const std::span<uint8_t> data = std::span(block).subspan(1 + length);
    maskWith(mgf, data, seed);
    maskWith(mgf, seed, data);
    size_t good = maskIf(block[0] == 0) & maskIf(equalConstantTime(data.first(length), hashOf(oaep.hash, oaep.label)));
    const size_t from = behindFirst(block, 1 + 2 * length, 1, good, true);
    return tailOf(block, from, good);
}

}  // namespace

Bytes encodePss(KcHashAlgo hash, ByteView digest, unsigned keyBits, RandomBridge& random, const PssParams& pss) {
    const size_t length = hashLength(hash);
    const size_t saltLength = pss.saltLength < 0 ? length : static_cast<size_t>(pss.saltLength);
    const size_t blockLength = (keyBits + 6) / 8;
    if (length == 0 || digest.size() != length || blockLength < length + saltLength + 2)
        throw CryptoError(CryptoFailure::BadParameter, "the key has no room for the signature");
    Bytes salted(8 + length + saltLength);
    std::ranges::copy(digest, salted.begin() + 8);
    const auto salt = std::span(salted).subspan(8 + length);
    random.draw(salt);
    // As long as the modulus, which may be an octet longer than the encoded message.
    Bytes block((keyBits + 7) / 8);
    const auto encoded = std::span(block).subspan(block.size() - blockLength);
    const auto db = encoded.first(blockLength - length - 1);
    const auto h = encoded.subspan(db.size(), length);
    hashInto(hash, salted, h);
    db[db.size() - saltLength - 1] = 1;
    std::ranges::copy(salt, db.end() - static_cast<long>(saltLength));
    maskWith(pss.mgfHash == KcHashAlgo::None ? hash : pss.mgfHash, h, db);
    db[0] &= static_cast<uint8_t>(0xFF >> (8 * blockLength - (keyBits - 1)));
    encoded.back() = kPssTrailer;
    return block;
}

SecretBytes removePadding(RsaPadding padding, SecretBytes block, const OaepParams& oaep) {
    return padding == RsaPadding::Pkcs1 ? removePkcs1(block) : removeOaep(std::move(block), oaep);
}

}  // namespace crv
