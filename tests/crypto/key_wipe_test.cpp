// Private numbers must be gone from every block, ours and libcrypto's, when it is given back.
#include <openssl/crypto.h>

#include <algorithm>
#include <stdexcept>

#include "crypto/crypto_test.h"
#include "crypto/kc_hash.h"
#include "support/heap_watch.h"

namespace crv {
namespace {

// libcrypto takes other memory functions only before its first allocation.
void* plainAlloc(size_t size, const char*, int) {
    return std::malloc(size);
}
void watchedFree(void* block, const char*, int) {
    heap_watch::giveBack(block);
}
void* watchedRealloc(void* block, size_t size, const char*, int) {
    void* moved = std::malloc(size);  // always moves, so that what growth leaves behind is seen
    if (moved && block) {
        std::memcpy(moved, block, std::min(size, malloc_usable_size(block)));
        heap_watch::giveBack(block);
    }
    return moved;
}
const int kInstalled = CRYPTO_set_mem_functions(plainAlloc, watchedRealloc, watchedFree);

TEST(KeyWipe, NothingOfAPrivateKeyIsLeft) {
    ASSERT_EQ(kInstalled, 1);
    const Bytes digest = hashOf(KcHashAlgo::Sha1, {});
    // Where 16 octets of a private number stand in the PKCS#8 encoding, counted from its end; RSA's is inside p.
    for (const auto& [scheme, fromEnd] :
         {std::pair(KeyScheme::Rsa, 440), {KeyScheme::Dsa, 17}, {KeyScheme::Ecdsa, 90}}) {
        SCOPED_TRACE(static_cast<int>(scheme));
        SeededRandom random;
        std::string secret;
        {
            const SecretBytes pkcs8 = makeKey(scheme, random.bridge).toPkcs8();
            secret = asText(ByteView(pkcs8).last(fromEnd).first(16));
        }
        const std::string reversed(secret.rbegin(), secret.rend());  // libcrypto's numbers on a little-endian machine
        const auto cycle = [&, s = scheme](bool throwing) {
            SeededRandom again;
            try {
                const PrivateKey key = makeKey(s, again.bridge);
                SecretBytes pkcs8 = key.toPkcs8();
                const auto found = std::ranges::search(pkcs8, asBytes(secret)).begin();
                if (found == pkcs8.end()) throw std::logic_error("not the same key");
                (void)PrivateKey::fromPkcs8(pkcs8).sign(s, KcHashAlgo::Sha1, digest, again.bridge);
                if (throwing) throw std::runtime_error("on the way");
                found[-1] ^= 1;  // the key no longer hangs together
                (void)PrivateKey::fromPkcs8(pkcs8);
            } catch (const std::runtime_error&) {
            }
        };
        for (const bool throwing : {false, true}) {
            const int leaks = heap_watch::leaksOf(
                secret, [&] { cycle(throwing); }, reversed);
            EXPECT_EQ(leaks, 0) << throwing;
        }
        // The watch itself sees plain copies on both heaps.
        EXPECT_GT(heap_watch::leaksOf(secret, [&] { (void)Bytes(secret.begin(), secret.end()); }), 0);
        EXPECT_GT(heap_watch::leaksOf(secret, [&] { OPENSSL_free(OPENSSL_memdup(secret.data(), secret.size())); }), 0);
    }
}

TEST(KeyWipe, NothingOfAGeneratorsStateIsLeft) {
    const Bytes seed(40, 0x5C);
    // V of the hash generator begins with the digest of the derivation's header and the seed (SP 800-90A 10.3.1).
    KcHash header(KcHashAlgo::Sha256);
    header.update(unhex("01000001b8"));
    header.update(seed);
    const Bytes v = header.final();
    header.update(unhex("02000001b8"));
    header.update(seed);
    Bytes whole = v;
    for (const uint8_t octet : header.final()) whole.push_back(octet);
    whole.resize(55);
    KcRbgHashIso18031 generator;
    generator.seed(seed);
    Bytes first(32);
    generator.fill(first);
    ASSERT_EQ(first, hashOf(KcHashAlgo::Sha256, whole));  // so v is what the watch must look for
    EXPECT_EQ(heap_watch::leaksOf(asText(v), [&] { std::make_unique<KcRbgHashIso18031>()->seed(seed); }), 0);
    EXPECT_EQ(heap_watch::leaksOf(asText(seed), [&] { std::make_unique<KcRbgDss32>()->seed(seed); }), 0);
}

}  // namespace
}  // namespace crv
