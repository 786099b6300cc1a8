// RSA-2048 signatures of one key through the module, bare libcrypto and SoftHSM, in one run; and how long the module
// takes to show a list of 1,000 profiles.
#include <benchmark/benchmark.h>
#include <dlfcn.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <array>
#include <cstdlib>
#include <filesystem>
#include <string>

#include <p11-kit/pkcs11.h>

#include "crypto/private_key.h"
#include "keystore/security_file.h"
#include "misc/whole_file.h"

namespace crv {
namespace {

constexpr std::string_view kPin = "Haslo-1234";
constexpr int kProfiles = 1000;

void must(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "%s failed\n", what);
    std::abort();
}

/// A folder with the key as security file, as a SoftHSM token and plain, and the lists.
struct Bench {
    std::string folder = ownFolder();
    EVP_PKEY* key = EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t{2048});

    Bench() {
        std::filesystem::create_directories(folder + "tokens");
        writeKeys();
        writeList("one.conf", 1);
        writeList("all.conf", kProfiles);
        writeFile(folder + "softhsm2.conf", asBytes("directories.tokendir = " + folder + "tokens\n"));
        setenv("SOFTHSM2_CONF", (folder + "softhsm2.conf").c_str(), 1);
        run("softhsm2-util --init-token --free --label bench --pin 1234 --so-pin 1234");
        run("softhsm2-util --import " + folder + "key.pem --label key --id 01 --token bench --pin 1234");
    }
    Bench(const Bench&) = delete;
    Bench& operator=(const Bench&) = delete;
    ~Bench() { std::filesystem::remove_all(folder); }
    static const Bench& instance() {
        static const Bench made;
        return made;
    }

  private:
    static std::string ownFolder() {
        std::string name = (std::filesystem::temp_directory_path() / "crv_bench_module_XXXXXX").string();
        must(mkdtemp(name.data()), "mkdtemp");
        return name + "/";
    }
    static void run(const std::string& command) {
        must(std::system((command + " >/dev/null 2>&1").c_str()) == 0, command.c_str());
    }
    void writeKeys() const {
        PKCS8_PRIV_KEY_INFO* info = EVP_PKEY2PKCS8(key);
        Bytes der(static_cast<size_t>(i2d_PKCS8_PRIV_KEY_INFO(info, nullptr)));
        uint8_t* out = der.data();
        i2d_PKCS8_PRIV_KEY_INFO(info, &out);
        PKCS8_PRIV_KEY_INFO_free(info);
        BIO* file = BIO_new_file((folder + "key.pem").c_str(), "w");
        PEM_write_bio_PKCS8PrivateKey(file, key, nullptr, nullptr, 0, nullptr, nullptr);
        BIO_free(file);
        KeyStoreContents contents;
        contents.keys.push_back({std::make_shared<const PrivateKey>(PrivateKey::fromPkcs8(der)), KeyRole::Signing});
        contents.seed.emplace();
        SecretArray<20> salt;
        Bytes octets;
        must(buildSecurityFile(contents, SecretText(kPin), salt, octets) == kKmOk, "buildSecurityFile");
        writeFile(folder + "key.p12", octets);
    }
    void writeList(const char* name, int profiles) const {
        std::string list;
        for (int i = 0; i < profiles; ++i) {
            const std::string path = "\\P" + std::to_string(10000 + i) + "\\";
            list += path + "DB[s] = \"/home/jan/corvane/db/\"\n" + path + "DBTYPE[s] = \"corvane\"\n" + path +
                    "PKCS12FILE[s] = \"" + folder + "key.p12\"\n" + path + "TYPE[l] = 1\n";
        }
        writeFile(folder + name, asBytes(list));
    }
};

CK_FUNCTION_LIST& load(const char* path) {
    Bench::instance();
    void* handle = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    must(handle, path);
    CK_FUNCTION_LIST* functions = nullptr;
    must(reinterpret_cast<CK_C_GetFunctionList>(dlsym(handle, "C_GetFunctionList"))(&functions) == CKR_OK, path);
    return *functions;
}

/// Signatures of 32 octets with the private key of the first slot's token.
void signThrough(benchmark::State& state, CK_FUNCTION_LIST& module, std::string pin, CK_MECHANISM mechanism) {
    must(module.C_Initialize(nullptr) == CKR_OK, "C_Initialize");
    CK_SLOT_ID slots[8];
    CK_ULONG count = 8;
    must(module.C_GetSlotList(CK_TRUE, slots, &count) == CKR_OK && count > 0, "C_GetSlotList");
    CK_SESSION_HANDLE session = 0;
    must(module.C_OpenSession(slots[0], CKF_SERIAL_SESSION, nullptr, nullptr, &session) == CKR_OK, "C_OpenSession");
    must(module.C_Login(session, CKU_USER, reinterpret_cast<uint8_t*>(pin.data()), pin.size()) == CKR_OK, "C_Login");
    CK_OBJECT_CLASS kind = CKO_PRIVATE_KEY;
    CK_ATTRIBUTE wanted{CKA_CLASS, &kind, sizeof kind};
    CK_OBJECT_HANDLE key = 0;
    must(module.C_FindObjectsInit(session, &wanted, 1) == CKR_OK, "C_FindObjectsInit");
    must(module.C_FindObjects(session, &key, 1, &count) == CKR_OK && count == 1, "C_FindObjects");
    must(module.C_FindObjectsFinal(session) == CKR_OK, "C_FindObjectsFinal");
    std::array<uint8_t, 32> data{};
    std::array<uint8_t, 256> signature{};
    for (auto _ : state) {
        CK_ULONG length = signature.size();
        must(module.C_SignInit(session, &mechanism, key) == CKR_OK, "C_SignInit");
        must(module.C_Sign(session, data.data(), data.size(), signature.data(), &length) == CKR_OK, "C_Sign");
    }
    must(module.C_Finalize(nullptr) == CKR_OK, "C_Finalize");
}

void throughModule(benchmark::State& state, CK_MECHANISM mechanism) {
    static CK_FUNCTION_LIST& module = load(CRV_MODULE);
    setenv("CRV_PROFILE_FILE", (Bench::instance().folder + "one.conf").c_str(), 1);
    signThrough(state, module, std::string(kPin), mechanism);
}

void throughSoftHsm(benchmark::State& state, CK_MECHANISM mechanism) {
    static CK_FUNCTION_LIST& module = load("/usr/lib/softhsm/libsofthsm2.so");
    signThrough(state, module, "1234", mechanism);
}

CK_RSA_PKCS_PSS_PARAMS pss{CKM_SHA256, CKG_MGF1_SHA256, 32};
constexpr CK_MECHANISM kPkcs1{CKM_SHA256_RSA_PKCS, nullptr, 0};
/// The octets are the digest.
const CK_MECHANISM kRawPss{CKM_RSA_PKCS_PSS, &pss, sizeof pss};

void signLibcrypto(benchmark::State& state) {
    EVP_PKEY* key = Bench::instance().key;
    std::array<uint8_t, 32> data{};
    std::array<uint8_t, 256> signature{};
    for (auto _ : state) {
        size_t length = signature.size();
        EVP_MD_CTX* ctx = EVP_MD_CTX_new();
        must(EVP_DigestSignInit(ctx, nullptr, EVP_sha256(), nullptr, key) == 1, "EVP_DigestSignInit");
        must(EVP_DigestSign(ctx, signature.data(), &length, data.data(), data.size()) == 1, "EVP_DigestSign");
        EVP_MD_CTX_free(ctx);
    }
}

void signLibcryptoRawPss(benchmark::State& state) {
    EVP_PKEY* key = Bench::instance().key;
    std::array<uint8_t, 32> digest{};
    std::array<uint8_t, 256> signature{};
    for (auto _ : state) {
        size_t length = signature.size();
        EVP_PKEY_CTX* ctx = EVP_PKEY_CTX_new(key, nullptr);
        must(EVP_PKEY_sign_init(ctx) == 1 && EVP_PKEY_CTX_set_rsa_padding(ctx, RSA_PKCS1_PSS_PADDING) == 1 &&
                 EVP_PKEY_CTX_set_signature_md(ctx, EVP_sha256()) == 1 &&
                 EVP_PKEY_CTX_set_rsa_pss_saltlen(ctx, 32) == 1,
             "EVP_PKEY_sign_init");
        must(EVP_PKEY_sign(ctx, signature.data(), &length, digest.data(), digest.size()) == 1, "EVP_PKEY_sign");
        EVP_PKEY_CTX_free(ctx);
    }
}

BENCHMARK(signLibcrypto)->Unit(benchmark::kMicrosecond)->Repetitions(5);
BENCHMARK_CAPTURE(throughModule, pkcs1, kPkcs1)->Unit(benchmark::kMicrosecond)->Repetitions(5);
BENCHMARK_CAPTURE(throughSoftHsm, pkcs1, kPkcs1)->Unit(benchmark::kMicrosecond)->Repetitions(5);
BENCHMARK(signLibcryptoRawPss)->Unit(benchmark::kMicrosecond)->Repetitions(5);
BENCHMARK_CAPTURE(throughModule, rawPss, kRawPss)->Unit(benchmark::kMicrosecond)->Repetitions(5);
BENCHMARK_CAPTURE(throughSoftHsm, rawPss, kRawPss)->Unit(benchmark::kMicrosecond)->Repetitions(5);

void slotsOfThousandProfiles(benchmark::State& state) {
    static CK_FUNCTION_LIST& module = load(CRV_MODULE);
    setenv("CRV_PROFILE_FILE", (Bench::instance().folder + "all.conf").c_str(), 1);
    for (auto _ : state) {
        CK_ULONG count = 0;
        must(module.C_Initialize(nullptr) == CKR_OK, "C_Initialize");
        must(module.C_GetSlotList(CK_TRUE, nullptr, &count) == CKR_OK && count == kProfiles, "C_GetSlotList");
        must(module.C_Finalize(nullptr) == CKR_OK, "C_Finalize");
    }
}
BENCHMARK(slotsOfThousandProfiles)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace crv

BENCHMARK_MAIN();
