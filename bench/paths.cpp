// Paths with revocation from encoded octets to the verdict, beside X509_verify_cert over the same octets in the same
// run. The counter "times" tells how many times as fast ours is.
#include <benchmark/benchmark.h>
#include <openssl/evp.h>
#include <openssl/rsa.h>
#include <openssl/x509_vfy.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <string>

#include "pki/certificate_manager.h"
#include "pki/revocation_manager.h"
#include "support/cert_maker.h"

namespace {

using namespace crv;
using test::CertPlan;
using test::MadeCert;
using test::TestKey;

void must(bool done) {
    if (!done) std::abort();
}

enum KeyKind : int64_t { kRsa, kEc };

TestKey keyOf(int64_t kind) {
    return kind == kEc ? test::makeKey() : TestKey(EVP_RSA_gen(2048), EVP_PKEY_free);
}

CertPlan planOf(const std::string& name, bool authority) {
    CertPlan plan{.subject = {{"C", "PL", test::kPrintableString}, {"O", "Firma"}, {"CN", name}}};
    plan.extensions = authority ? test::caExtensions()
                                : decltype(plan.extensions){{"keyUsage", "critical,digitalSignature"},
                                                            {"subjectKeyIdentifier", "hash"},
                                                            {"authorityKeyIdentifier", "keyid"}};
    return plan;
}

Bytes crlOf(const MadeCert& issuer, int entries) {
    test::CrlPlan plan;
    for (int i = 0; i < entries; ++i) plan.entries.push_back({"F" + std::to_string(100000 + i), 4});
    return makeCrl(plan, issuer);
}

/// A root, authorities below it, certificates below these, a CRL of each.
struct World {
    World(int64_t kind, size_t authorities, size_t leavesEach, int revoked)
        : root(test::makeCert(planOf("Korzeń", true), nullptr, keyOf(kind))) {
        crls.push_back(crlOf(root, 3));
        const TestKey leafKey = keyOf(kind);
        for (size_t i = 0; i < authorities; ++i) {
            middle.push_back(test::makeCert(planOf("Urząd " + std::to_string(i), true), &root, keyOf(kind)));
            crls.push_back(crlOf(middle.back(), revoked));
            for (size_t j = 0; j < leavesEach; ++j) {
                CertPlan plan = planOf("Jan " + std::to_string(j), false);
                plan.serial = std::to_string(100000 + j);
                leaves.push_back(test::makeCert(plan, &middle.back(), leafKey).der);
            }
        }
    }
    MadeCert root;
    std::vector<MadeCert> middle;
    std::vector<Bytes> leaves, crls;
};

/// Our managers over a database in memory that holds the world.
class Ours {
  public:
    explicit Ours(const World& world) {
        static int count = 0;
        DbConfig config;
        config.setType("w pamieci");
        config.dbName = "bench" + std::to_string(++count);
        database_.init(config);
        root_ = world.root.der;
        start();
        for (const MadeCert& one : world.middle) must(certificates_->db().insert(ByteView(one.der)));
        for (const Bytes& one : world.crls) must(revocation_->insert(one) == CrlInsert::Stored);
    }
    /// Forgets all that was decoded or verified.
    void start() {
        cache_.clear();
        certificates_.emplace();
        revocation_.emplace();
        trust_ = {makeCert(ByteView(root_))};
        certificates_->init(database_, cache_, [this] { return trust_; });
        revocation_->init(*certificates_);
    }
    void verify(const Bytes& leaf) {
        must(certificates_->buildPath(makeCert(leaf), {std::time(nullptr), 0, RevocationCheck::Required}).good());
    }
    void verifyAll(const std::vector<Bytes>& leaves) {
        CertList parsed;
        for (const Bytes& leaf : leaves) parsed.push_back(makeCert(leaf));
        const auto isGood = [](size_t, const PathVerdict& verdict) { return must(verdict.good()), true; };
        certificates_->buildPaths(parsed, {std::time(nullptr), 0, RevocationCheck::Required}, {}, isGood);
    }

  private:
    DbManager database_;
    CertificateCache cache_;
    Bytes root_;
    CertList trust_;
    std::optional<CertificateManager> certificates_;
    std::optional<RevocationManager> revocation_;
};

template <class T>
T* parse(T* (*d2i)(T**, const uint8_t**, long), const Bytes& der) {
    const uint8_t* at = der.data();
    T* made = d2i(nullptr, &at, static_cast<long>(der.size()));
    must(made != nullptr);
    return made;
}

/// libcrypto's store with the same.
class Theirs {
  public:
    explicit Theirs(const World& world) : world_(world) { start(); }
    Theirs(const Theirs&) = delete;
    Theirs& operator=(const Theirs&) = delete;
    ~Theirs() { stop(); }
    void start() {
        stop();
        store_ = X509_STORE_new();
        untrusted_ = sk_X509_new_null();
        X509* root = parse(d2i_X509, world_.root.der);
        X509_STORE_add_cert(store_, root);
        X509_free(root);
        for (const Bytes& one : world_.crls) {
            X509_CRL* crl = parse(d2i_X509_CRL, one);
            X509_STORE_add_crl(store_, crl);
            X509_CRL_free(crl);
        }
        for (const MadeCert& one : world_.middle) sk_X509_push(untrusted_, parse(d2i_X509, one.der));
        X509_STORE_set_flags(store_, X509_V_FLAG_CRL_CHECK | X509_V_FLAG_CRL_CHECK_ALL);
    }
    void verifyAll(const std::vector<Bytes>& leaves) {
        for (const Bytes& leaf : leaves) verify(leaf);
    }
    void verify(const Bytes& der) {
        X509* leaf = parse(d2i_X509, der);
        X509_STORE_CTX* ctx = X509_STORE_CTX_new();
        must(X509_STORE_CTX_init(ctx, store_, leaf, untrusted_) == 1 && X509_verify_cert(ctx) == 1);
        X509_STORE_CTX_free(ctx);
        X509_free(leaf);
    }

  private:
    void stop() {
        X509_STORE_free(store_);
        sk_X509_pop_free(untrusted_, X509_free);
    }
    const World& world_;
    X509_STORE* store_ = nullptr;
    STACK_OF(X509) * untrusted_ = nullptr;
};

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

/// Three certificates and two CRLs; everything is decoded and verified anew.
void chainCold(benchmark::State& state) {
    const World world(state.range(0), 1, 1, 100);
    Ours ours(world);
    Theirs theirs(world);
    compare(
        state, [&] { ours.start(), ours.verify(world.leaves[0]); },
        [&] { theirs.start(), theirs.verify(world.leaves[0]); });
}
BENCHMARK(chainCold)->Arg(kRsa)->Arg(kEc)->UseManualTime()->Unit(benchmark::kMicrosecond);

/// The same chain again and again, each with what it remembers.
void chainAgain(benchmark::State& state) {
    const World world(state.range(0), 1, 1, 100);
    Ours ours(world);
    Theirs theirs(world);
    compare(
        state, [&] { ours.verify(world.leaves[0]); }, [&] { theirs.verify(world.leaves[0]); });
}
BENCHMARK(chainAgain)->Arg(kRsa)->Arg(kEc)->UseManualTime()->Unit(benchmark::kMicrosecond);

/// 10,000 certificates under three authorities, and so many revoked ones on the CRL of each.
void manyLeaves(benchmark::State& state) {
    const World world(state.range(0), 3, 3334, static_cast<int>(state.range(1)));
    const auto all = [&](auto& verifier) {
        verifier.start();
        verifier.verifyAll(world.leaves);
    };
    Ours ours(world);
    Theirs theirs(world);
    compare(
        state, [&] { all(ours); }, [&] { all(theirs); });
}
BENCHMARK(manyLeaves)
    ->ArgsProduct({{kRsa, kEc}, {300, 3000}})
    ->UseManualTime()
    ->Iterations(2)
    ->Unit(benchmark::kMillisecond);

/// 400 cross-certificates between 21 authorities. Kinds: nowhere is a trust point; there is one, but no path to it is
/// good; the only good one begins at the last authority.
void web(benchmark::State& state) {
    constexpr size_t kNames = 21;
    const TestKey rootKey = test::makeKey();
    const MadeCert root = test::makeCert(planOf("Korzeń", true), nullptr, rootKey);
    std::vector<MadeCert> authorities;
    CertList all;
    for (size_t i = 0; i < kNames; ++i)
        authorities.push_back(test::makeCert(planOf("Sieć " + std::to_string(i), true)));
    for (size_t i = 0; i < kNames; ++i) {
        for (size_t j = 0; j < kNames && all.size() < 400; ++j) {
            if (i == j) continue;
            all.push_back(makeCert(ByteView(
                test::makeCert(planOf("Sieć " + std::to_string(i), true), &authorities[j], authorities[i].key).der)));
        }
    }
    const Bytes leaf = test::makeCert(planOf("Jan", false), &authorities[0]).der;
    PathOptions options{std::time(nullptr), 0, RevocationCheck::None};
    if (state.range(0) > 0) {
        all.push_back(makeCert(ByteView(
            test::makeCert(planOf("Sieć " + std::to_string(kNames - 1), true), &root, authorities[kNames - 1].key)
                .der)));
        options.explicitPolicy = state.range(0) == 1;
    }
    DbManager database;
    DbConfig none;
    none.setType("brak");
    database.init(none);
    for (auto _ : state) {
        CertificateCache cache;
        CertificateManager manager;
        const CertList trust{makeCert(ByteView(root.der))};
        manager.init(database, cache, [&] { return trust; });
        const PathVerdict found = manager.buildPath(makeCert(leaf), options, all);
        must(found.good() == (state.range(0) == 2));
        state.counters["exhausted"] = found.exhausted ? 1 : 0;
    }
}
BENCHMARK(web)->Arg(0)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
