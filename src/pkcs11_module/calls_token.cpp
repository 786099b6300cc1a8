// Calls on the module, its slots and tokens.
#include <algorithm>
#include <cstring>

#include "misc/aside.h"
#include "misc/utf8.h"
#include "pkcs11_module/frame.h"

namespace crv::p11 {
namespace {

constexpr CK_VERSION kLibraryVersion{CRV_VERSION_MAJOR, CRV_VERSION_MINOR};
constexpr std::string_view kMaker = "Corvane";
/// The security file's own; other programs' files may have passwords of any length.
constexpr CK_ULONG kLongestPin = 254;
constexpr CK_ULONG kLongestForeignPin = 65536;

/// Texts are padded with spaces and never cut inside a character.
template <size_t Size>
void put(unsigned char (&field)[Size], std::string_view text) {
    std::memset(field, ' ', Size);
    const std::string_view cut = cutText(text, Size);
    std::copy(cut.begin(), cut.end(), field);
}

bool locksAreOurs(const CK_C_INITIALIZE_ARGS& args) {
    const int given = (args.CreateMutex ? 1 : 0) + (args.DestroyMutex ? 1 : 0) + (args.LockMutex ? 1 : 0) +
                      (args.UnlockMutex ? 1 : 0);
    demand((given == 0 || given == 4) && !args.pReserved, CKR_ARGUMENTS_BAD);
    return given == 0 || (args.flags & CKF_OS_LOCKING_OK) != 0;
}

CK_TOKEN_INFO infoOf(const Token& token, Module::Counts counts) {
    CK_TOKEN_INFO info{};
    put(info.label, token.profile().name);
    put(info.manufacturerID, kMaker);
    put(info.model, "Profile");
    put(info.serialNumber, token.serialNumber());
    put(info.utcTime, {});
    info.flags = CKF_RNG | CKF_LOGIN_REQUIRED | CKF_USER_PIN_INITIALIZED | CKF_TOKEN_INITIALIZED | CKF_WRITE_PROTECTED;
    info.ulMaxSessionCount = info.ulMaxRwSessionCount = Module::kMostSessions;
    info.ulSessionCount = counts.all;
    info.ulRwSessionCount = counts.readWrite;
    info.ulMaxPinLen = kLongestPin;
    info.ulMinPinLen = 1;
    info.ulTotalPublicMemory = info.ulFreePublicMemory = CK_UNAVAILABLE_INFORMATION;
    info.ulTotalPrivateMemory = info.ulFreePrivateMemory = CK_UNAVAILABLE_INFORMATION;
    return info;
}

/// Hands a list out as fits() does.
template <class Item>
void handOut(const std::vector<Item>& list, Item* buffer, CK_ULONG* count) {
    if (fits(buffer, count, list.size()) && !list.empty()) std::memcpy(buffer, list.data(), list.size() * sizeof(Item));
}

}  // namespace
}  // namespace crv::p11

using namespace crv::p11;

CK_RV C_Initialize(void* args) {
    try {
        if (const auto* given = static_cast<const CK_C_INITIALIZE_ARGS*>(args)) {
            if (!locksAreOurs(*given)) return CKR_CANT_LOCK;
            // Once said it holds: the program may have several parts that begin with us.
            if ((given->flags & CKF_LIBRARY_CANT_CREATE_OS_THREADS) != 0) crv::threadsMayStart = false;
        }
    } catch (const Refusal& refusal) {
        return refusal.rv;
    }
    return startModule();
}

CK_RV C_Finalize(void* reserved) {
    return reserved ? CKR_ARGUMENTS_BAD : stopModule();
}

CK_RV C_GetInfo(CK_INFO* info) {
    return inModule([&](Module&) -> CK_RV {
        demand(info, CKR_ARGUMENTS_BAD);
        *info = {};
        info->cryptokiVersion = {2, 40};
        put(info->manufacturerID, kMaker);
        put(info->libraryDescription, "Corvane profiles");
        info->libraryVersion = kLibraryVersion;
        return CKR_OK;
    });
}

CK_RV C_GetSlotList(unsigned char present, CK_SLOT_ID* list, CK_ULONG* count) {
    return inModule([&](Module& module) -> CK_RV {
        demand(count, CKR_ARGUMENTS_BAD);
        handOut(module.slots(present != CK_FALSE), list, count);
        return CKR_OK;
    });
}

CK_RV C_GetSlotInfo(CK_SLOT_ID slot, CK_SLOT_INFO* info) {
    return inModule([&](Module& module) -> CK_RV {
        demand(info, CKR_ARGUMENTS_BAD);
        const auto token = module.token(slot);
        *info = {};
        put(info->slotDescription, "Corvane profile " + token->profile().name);
        put(info->manufacturerID, kMaker);
        info->flags = CKF_REMOVABLE_DEVICE | (token->present() ? CKF_TOKEN_PRESENT : 0UL);
        return CKR_OK;
    });
}

CK_RV C_GetTokenInfo(CK_SLOT_ID slot, CK_TOKEN_INFO* info) {
    return inModule([&](Module& module) -> CK_RV {
        demand(info, CKR_ARGUMENTS_BAD);
        *info = infoOf(*module.presentToken(slot), module.counts(slot));
        return CKR_OK;
    });
}

CK_RV C_GetMechanismList(CK_SLOT_ID slot, CK_MECHANISM_TYPE* list, CK_ULONG* count) {
    return inModule([&](Module& module) -> CK_RV {
        static_cast<void>(module.presentToken(slot));
        std::vector<CK_MECHANISM_TYPE> types;
        for (const MechanismRow& row : mechanisms()) types.push_back(row.type);
        handOut(types, list, count);
        return CKR_OK;
    });
}

CK_RV C_GetMechanismInfo(CK_SLOT_ID slot, CK_MECHANISM_TYPE type, CK_MECHANISM_INFO* info) {
    return inModule([&](Module& module) -> CK_RV {
        static_cast<void>(module.presentToken(slot));
        demand(info, CKR_ARGUMENTS_BAD);
        *info = infoOf(findMechanism(type, 0));
        return CKR_OK;
    });
}

CK_RV C_OpenSession(CK_SLOT_ID slot, CK_FLAGS flags, void*, CK_NOTIFY, CK_SESSION_HANDLE* session) {
    return inModule([&](Module& module) -> CK_RV {
        demand(session, CKR_ARGUMENTS_BAD);
        demand((flags & CKF_SERIAL_SESSION) != 0, CKR_SESSION_PARALLEL_NOT_SUPPORTED);
        *session = module.open(slot, (flags & CKF_RW_SESSION) != 0);
        return CKR_OK;
    });
}

CK_RV C_CloseSession(CK_SESSION_HANDLE session) {
    return inModule([&](Module& module) -> CK_RV {
        module.close(session);
        return CKR_OK;
    });
}

CK_RV C_CloseAllSessions(CK_SLOT_ID slot) {
    return inModule([&](Module& module) -> CK_RV {
        module.closeAll(slot);
        return CKR_OK;
    });
}

CK_RV C_GetSessionInfo(CK_SESSION_HANDLE handle, CK_SESSION_INFO* info) {
    return inModule([&](Module& module) -> CK_RV {
        demand(info, CKR_ARGUMENTS_BAD);
        const SessionPtr session = module.session(handle);
        const bool user = session->token->loggedIn();
        const CK_STATE reading = user ? CKS_RO_USER_FUNCTIONS : CKS_RO_PUBLIC_SESSION;
        const CK_STATE writing = user ? CKS_RW_USER_FUNCTIONS : CKS_RW_PUBLIC_SESSION;
        *info = {};
        info->slotID = session->slot;
        info->state = session->readWrite ? writing : reading;
        info->flags = CKF_SERIAL_SESSION | (session->readWrite ? CKF_RW_SESSION : 0UL);
        return CKR_OK;
    });
}

namespace {

crv::SecretText pinOf(const unsigned char* pin, CK_ULONG length) {
    demand(length <= kLongestForeignPin, CKR_PIN_INCORRECT);
    return crv::SecretText(crv::asText(viewOf(pin, length)));
}

}  // namespace

CK_RV C_Login(CK_SESSION_HANDLE handle, CK_USER_TYPE user, unsigned char* pin, CK_ULONG length) {
    return inModule([&](Module& module) -> CK_RV {
        static_cast<void>(module.session(handle));
        // No key asks for its PIN again.
        demand(user != CKU_CONTEXT_SPECIFIC, CKR_OPERATION_NOT_INITIALIZED);
        demand(user == CKU_USER, CKR_USER_TYPE_INVALID);
        demand(pin, CKR_ARGUMENTS_BAD);
        module.login(handle, pinOf(pin, length));
        return CKR_OK;
    });
}

CK_RV C_Logout(CK_SESSION_HANDLE handle) {
    return inModule([&](Module& module) -> CK_RV {
        module.logout(module.session(handle)->token);
        return CKR_OK;
    });
}

CK_RV C_SetPIN(CK_SESSION_HANDLE handle, unsigned char* oldPin, CK_ULONG oldLength, unsigned char* newPin,
               CK_ULONG newLength) {
    return inModule([&](Module& module) -> CK_RV {
        const SessionPtr session = module.session(handle);
        demand(session->readWrite, CKR_SESSION_READ_ONLY);
        demand(oldPin && newPin, CKR_ARGUMENTS_BAD);
        demand(newLength <= kLongestPin, CKR_PIN_LEN_RANGE);
        session->token->changePin(pinOf(oldPin, oldLength), pinOf(newPin, newLength));
        return CKR_OK;
    });
}
