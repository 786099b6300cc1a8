// Our layer beside the bare libcrypto calls that do the same work, in one run.
#include <benchmark/benchmark.h>

#include "crypto/kc_rbg.h"
#include "crypto/key_state.h"
#include "crypto/pbe.h"

namespace crv {
namespace {

KcHashAlgo algoOf(const benchmark::State& state) {
    return static_cast<KcHashAlgo>(state.range(1));
}

void hashOurs(benchmark::State& state) {
    const Bytes data(static_cast<size_t>(state.range(0)), 'x');
    Bytes digest(hashLength(algoOf(state)));
    for (auto _ : state) {
        hashInto(algoOf(state), data, digest);
        benchmark::DoNotOptimize(digest.data());
    }
}

void hashBare(benchmark::State& state) {
    const Bytes data(static_cast<size_t>(state.range(0)), 'x');
    uint8_t digest[kMaxHashLength];
    const EVP_MD* method = libcryptoHash(algoOf(state));
    for (auto _ : state) {
        EVP_Digest(data.data(), data.size(), digest, nullptr, method, nullptr);
        benchmark::DoNotOptimize(digest);
    }
}

void hashSizes(benchmark::internal::Benchmark* b) {
    b->ArgsProduct({{1024, 1 << 20}, {static_cast<int>(KcHashAlgo::Sha1), static_cast<int>(KcHashAlgo::Sha256)}});
}
BENCHMARK(hashOurs)->Apply(hashSizes);
BENCHMARK(hashBare)->Apply(hashSizes);

// The same candidates for primes on both sides: the n-th key of each comes from the n-th seed.
struct Numbered {
    explicit Numbered(uint8_t number) { generator.seed(Bytes(32, number)); }

    KcRbgHashIso18031 generator;
    RandomBridge bridge{[this](std::span<uint8_t> out) {
        generator.fill(out);
        return true;
    }};
};

void rsaGenerateOurs(benchmark::State& state) {
    uint8_t number = 0;
    for (auto _ : state) {
        Numbered random(number++);
        benchmark::DoNotOptimize(PrivateKey::generateRsa(2048, 65537, random.bridge));
    }
}

void rsaGenerateBare(benchmark::State& state) {
    uint8_t number = 0;
    for (auto _ : state) {
        Numbered random(number++);
        const RandomBridge::Scope scope(random.bridge);
        const ossl::PkeyCtx ctx(EVP_PKEY_CTX_new_from_name(ossl::context(), "RSA", nullptr));
        EVP_PKEY_keygen_init(ctx.get());
        size_t bits = 2048;
        const OSSL_PARAM params[] = {OSSL_PARAM_construct_size_t(OSSL_PKEY_PARAM_RSA_BITS, &bits),
                                     OSSL_PARAM_construct_end()};
        EVP_PKEY_CTX_set_params(ctx.get(), params);
        EVP_PKEY* key = nullptr;
        EVP_PKEY_generate(ctx.get(), &key);
        const ossl::Pkey owned(key);
    }
}
BENCHMARK(rsaGenerateOurs)->Iterations(60)->Unit(benchmark::kMillisecond);
BENCHMARK(rsaGenerateBare)->Iterations(60)->Unit(benchmark::kMillisecond);

PrivateKey keyFor(const benchmark::State& state) {
    Numbered random(7);
    return state.range(0) == 0 ? PrivateKey::generateRsa(2048, 65537, random.bridge)
                               : PrivateKey::generateEc(kDefaultCurve, false, random.bridge);
}

void signOurs(benchmark::State& state) {
    const PrivateKey key = keyFor(state);
    Numbered random(8);
    const Bytes digest(32, 1);
    for (auto _ : state) {
        benchmark::DoNotOptimize(key.sign(key.scheme(), KcHashAlgo::Sha256, digest, random.bridge));
    }
}

void signBare(benchmark::State& state) {
    const SecretBytes pkcs8 = keyFor(state).toPkcs8();
    const uint8_t* in = pkcs8.data();
    const ossl::Pkey key(
        d2i_AutoPrivateKey_ex(nullptr, &in, static_cast<long>(pkcs8.size()), ossl::context(), nullptr));
    const Bytes digest(32, 1);
    Bytes signature(512);
    for (auto _ : state) {
        const ossl::PkeyCtx ctx(EVP_PKEY_CTX_new_from_pkey(ossl::context(), key.get(), nullptr));
        EVP_PKEY_sign_init(ctx.get());
        EVP_PKEY_CTX_set_signature_md(ctx.get(), libcryptoHash(KcHashAlgo::Sha256));
        size_t length = signature.size();
        if (EVP_PKEY_sign(ctx.get(), signature.data(), &length, digest.data(), digest.size()) != 1) {
            state.SkipWithError("libcrypto does not sign");
        }
    }
}
BENCHMARK(signOurs)->ArgName("ec")->Arg(0)->Arg(1);
BENCHMARK(signBare)->ArgName("ec")->Arg(0)->Arg(1);

// A security file with one key and twenty certificates has two encrypted items of 2048 iterations.
constexpr size_t kItems[] = {1300, 20 * 1200};
const Bytes kSalt(8, 9);

void pkcs12Ours(benchmark::State& state) {
    const SecretBytes password = utf16BePassword("correct horse battery staple");
    std::vector<Bytes> items;
    for (const size_t size : kItems) {
        items.push_back(pbeEncrypt(PbeAlgo::Sha1TripleDesCbc, password, kSalt, 2048, Bytes(size, 1)));
    }
    for (auto _ : state) {
        for (const Bytes& item : items) {
            benchmark::DoNotOptimize(pbeDecrypt(CipherAlgo::TripleDesCbc, password, kSalt, 2048, item));
        }
    }
}

void deriveBare(SecretBytes& password, int id, std::span<uint8_t> out) {
    const ossl::Kdf kdf(EVP_KDF_fetch(ossl::context(), "PKCS12KDF", nullptr));
    const ossl::KdfCtx ctx(EVP_KDF_CTX_new(kdf.get()));
    unsigned iterations = 2048;
    char name[] = "SHA1";
    Bytes salt = kSalt;
    const OSSL_PARAM params[] = {
        OSSL_PARAM_construct_utf8_string(OSSL_KDF_PARAM_DIGEST, name, 0),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_PASSWORD, password.data(), password.size()),
        OSSL_PARAM_construct_octet_string(OSSL_KDF_PARAM_SALT, salt.data(), salt.size()),
        OSSL_PARAM_construct_uint(OSSL_KDF_PARAM_ITER, &iterations),
        OSSL_PARAM_construct_int(OSSL_KDF_PARAM_PKCS12_ID, &id),
        OSSL_PARAM_construct_end()};
    EVP_KDF_derive(ctx.get(), out.data(), out.size(), params);
}

void pkcs12Bare(benchmark::State& state) {
    SecretBytes password = utf16BePassword("correct horse battery staple");
    const ossl::Cipher cipher(EVP_CIPHER_fetch(ossl::context(), "DES-EDE3-CBC", nullptr));
    for (auto _ : state) {
        for (const size_t size : kItems) {
            uint8_t key[24];
            uint8_t iv[8];
            deriveBare(password, 1, key);
            deriveBare(password, 2, iv);
            Bytes data(size / 8 * 8 + 16);
            int length = 0;
            const ossl::CipherCtx ctx(EVP_CIPHER_CTX_new());
            EVP_DecryptInit_ex2(ctx.get(), cipher.get(), key, iv, nullptr);
            EVP_DecryptUpdate(ctx.get(), data.data(), &length, data.data(), static_cast<int>(size / 8 * 8 + 8));
            benchmark::DoNotOptimize(data.data());
        }
    }
}
BENCHMARK(pkcs12Ours)->Unit(benchmark::kMicrosecond);
BENCHMARK(pkcs12Bare)->Unit(benchmark::kMicrosecond);

void importPrivate(benchmark::State& state) {
    const SecretBytes pkcs8 = keyFor(state).toPkcs8();
    for (auto _ : state) benchmark::DoNotOptimize(PrivateKey::fromPkcs8(pkcs8));
}
void importPrivateBare(benchmark::State& state) {
    const SecretBytes pkcs8 = keyFor(state).toPkcs8();
    for (auto _ : state) {
        const uint8_t* in = pkcs8.data();
        const ossl::Pkey key(
            d2i_AutoPrivateKey_ex(nullptr, &in, static_cast<long>(pkcs8.size()), ossl::context(), nullptr));
        benchmark::DoNotOptimize(key.get());
    }
}
BENCHMARK(importPrivate)->ArgName("ec")->Arg(0)->Arg(1);
BENCHMARK(importPrivateBare)->ArgName("ec")->Arg(0)->Arg(1);

}  // namespace
}  // namespace crv

BENCHMARK_MAIN();
