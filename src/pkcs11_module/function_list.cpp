// The list of functions by which programs reach the module, and what they look up to get it.
#include <p11-kit/pkcs11.h>

namespace {

/// What the tokens do not do.
template <class Function>
struct Refused;
template <class... Args>
struct Refused<CK_RV (*)(Args...)> {
    static CK_RV call(Args...) noexcept { return CKR_FUNCTION_NOT_SUPPORTED; }
};

template <class... Functions>
constexpr void refuse(Functions&... functions) {
    ((functions = Refused<Functions>::call), ...);
}

CK_RV notParallel(CK_SESSION_HANDLE) noexcept {
    return CKR_FUNCTION_NOT_PARALLEL;
}

constexpr CK_FUNCTION_LIST makeList() {
    CK_FUNCTION_LIST list{};
    list.version = {2, 40};
#define CRV_OFFERED(name) list.name = name
    CRV_OFFERED(C_Initialize);
    CRV_OFFERED(C_Finalize);
    CRV_OFFERED(C_GetInfo);
    CRV_OFFERED(C_GetFunctionList);
    CRV_OFFERED(C_GetSlotList);
    CRV_OFFERED(C_GetSlotInfo);
    CRV_OFFERED(C_GetTokenInfo);
    CRV_OFFERED(C_GetMechanismList);
    CRV_OFFERED(C_GetMechanismInfo);
    CRV_OFFERED(C_SetPIN);
    CRV_OFFERED(C_OpenSession);
    CRV_OFFERED(C_CloseSession);
    CRV_OFFERED(C_CloseAllSessions);
    CRV_OFFERED(C_GetSessionInfo);
    CRV_OFFERED(C_Login);
    CRV_OFFERED(C_Logout);
    CRV_OFFERED(C_GetAttributeValue);
    CRV_OFFERED(C_FindObjectsInit);
    CRV_OFFERED(C_FindObjects);
    CRV_OFFERED(C_FindObjectsFinal);
    CRV_OFFERED(C_DecryptInit);
    CRV_OFFERED(C_Decrypt);
    CRV_OFFERED(C_DigestInit);
    CRV_OFFERED(C_Digest);
    CRV_OFFERED(C_DigestUpdate);
    CRV_OFFERED(C_DigestFinal);
    CRV_OFFERED(C_SignInit);
    CRV_OFFERED(C_Sign);
    CRV_OFFERED(C_SignUpdate);
    CRV_OFFERED(C_SignFinal);
    CRV_OFFERED(C_VerifyInit);
    CRV_OFFERED(C_Verify);
    CRV_OFFERED(C_VerifyUpdate);
    CRV_OFFERED(C_VerifyFinal);
    CRV_OFFERED(C_SeedRandom);
    CRV_OFFERED(C_GenerateRandom);
#undef CRV_OFFERED
    refuse(list.C_InitToken, list.C_InitPIN, list.C_GetOperationState, list.C_SetOperationState, list.C_CreateObject,
           list.C_CopyObject, list.C_DestroyObject, list.C_GetObjectSize, list.C_SetAttributeValue, list.C_EncryptInit,
           list.C_Encrypt, list.C_EncryptUpdate, list.C_EncryptFinal, list.C_DecryptUpdate, list.C_DecryptFinal,
           list.C_DigestKey, list.C_SignRecoverInit, list.C_SignRecover, list.C_VerifyRecoverInit, list.C_VerifyRecover,
           list.C_DigestEncryptUpdate, list.C_DecryptDigestUpdate, list.C_SignEncryptUpdate, list.C_DecryptVerifyUpdate,
           list.C_GenerateKey, list.C_GenerateKeyPair, list.C_WrapKey, list.C_UnwrapKey, list.C_DeriveKey,
           list.C_WaitForSlotEvent);
    list.C_GetFunctionStatus = notParallel;
    list.C_CancelFunction = notParallel;
    return list;
}

CK_FUNCTION_LIST functions = makeList();

}  // namespace

#define CRV_EXPORTED extern "C" __attribute__((visibility("default")))

CRV_EXPORTED CK_RV C_GetFunctionList(CK_FUNCTION_LIST** list) {
    if (!list) return CKR_ARGUMENTS_BAD;
    *list = &functions;
    return CKR_OK;
}

// Headers of PKCS#11 3.0 have interfaces: ours is the list above under its standard name (3.0, 5.4.5).
#ifdef CKF_INTERFACE_FORK_SAFE
CRV_EXPORTED CK_RV C_GetInterfaceList(CK_INTERFACE* list, CK_ULONG* count) {
    static char name[] = "PKCS 11";
    if (!count) return CKR_ARGUMENTS_BAD;
    const CK_ULONG room = *count;
    *count = 1;
    if (!list) return CKR_OK;
    if (room < 1) return CKR_BUFFER_TOO_SMALL;
    list[0] = {reinterpret_cast<decltype(list[0].pInterfaceName)>(name), &functions, 0};
    return CKR_OK;
}
#endif
