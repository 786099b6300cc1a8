// Signing through a profile on a token beside a bare loop over the same module: SoftHSM, RSA of 2048 bits.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <p11-kit/pkcs11.h>

#include "asn/pkcs/digest_info.h"
#include "context/crvctx.h"
#include "corvane/crvprofile.h"
#include "keystore/key_manager.h"
#include "profiles/profile_kinds.h"

namespace crv {
namespace {

constexpr const char* kModule = "/usr/lib/softhsm/libsofthsm2.so";

void must(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "%s failed\n", what);
    std::abort();
}

/// A token of its own with the user's key, logged in to, whose session stays open.
struct TokenProfile {
    TokenProfile() {
        char folder[] = "/tmp/crv-bench-XXXXXX";
        must(mkdtemp(folder), "mkdtemp");
        path = folder;
        std::ofstream(path / "softhsm2.conf") << "directories.tokendir = " << folder << "\n";
        setenv("SOFTHSM2_CONF", (path / "softhsm2.conf").c_str(), 1);
        must(
            std::system("softhsm2-util --init-token --free --label bench --so-pin 12345678 --pin 1234 >/dev/null") == 0,
            "softhsm2-util");
        auto profile = std::make_unique<Pkcs11Profile>();
        profile->setAttr(CRVPROFILE_ATTR_PKCS11_LIBRARY, kModule);
        profile->setAttr(CRVPROFILE_ATTR_PKCS11_KEEP_SESSION_OPEN, 1L);
        context.setProfile(std::move(profile));
        context.state.storePIN(PinSlot::SigningToken, SecretText("1234"));
        must(keys.initProfile(0, false) == kKmOk, "log-in");
        must(keys.generateRsaUserKey(KeyType::Signing, 65537, 2048, KeyScheme::Rsa) == kKmOk, "generation");
    }
    ~TokenProfile() { std::filesystem::remove_all(path); }

    std::filesystem::path path;
    CRVctx context;
    KeyManager& keys = context.keyManager;
};

Bytes digest() {
    return hashOf(KcHashAlgo::Sha256, asBytes("abc"));
}

void tokenSigns(benchmark::State& state) {
    TokenProfile token;
    const Signer& key = *token.keys.signingKey();
    const Bytes signedDigest = digest();
    for (auto _ : state)
        benchmark::DoNotOptimize(key.sign(KeyScheme::Rsa, KcHashAlgo::Sha256, signedDigest, token.keys.random()));
}
BENCHMARK(tokenSigns)->Unit(benchmark::kMicrosecond);

void bareLoopSigns(benchmark::State& state) {
    TokenProfile token;  // initialises the module and is logged in to the token
    void* module = dlopen(kModule, RTLD_NOW | RTLD_LOCAL);
    const auto get = reinterpret_cast<CK_C_GetFunctionList>(dlsym(module, "C_GetFunctionList"));
    CK_FUNCTION_LIST* p11 = nullptr;
    must(get(&p11) == CKR_OK, "C_GetFunctionList");
    CK_SLOT_ID slots[8];
    CK_ULONG count = 8;
    must(p11->C_GetSlotList(CK_TRUE, slots, &count) == CKR_OK, "C_GetSlotList");
    CK_SESSION_HANDLE session = 0;
    must(p11->C_OpenSession(slots[0], CKF_SERIAL_SESSION, nullptr, nullptr, &session) == CKR_OK, "C_OpenSession");
    CK_OBJECT_CLASS keyClass = CKO_PRIVATE_KEY;
    CK_ATTRIBUTE wanted{CKA_CLASS, &keyClass, sizeof keyClass};
    CK_OBJECT_HANDLE key = 0;
    must(
        p11->C_FindObjectsInit(session, &wanted, 1) == CKR_OK && p11->C_FindObjects(session, &key, 1, &count) == CKR_OK,
        "C_FindObjects");
    p11->C_FindObjectsFinal(session);
    Bytes info = DigestInfo(KcHashAlgo::Sha256, digest()).encoded();
    CK_MECHANISM mechanism{CKM_RSA_PKCS, nullptr, 0};
    Bytes signature(256);
    for (auto _ : state) {
        CK_ULONG length = signature.size();
        must(p11->C_SignInit(session, &mechanism, key) == CKR_OK &&
                 p11->C_Sign(session, info.data(), info.size(), signature.data(), &length) == CKR_OK,
             "C_Sign");
    }
    p11->C_CloseSession(session);
}
BENCHMARK(bareLoopSigns)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace crv

BENCHMARK_MAIN();
