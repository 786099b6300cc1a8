// Messages signed, verified, encrypted and decrypted, beside libcrypto's CMS calls over the same octets in the same
// run. The counter "times" tells how many times as fast ours is.
#include <benchmark/benchmark.h>
#include <malloc.h>
#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>
#include <openssl/x509_vfy.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <functional>

#include "asn/known_oids.h"
#include "crypto/private_key.h"
#include "messages/message_decryptor.h"
#include "messages/message_encryptor.h"
#include "messages/message_signer.h"
#include "messages/message_verifier.h"
#include "pki/revocation_manager.h"
#include "support/cert_maker.h"

namespace {

using namespace crv;
using test::MadeCert;
using test::TestKey;

void must(bool done) {
    if (!done) std::abort();
}

template <class T>
T* parsed(T* (*d2i)(T**, const uint8_t**, long), const Bytes& der) {
    const uint8_t* at = der.data();
    T* made = d2i(nullptr, &at, static_cast<long>(der.size()));
    must(made != nullptr);
    return made;
}

/// An authority and a signer with RSA keys of 2048 bits.
struct World {
    TestKey rootKey{EVP_RSA_gen(2048), EVP_PKEY_free}, leafKey{EVP_RSA_gen(2048), EVP_PKEY_free};
    MadeCert root =
        test::makeCert({.subject = {{"CN", "Korzeń"}}, .extensions = test::caExtensions()}, nullptr, rootKey);
    MadeCert leaf = test::makeCert(
        {.subject = {{"CN", "Jan"}}, .serial = "17", .extensions = {{"keyUsage", "digitalSignature,keyEncipherment"}}},
        &root, leafKey);
    SignerPtr key;
    CertPtr certificate = crv::makeCert(ByteView(leaf.der));
    X509* cert = parsed(d2i_X509, leaf.der);
    X509_STORE* store = X509_STORE_new();

    World() {
        PKCS8_PRIV_KEY_INFO* info = EVP_PKEY2PKCS8(leafKey.get());
        uint8_t* der = nullptr;
        const int length = i2d_PKCS8_PRIV_KEY_INFO(info, &der);
        key = std::make_shared<PrivateKey>(PrivateKey::fromPkcs8({der, static_cast<size_t>(length)}));
        OPENSSL_free(der);
        PKCS8_PRIV_KEY_INFO_free(info);
        X509* trusted = parsed(d2i_X509, root.der);
        X509_STORE_add_cert(store, trusted);
        X509_free(trusted);
    }
};

World& world() {
    static World made;
    return made;
}

/// Our managers with one trust point and no CRLs.
struct Managers {
    Managers() {
        static int count = 0;
        DbConfig config;
        config.setType("w pamieci");
        config.dbName = "bench" + std::to_string(++count);
        database.init(config);
        trust = {crv::makeCert(ByteView(world().root.der))};
        certificates.init(database, cache, [this] { return trust; });
        revocation.init(certificates);
    }
    DbManager database;
    CertificateCache cache;
    CertificateManager certificates;
    RevocationManager revocation;
    CertList trust;
};

RandomBridge& randomSource() {
    static RandomBridge source([](std::span<uint8_t> out) { return systemRandom(out); });
    return source;
}

constexpr size_t kPiece = size_t{256} << 10;

/// A content of so many octets, a piece at a time.
void eachPiece(size_t length, const std::function<void(ByteView)>& take) {
    static const Bytes piece(kPiece, 0x5A);
    for (; length > 0; length -= std::min(length, kPiece)) take(ByteView(piece).first(std::min(length, kPiece)));
}

ContentSink into(Bytes& out) {
    return [&out](ByteView piece) { return out.insert(out.end(), piece.begin(), piece.end()), true; };
}

bool away(ByteView piece) {
    benchmark::DoNotOptimize(piece.data());
    return true;
}

void sign(size_t length, const ContentSink& sink) {
    SignParams params{.signers = {{world().key, world().certificate}}, .time = std::time(nullptr)};
    MessageSigner signer(std::move(params), randomSource(), sink);
    eachPiece(length, [&](ByteView piece) { signer.update(piece); });
    must(signer.finish().signers == 1);
}

void verify(Managers& managers, const std::function<void(const std::function<void(ByteView)>&)>& message) {
    MessageVerifier verifier({.content = away, .now = std::time(nullptr)}, managers.certificates, managers.revocation);
    message([&](ByteView piece) { verifier.update(piece); });
    must(verifier.finish().good());
}

/// A source for libcrypto that gives so many octets and holds none.
int readPieces(BIO* bio, char* out, int room) {
    auto* left = static_cast<size_t*>(BIO_get_data(bio));
    const size_t count = std::min(*left, static_cast<size_t>(room));
    std::memset(out, 0x5A, count);
    *left -= count;
    return static_cast<int>(count);
}

BIO* sourceOf(size_t& left) {
    static BIO_METHOD* method = [] {
        BIO_METHOD* made = BIO_meth_new(BIO_TYPE_SOURCE_SINK, "pieces");
        BIO_meth_set_read(made, readPieces);
        BIO_meth_set_ctrl(made, [](BIO* bio, int command, long, void*) -> long {
            return command == BIO_CTRL_EOF ? *static_cast<size_t*>(BIO_get_data(bio)) == 0 : 1;
        });
        return made;
    }();
    BIO* bio = BIO_new(method);
    BIO_set_data(bio, &left);
    BIO_set_init(bio, 1);
    return bio;
}

constexpr unsigned kFlags = CMS_BINARY | CMS_NOSMIMECAP | CMS_CADES;

void signTheirs(size_t length, BIO* out) {
    size_t left = length;
    BIO* source = sourceOf(left);
    CMS_ContentInfo* cms = CMS_sign(world().cert, world().leafKey.get(), nullptr, source, kFlags | CMS_STREAM);
    must(cms && i2d_CMS_bio_stream(out, cms, source, static_cast<int>(kFlags | CMS_STREAM)) == 1);
    CMS_ContentInfo_free(cms);
    BIO_free(source);
}

void verifyTheirs(BIO* message) {
    CMS_ContentInfo* cms = d2i_CMS_bio(message, nullptr);
    BIO* out = BIO_new(BIO_s_null());
    must(cms && CMS_verify(cms, nullptr, world().store, nullptr, out, CMS_BINARY) == 1);
    BIO_free(out);
    CMS_ContentInfo_free(cms);
}

double secondsOf(const auto& work) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
}

/// Both in turn, so that what else the machine does meets both.
void compare(benchmark::State& state, const auto& ours, const auto& theirs) {
    double own = 0, other = 0;
    for (auto _ : state) {
        const double once = secondsOf(ours);
        own += once;
        other += secondsOf(theirs);
        state.SetIterationTime(once);
    }
    state.counters["times"] = other / own;
    state.counters["libcrypto_us"] = other / static_cast<double>(state.iterations()) * 1e6;
}

constexpr int64_t kShort = 1024, kLong = int64_t{1} << 30;

void signing(benchmark::State& state) {
    const auto length = static_cast<size_t>(state.range(0));
    compare(
        state, [&] { sign(length, away); },
        [&] {
            BIO* out = BIO_new(BIO_s_null());
            signTheirs(length, out);
            BIO_free(out);
        });
}
BENCHMARK(signing)->Arg(kShort)->Arg(kLong)->UseManualTime()->Unit(benchmark::kMicrosecond);

void verifying(benchmark::State& state) {
    Bytes message;
    sign(static_cast<size_t>(state.range(0)), into(message));
    Managers managers;
    compare(
        state,
        [&] {
            verify(managers, [&](const auto& take) {
                for (ByteView rest = message; !rest.empty(); rest = rest.subspan(std::min(kPiece, rest.size())))
                    take(rest.first(std::min(kPiece, rest.size())));
            });
        },
        [&] {
            BIO* in = BIO_new_mem_buf(message.data(), static_cast<int>(message.size()));
            verifyTheirs(in);
            BIO_free(in);
        });
}
BENCHMARK(verifying)->Arg(kShort)->Arg(kLong)->UseManualTime()->Unit(benchmark::kMicrosecond);

/// 10,000 messages of 1 KiB by one signer, each from its octets to the verdict.
void tenThousand(benchmark::State& state) {
    constexpr size_t kCount = 10'000;
    std::vector<Bytes> messages(kCount);
    for (Bytes& one : messages) sign(1024, into(one));
    Managers managers;
    compare(
        state,
        [&] {
            for (const Bytes& one : messages) verify(managers, [&](const auto& take) { take(one); });
        },
        [&] {
            for (const Bytes& one : messages) {
                BIO* in = BIO_new_mem_buf(one.data(), static_cast<int>(one.size()));
                verifyTheirs(in);
                BIO_free(in);
            }
        });
}
BENCHMARK(tenThousand)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

/// Encrypting and decrypting a content in one go; "held_mib" is what the heap held more at most.
void sealing(benchmark::State& state) {
    const KnownOid& cipher = state.range(1) == 0 ? OID_AES256_CBC : OID_AES256_GCM;
    const auto length = static_cast<size_t>(state.range(0));
    const auto held = [] { return mallinfo2().uordblks + mallinfo2().hblkhd; };
    size_t most = 0;
    compare(
        state,
        [&] {
            const size_t before = held();
            MessageDecryptor decryptor({{world().key, {world().certificate}}}, away);
            MessageEncryptor encryptor({{world().certificate}, ASNobjectId(cipher)}, randomSource(),
                                       [&](ByteView piece) { return decryptor.update(piece), true; });
            eachPiece(length, [&](ByteView piece) {
                encryptor.update(piece);
                most = std::max(most, held() - before);
            });
            encryptor.finish();
            must(decryptor.finish().contentLength == static_cast<int64_t>(length));
        },
        [&] {
            size_t left = length;
            BIO* source = sourceOf(left);
            BIO* message = BIO_new(BIO_s_mem());
            BIO* out = BIO_new(BIO_s_null());
            STACK_OF(X509)* recipients = sk_X509_new_null();
            sk_X509_push(recipients, world().cert);
            CMS_ContentInfo* cms =
                CMS_encrypt(recipients, source, state.range(1) == 0 ? EVP_aes_256_cbc() : EVP_aes_256_gcm(),
                            CMS_BINARY | CMS_STREAM);
            must(cms && i2d_CMS_bio_stream(message, cms, source, CMS_BINARY | CMS_STREAM) == 1);
            CMS_ContentInfo_free(cms);
            cms = d2i_CMS_bio(message, nullptr);
            must(cms && CMS_decrypt(cms, world().leafKey.get(), world().cert, nullptr, out, CMS_BINARY) == 1);
            CMS_ContentInfo_free(cms);
            sk_X509_free(recipients);
            for (BIO* one : {source, message, out}) BIO_free(one);
        });
    state.counters["held_mib"] = static_cast<double>(most) / (1 << 20);
}
BENCHMARK(sealing)->ArgsProduct({{kShort, kLong}, {0, 1}})->UseManualTime()->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
