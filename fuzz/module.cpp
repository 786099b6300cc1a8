// Calls of the PKCS#11 module in any order, with handles, numbers and lengths of any value, over a list with a profile
// of each kind of key. Whatever comes, the module answers and neither reads nor writes beyond what it was given.
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <memory>

#include <openssl/pkcs12.h>
#include <p11-kit/pkcs11.h>

#include "crypto/private_key.h"
#include "misc/ascii.h"
#include "misc/whole_file.h"

using namespace crv;

namespace {

constexpr std::string_view kPin = "Haslo-1234";

/// As another program writes it, with derivations of one round: the time goes to the calls.
void writeStore(const std::string& path, const PrivateKey& key) {
    const SecretBytes der = key.toPkcs8();
    const uint8_t* at = der.data();
    EVP_PKEY* const pkey = d2i_AutoPrivateKey(nullptr, &at, static_cast<long>(der.size()));
    constexpr int kCipher = NID_pbe_WithSHA1And3_Key_TripleDES_CBC;
    PKCS12* const store =
        PKCS12_create(std::string(kPin).c_str(), nullptr, pkey, nullptr, nullptr, kCipher, -1, 1, 1, 0);
    uint8_t* octets = nullptr;
    const int length = i2d_PKCS12(store, &octets);
    if (length <= 0) std::abort();
    writeFile(path, {octets, static_cast<size_t>(length)});
    OPENSSL_free(octets);
    PKCS12_free(store);
    EVP_PKEY_free(pkey);
}

CK_FUNCTION_LIST& module() {
    static CK_FUNCTION_LIST* const kList = [] {
        RandomBridge random(systemRandom);
        const std::string folder = "/tmp/crv_fuzz_module_" + std::to_string(getpid()) + "/";
        std::filesystem::create_directories(folder);
        writeStore(folder + "a.p12", PrivateKey::generateRsa(1024, 65537, random));
        writeStore(folder + "b.p12", PrivateKey::generateEc(kDefaultCurve, false, random));
        writeStore(folder + "c.p12", PrivateKey::generateDsa(1024, random));
        std::string list;
        for (const char* name : {"A", "B", "C"}) {
            const std::string path = std::string("\\") + name + "\\";
            list += path + "TYPE[l] = 1\n" + path + "PKCS12FILE[s] = \"" + folder + asciiLower(name[0]) + ".p12\"\n";
        }
        writeFile(folder + "list.conf", asBytes(list));
        setenv("CRV_PROFILE_FILE", (folder + "list.conf").c_str(), 1);
        CK_FUNCTION_LIST* functions = nullptr;
        if (C_GetFunctionList(&functions) != CKR_OK || functions->C_Initialize(nullptr) != CKR_OK) std::abort();
        return functions;
    }();
    return *kList;
}

/// What the input says, octet by octet; behind its end everything is 0.
class Feed {
  public:
    explicit Feed(ByteView input) : rest_(input) {}
    [[nodiscard]] bool empty() const { return rest_.empty(); }
    uint8_t octet() {
        if (rest_.empty()) return 0;
        const uint8_t next = rest_[0];
        rest_ = rest_.subspan(1);
        return next;
    }
    CK_ULONG wide() {
        CK_ULONG value = 0;
        for (int i = 0; i < 8; ++i) value = value << 8 | octet();
        return value;
    }
    /// A value that was handed out, a small number, or anything at all.
    CK_ULONG handle(const std::vector<CK_ULONG>& known) {
        const uint8_t choice = octet();
        if (choice < 200 && !known.empty()) return known[choice % known.size()];
        return choice < 250 ? choice - 200U : wide();
    }

  private:
    ByteView rest_;
};

/// Memory of exactly the length that is told, so that a step beyond it is seen; null now and then.
class Memory {
  public:
    explicit Memory(Feed& feed) : length(feed.octet() * CK_ULONG{2}) {
        const bool none = feed.octet() % 8 == 0;
        if (none) return;
        octets_ = std::make_unique<uint8_t[]>(length);
        for (CK_ULONG i = 0; i < std::min<CK_ULONG>(length, 16); ++i) octets_[i] = feed.octet();
    }
    [[nodiscard]] uint8_t* at() const { return octets_.get(); }
    CK_ULONG length;

  private:
    std::unique_ptr<uint8_t[]> octets_;
};

struct State {
    std::vector<CK_ULONG> sessions, objects;
};

/// A mechanism of the list or any other; parameters that fit one or are anything. Pointers in them lead somewhere.
struct AnyMechanism {
    explicit AnyMechanism(Feed& feed) : memory(feed) {
        std::array<CK_MECHANISM_TYPE, 64> types{};
        CK_ULONG count = types.size();
        module().C_GetMechanismList(0, types.data(), &count);
        const uint8_t choice = feed.octet();
        raw = {choice < 240 ? types[choice % 32] : feed.wide(), nullptr, 0};
        pss = {feed.octet() % 2 ? CKM_SHA256 : CKM_SHA_1, feed.octet() % 6U, feed.octet()};
        oaep = {CKM_SHA_1, feed.octet() % 6U, feed.octet() % 2U, memory.at(), memory.at() ? memory.length : 0};
        switch (feed.octet() % 4) {
            case 0:
                raw.pParameter = &pss, raw.ulParameterLen = sizeof pss;
                break;
            case 1:
                raw.pParameter = &oaep, raw.ulParameterLen = sizeof oaep;
                break;
            case 2:
                raw.pParameter = memory.at(), raw.ulParameterLen = std::min<CK_ULONG>(memory.length, sizeof pss - 1);
                break;
            default:
                break;
        }
    }
    Memory memory;
    CK_MECHANISM raw{};
    CK_RSA_PKCS_PSS_PARAMS pss{};
    CK_RSA_PKCS_OAEP_PARAMS oaep{};
};

void openSession(Feed& feed, State& state) {
    CK_SESSION_HANDLE session = 0;
    if (module().C_OpenSession(feed.octet() % 3, feed.octet(), nullptr, nullptr, &session) == CKR_OK)
        state.sessions.push_back(session);
}

/// Both tokens logged in, and all that they show.
void begin(State& state) {
    for (CK_SLOT_ID slot = 0; slot < 2; ++slot) {
        CK_SESSION_HANDLE session = 0;
        std::array<CK_OBJECT_HANDLE, 8> found{};
        CK_ULONG count = 0;
        std::string pin(kPin);
        module().C_OpenSession(slot, CKF_SERIAL_SESSION, nullptr, nullptr, &session);
        module().C_Login(session, CKU_USER, reinterpret_cast<uint8_t*>(pin.data()), pin.size());
        module().C_FindObjectsInit(session, nullptr, 0);
        module().C_FindObjects(session, found.data(), found.size(), &count);
        module().C_FindObjectsFinal(session);
        state.sessions.push_back(session);
        state.objects.insert(state.objects.end(), found.data(), found.data() + count);
    }
    if (state.objects.size() < 4) std::abort();
}

void logIn(Feed& feed, State& state) {
    std::string pin(kPin);
    if (feed.octet() % 4 == 0) pin[0] = static_cast<char>(feed.octet());
    module().C_Login(feed.handle(state.sessions), feed.octet() % 8 ? CKU_USER : feed.octet() % 3U,
                     reinterpret_cast<uint8_t*>(pin.data()), pin.size());
}

/// Never the right old one: the files stay.
void setPin(Feed& feed, State& state) {
    Memory old(feed), fresh(feed);
    module().C_SetPIN(feed.handle(state.sessions), old.at(), old.length, fresh.at(), fresh.length);
}

void withTemplate(Feed& feed, State& state, bool search) {
    std::vector<Memory> values;
    std::vector<CK_ATTRIBUTE> attributes;
    for (int i = feed.octet() % 5; i > 0; --i) {
        Memory& value = values.emplace_back(feed);
        attributes.push_back({feed.octet() % 2 ? feed.octet() * CK_ULONG{2} : feed.wide(), value.at(), value.length});
    }
    const CK_ULONG session = feed.handle(state.sessions);
    if (search) {
        module().C_FindObjectsInit(session, attributes.data(), attributes.size());
    } else {
        module().C_GetAttributeValue(session, feed.handle(state.objects), attributes.data(), attributes.size());
    }
}

void findObjects(Feed& feed, State& state) {
    const CK_ULONG most = feed.octet() % 20;
    const auto found = std::make_unique<CK_OBJECT_HANDLE[]>(most);
    CK_ULONG count = 0;
    if (module().C_FindObjects(feed.handle(state.sessions), found.get(), most, &count) != CKR_OK) return;
    if (count > most) std::abort();
    state.objects.insert(state.objects.end(), found.get(), found.get() + count);
}

using InitCall = CK_RV (*)(CK_SESSION_HANDLE, CK_MECHANISM*, CK_OBJECT_HANDLE);
void init(Feed& feed, State& state, InitCall call) {
    AnyMechanism mechanism(feed);
    call(feed.handle(state.sessions), feed.octet() ? &mechanism.raw : nullptr, feed.handle(state.objects));
}

using WholeCall = CK_RV (*)(CK_SESSION_HANDLE, uint8_t*, CK_ULONG, uint8_t*, CK_ULONG*);
void whole(Feed& feed, State& state, WholeCall call) {
    Memory in(feed), out(feed);
    const CK_ULONG room = out.length;
    const CK_RV rv = call(feed.handle(state.sessions), in.at(), in.at() ? in.length : 0, out.at(), &out.length);
    if (rv == CKR_OK && out.at() && out.length > room) std::abort();
}

using PartCall = CK_RV (*)(CK_SESSION_HANDLE, uint8_t*, CK_ULONG);
void part(Feed& feed, State& state, PartCall call) {
    Memory in(feed);
    call(feed.handle(state.sessions), in.at(), in.length);
}

using FinalCall = CK_RV (*)(CK_SESSION_HANDLE, uint8_t*, CK_ULONG*);
void finish(Feed& feed, State& state, FinalCall call) {
    Memory out(feed);
    call(feed.handle(state.sessions), out.at(), feed.octet() ? &out.length : nullptr);
}

void look(Feed& feed, State& state) {
    CK_SESSION_INFO session{};
    CK_TOKEN_INFO token{};
    CK_SLOT_INFO slot{};
    CK_MECHANISM_INFO mechanism{};
    std::array<CK_SLOT_ID, 2> slots{};
    CK_ULONG count = feed.octet() % 3;
    module().C_GetSessionInfo(feed.handle(state.sessions), &session);
    module().C_GetTokenInfo(feed.octet(), feed.octet() ? &token : nullptr);
    module().C_GetSlotInfo(feed.octet(), &slot);
    module().C_GetMechanismInfo(feed.octet(), feed.wide(), &mechanism);
    module().C_GetSlotList(feed.octet(), feed.octet() % 2 ? slots.data() : nullptr, &count);
}

void verifyWhole(Feed& feed, State& state) {
    Memory data(feed), signature(feed);
    module().C_Verify(feed.handle(state.sessions), data.at(), data.length, signature.at(), signature.length);
}

bool seldom(Feed& feed) {
    return feed.octet() % 16 == 0;
}

/// What an honest program does: an operation with a key from its beginning to its end, here with whatever data.
void sequence(Feed& feed, State& state, InitCall begins, WholeCall ends) {
    AnyMechanism mechanism(feed);
    Memory in(feed), out(feed);
    if (feed.octet() % 2) mechanism.raw = {feed.octet() % 2 ? CKM_RSA_PKCS : CKM_ECDSA, nullptr, 0};
    const CK_ULONG session = feed.handle(state.sessions), room = out.length;
    if (begins(session, &mechanism.raw, feed.handle(state.objects)) != CKR_OK) return;
    if (feed.octet() % 2) in.length = std::min<CK_ULONG>(in.length, 128);
    const CK_RV rv = ends(session, in.at(), in.at() ? in.length : 0, out.at(), &out.length);
    if (rv == CKR_OK && out.at() && out.length > room) std::abort();
}

void restart(Feed& feed, State&) {
    if (!seldom(feed)) return;
    module().C_Finalize(nullptr);
    module().C_Initialize(nullptr);
}

using Step = void (*)(Feed&, State&);
constexpr Step kSteps[] = {
    openSession,
    openSession,
    logIn,
    logIn,
    setPin,
    findObjects,
    findObjects,
    look,
    verifyWhole,
    restart,
    [](Feed& f, State& s) { withTemplate(f, s, true); },
    [](Feed& f, State& s) { withTemplate(f, s, false); },
    [](Feed& f, State& s) { module().C_FindObjectsFinal(f.handle(s.sessions)); },
    [](Feed& f, State& s) { seldom(f) ? module().C_CloseSession(f.handle(s.sessions)) : CKR_OK; },
    [](Feed& f, State& s) { seldom(f) ? module().C_Logout(f.handle(s.sessions)) : CKR_OK; },
    [](Feed& f, State&) { seldom(f) ? module().C_CloseAllSessions(f.octet() % 3) : CKR_OK; },
    [](Feed& f, State& s) { sequence(f, s, module().C_SignInit, module().C_Sign); },
    [](Feed& f, State& s) { sequence(f, s, module().C_SignInit, module().C_Sign); },
    [](Feed& f, State& s) { sequence(f, s, module().C_DecryptInit, module().C_Decrypt); },
    [](Feed& f, State& s) { init(f, s, module().C_SignInit); },
    [](Feed& f, State& s) { init(f, s, module().C_VerifyInit); },
    [](Feed& f, State& s) { init(f, s, module().C_DecryptInit); },
    [](Feed& f, State& s) {
        AnyMechanism mechanism(f);
        module().C_DigestInit(f.handle(s.sessions), &mechanism.raw);
    },
    [](Feed& f, State& s) { whole(f, s, module().C_Sign); },
    [](Feed& f, State& s) { whole(f, s, module().C_Decrypt); },
    [](Feed& f, State& s) { whole(f, s, module().C_Digest); },
    [](Feed& f, State& s) { part(f, s, module().C_SignUpdate); },
    [](Feed& f, State& s) { part(f, s, module().C_VerifyUpdate); },
    [](Feed& f, State& s) { part(f, s, module().C_VerifyFinal); },
    [](Feed& f, State& s) { part(f, s, module().C_DigestUpdate); },
    [](Feed& f, State& s) { part(f, s, module().C_SeedRandom); },
    [](Feed& f, State& s) { part(f, s, module().C_GenerateRandom); },
    [](Feed& f, State& s) { finish(f, s, module().C_SignFinal); },
    [](Feed& f, State& s) { finish(f, s, module().C_DigestFinal); },
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    Feed feed({data, size});
    State state;
    if (feed.octet() % 4 != 0) begin(state);
    while (!feed.empty()) kSteps[feed.octet() % std::size(kSteps)](feed, state);
    for (CK_SLOT_ID slot = 0; slot < 2; ++slot) module().C_CloseAllSessions(slot);
    return 0;
}
