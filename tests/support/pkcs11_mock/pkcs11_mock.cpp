// A PKCS#11 module in front of SoftHSM that logs calls and does as a script says, so that tests meet tokens that are
// full, locked, removed or lie.
//   CRV_MOCK_LOG     file that gets a line for every call: its name; "C_Login null" for a PIN of the reader
//   CRV_MOCK_SCRIPT  file of lines "<function or *> <number of the call, or *> <action> [value]", read at each call;
//   calls count from a new script on
// Actions: rv <number> answers that; kill ends the process before the call; flags <number> adds flags of the token; lie
// makes the answer absurd in the way of its function; hide <number> denies a mechanism; pause [seconds] leaves time
// for another process to call in. Calls that two processes make at once are logged as "overlap".
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <sstream>
#include <string>

#include <p11-kit/pkcs11.h>

namespace {

CK_FUNCTION_LIST* real;
CK_FUNCTION_LIST mock;

std::string env(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

struct Action {
    std::string what;
    unsigned long value = 0;
};

Action actionFor(const std::string& function) {
    static std::map<std::string, int> calls;
    static std::string last;
    std::stringstream script;
    script << std::ifstream(env("CRV_MOCK_SCRIPT")).rdbuf();
    if (script.str() != last) calls.clear();
    last = script.str();
    const int own = ++calls[function], all = ++calls["*"];
    std::string line;
    while (std::getline(script, line)) {
        std::istringstream words(line);
        std::string name, number, value;
        Action action;
        words >> name >> number >> action.what >> value;
        if (!value.empty()) action.value = std::stoul(value, nullptr, 0);
        const int count = name == "*" ? all : own;
        if ((name == "*" || name == function) && (number == "*" || std::stoi(number) == count)) return action;
    }
    return {};
}

void note(const std::string& line) {
    std::ofstream(env("CRV_MOCK_LOG"), std::ios::app) << line + "\n";
}

template <class... Args>
void lie(const char*, Args...) {}

// The count grows with every question and never fits.
void lie(const char*, CK_BBOOL, CK_SLOT_ID*, CK_ULONG* count) {
    static CK_ULONG growth = 0;
    *count += ++growth;
}
void lie(const char*, CK_SLOT_ID, CK_TOKEN_INFO* info) {
    std::memcpy(info->label, "\x1b[2J\xff", 5);
}
void lie(const char*, CK_SESSION_HANDLE, CK_OBJECT_HANDLE* objects, CK_ULONG most, CK_ULONG* count) {
    for (CK_ULONG i = 0; i < most; ++i) objects[i] = i;
    *count = most;
}
void lie(const char*, CK_SESSION_HANDLE, CK_OBJECT_HANDLE, CK_ATTRIBUTE* attributes, CK_ULONG count) {
    for (CK_ULONG i = 0; i < count; ++i) attributes[i].ulValueLen = i % 2 ? (1UL << 40) : static_cast<CK_ULONG>(-2);
}
void lie(const char*, CK_SESSION_HANDLE, CK_BYTE*, CK_ULONG, CK_BYTE* out, CK_ULONG* length) {
    if (out) out[0] ^= 1;
    *length -= 1;
}

template <class... Args>
bool isHidden(unsigned long, Args...) {
    return false;
}
bool isHidden(unsigned long mechanism, CK_SLOT_ID, CK_MECHANISM_TYPE asked, CK_MECHANISM_INFO*) {
    return asked == mechanism;
}

template <class... Args>
void addFlags(unsigned long, Args...) {}
void addFlags(unsigned long flags, CK_SLOT_ID, CK_TOKEN_INFO* info) {
    info->flags |= flags;
}

template <class... Args>
std::string argumentsOf(Args...) {
    return "";
}
std::string argumentsOf(CK_SESSION_HANDLE, CK_USER_TYPE, CK_UTF8CHAR* pin, CK_ULONG) {
    return pin ? "" : " null";
}
/// A reader asks for the PIN itself, a token of software wants it given.
template <class Function, class... Args>
CK_RV forward(Function function, Args... args) {
    return function(args...);
}
CK_RV forward(CK_C_Login function, CK_SESSION_HANDLE session, CK_USER_TYPE user, CK_UTF8CHAR* pin, CK_ULONG length) {
    CK_UTF8CHAR entered[] = "1234";
    return pin ? function(session, user, pin, length) : function(session, user, entered, 4);
}

template <class Function, class... Args>
CK_RV handle(const char* name, Function function, Args... args) {
    const int turn = open((env("CRV_MOCK_LOG") + ".turn").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (flock(turn, LOCK_EX | LOCK_NB) != 0) note("overlap");
    const Action action = actionFor(name);
    note(name + argumentsOf(args...));
    if (action.what == "kill") _exit(9);
    if (action.what == "pause") usleep(static_cast<useconds_t>(200 + action.value * 1000000));
    CK_RV rv = action.value;
    if (action.what != "rv") rv = forward(function, args...);
    if (action.what == "hide" && isHidden(action.value, args...)) rv = CKR_MECHANISM_INVALID;
    if (action.what == "lie") lie(name, args...);
    if (action.what == "flags") addFlags(action.value, args...);
    close(turn);
    return rv;
}

// clang-format off
#define MOCKED(X) \
    X(C_Initialize) X(C_Finalize) X(C_GetInfo) X(C_GetSlotList) X(C_GetSlotInfo) X(C_GetTokenInfo) \
    X(C_GetMechanismInfo) X(C_OpenSession) X(C_CloseSession) X(C_Login) X(C_Logout) X(C_SetPIN) X(C_CreateObject) \
    X(C_DestroyObject) X(C_GetAttributeValue) X(C_SetAttributeValue) X(C_FindObjectsInit) X(C_FindObjects) \
    X(C_FindObjectsFinal) X(C_SignInit) X(C_Sign) X(C_VerifyInit) X(C_Verify) X(C_DecryptInit) X(C_Decrypt) \
    X(C_GenerateKeyPair) X(C_DeriveKey) X(C_GenerateRandom)
// clang-format on

}  // namespace

#pragma GCC visibility push(default)
extern "C" CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list) {
    void* module = dlopen("/usr/lib/softhsm/libsofthsm2.so", RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    const auto get = module ? reinterpret_cast<CK_C_GetFunctionList>(dlsym(module, "C_GetFunctionList")) : nullptr;
    if (!get || get(&real) != CKR_OK) return CKR_GENERAL_ERROR;
#define WRAP(name) mock.name = [](auto... args) -> CK_RV { return handle(#name, real->name, args...); };
    MOCKED(WRAP)
    *list = &mock;
    return CKR_OK;
}
