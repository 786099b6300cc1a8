// The key store beside libcrypto's own PKCS#12 reader, in one run over equivalent files: one RSA key, its certificate
// and nineteen others.
#include <benchmark/benchmark.h>
#include <openssl/pkcs12.h>
#include <openssl/x509v3.h>

#include <cstdlib>
#include <filesystem>

#include "config/configuration_manager.h"
#include "config/context_services.h"
#include "corvane/crvprofile.h"
#include "keystore/key_manager.h"
#include "keystore/key_pairing.h"
#include "keystore/security_file.h"
#include "misc/atomic_write.h"
#include "profiles/profile_kinds.h"

namespace crv {
namespace {

constexpr const char* kPassword = "Haslo-1234";
constexpr int kCertificates = 20;

void must(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "%s failed\n", what);
    std::abort();
}

/// A self-signed certificate of the key.
CertPtr certificateFor(EVP_PKEY* key, int number) {
    X509* x = X509_new();
    X509_set_version(x, X509_VERSION_3);
    ASN1_INTEGER_set(X509_get_serialNumber(x), number);
    X509_gmtime_adj(X509_getm_notBefore(x), 0);
    X509_gmtime_adj(X509_getm_notAfter(x), 365L * 86400);
    X509_set_pubkey(x, key);
    const std::string name = "Uzytkownik numer " + std::to_string(number);
    const auto* text = reinterpret_cast<const unsigned char*>(name.c_str());
    X509_NAME_add_entry_by_txt(X509_get_subject_name(x), "CN", MBSTRING_UTF8, text, -1, -1, 0);
    X509_set_issuer_name(x, X509_get_subject_name(x));
    must(X509_sign(x, key, EVP_sha256()) > 0, "X509_sign");
    Bytes der(static_cast<size_t>(i2d_X509(x, nullptr)));
    uint8_t* out = der.data();
    i2d_X509(x, &out);
    X509_free(x);
    return makeCert(der);
}

KeyStoreContents makeContents() {
    KeyStoreContents contents;
    for (int i = 0; i < kCertificates; ++i) {
        EVP_PKEY* key = EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t{2048});
        contents.userCerts.push_back(certificateFor(key, i));
        if (i == 0) {
            PKCS8_PRIV_KEY_INFO* info = EVP_PKEY2PKCS8(key);
            Bytes der(static_cast<size_t>(i2d_PKCS8_PRIV_KEY_INFO(info, nullptr)));
            uint8_t* out = der.data();
            i2d_PKCS8_PRIV_KEY_INFO(info, &out);
            PKCS8_PRIV_KEY_INFO_free(info);
            contents.keys.push_back({std::make_shared<const PrivateKey>(PrivateKey::fromPkcs8(der)), KeyRole::Signing});
        }
        EVP_PKEY_free(key);
    }
    return contents;
}

const KeyStoreContents& contents() {
    static const KeyStoreContents made = makeContents();
    return made;
}

Bytes fileOf(const KeyStoreContents& held) {
    SecretArray<20> salt;
    Bytes octets;
    must(buildSecurityFile(held, SecretText(kPassword), salt, octets) == kKmOk, "buildSecurityFile");
    return octets;
}

const Bytes& plainFile() {
    static const Bytes octets = fileOf(contents());
    return octets;
}

void loadOurs(benchmark::State& state) {
    const SecretText password(kPassword);
    static_cast<void>(plainFile());  // the keys are made now, not in the first turn
    for (auto _ : state) {
        LoadedSecurityFile file;
        KeyStoreContents out;
        must(readSecurityFile(plainFile(), password, true, file) == kKmOk, "readSecurityFile");
        must(analyzeKeysAndCerts(file, false, out) == kKmOk, "analyzeKeysAndCerts");
        benchmark::DoNotOptimize(out.keys.data());
    }
}
BENCHMARK(loadOurs)->Unit(benchmark::kMillisecond);

void loadLibcrypto(benchmark::State& state) {
    static_cast<void>(plainFile());
    for (auto _ : state) {
        const uint8_t* at = plainFile().data();
        PKCS12* p12 = d2i_PKCS12(nullptr, &at, static_cast<long>(plainFile().size()));
        EVP_PKEY* key = nullptr;
        X509* cert = nullptr;
        STACK_OF(X509)* others = nullptr;
        must(PKCS12_parse(p12, kPassword, &key, &cert, &others) == 1, "PKCS12_parse");
        must(sk_X509_num(others) == kCertificates - 1, "certificates");
        EVP_PKEY_free(key);
        X509_free(cert);
        sk_X509_pop_free(others, X509_free);
        PKCS12_free(p12);
    }
}
BENCHMARK(loadLibcrypto)->Unit(benchmark::kMillisecond);

void save(benchmark::State& state) {
    static_cast<void>(contents());
    for (auto _ : state) benchmark::DoNotOptimize(fileOf(contents()).data());
}
BENCHMARK(save)->Unit(benchmark::kMillisecond);

class Context final : public ContextServices {
  public:
    ConfigurationManager& configuration() override { return configuration_; }
    PinResult getPIN(PinSlot, SecretText& pin, bool*, bool) override { return pin = SecretText(kPassword), kPinOk; }
    void storePIN(PinSlot, const SecretText&) override {}
    bool tokenNotice(TokenNotice, const std::string&) override { return true; }
    void removePINs() override {}
    void report(std::string_view) override {}
    void addWarning(int) override {}
    void setDiagnosticText(std::string_view) override {}
    void setLastDeviceError(unsigned) override {}
    void setLastPkcs11Rv(unsigned long) override {}

  private:
    ConfigurationManager configuration_;
};

std::string benchFile() {
    const char* folder = std::getenv("CRV_BENCH_DIR");
    return (std::filesystem::path(folder ? folder : "/tmp") / "crv_bench_keys.p12").string();
}

/// The whole of a log-in: read, decipher with the two secret bags, seed, encipher anew, sync, rename.
void logIn(benchmark::State& state) {
    KeyStoreContents held = contents();
    held.configuration = std::make_shared<CRVCfgFile>();
    held.seed.emplace();
    const std::string path = benchFile();
    must(bool(writeFileAtomically(path, fileOf(held))), "write");
    Context context;
    auto profile = std::make_unique<Pkcs12Profile>();
    profile->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, path);
    context.configuration().setProfile(std::move(profile));
    KeyManager keys;
    keys.init(context);
    for (auto _ : state) must(keys.initProfile(0, false) == kKmOk, "initProfile");
    std::filesystem::remove(path);
}
BENCHMARK(logIn)->Unit(benchmark::kMillisecond)->UseRealTime();

/// What the disk alone takes of it: the same octets written, synced and renamed.
void writeAlone(benchmark::State& state) {
    const std::string path = benchFile();
    for (auto _ : state) must(bool(writeFileAtomically(path, plainFile())), "write");
    std::filesystem::remove(path);
}
BENCHMARK(writeAlone)->Unit(benchmark::kMillisecond)->UseRealTime();

}  // namespace
}  // namespace crv

BENCHMARK_MAIN();
