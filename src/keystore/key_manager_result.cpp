#include "keystore/key_manager_result.h"

#include "corvane/crverrors.h"

namespace crv {
namespace {

struct Row {
    int from;
    int to;  // the last result of the row
    int library;
};

constexpr Row kRows[] = {
    {0, 0, CRV_OK},
    {4, 4, ECRV_MEM},
    {6, 6, ECRV_SFT_OPEN},
    {7, 7, ECRV_SFT_WRITE},
    {8, 8, ECRV_SFT_READ},
    {12, 12, ECRV_SFT_FMT},
    {13, 13, ECRV_PASSWORD},
    {18, 18, ECRV_RSA},
    {19, 19, ECRV_SFT_FMT},
    {20, 21, ECRV_TRV},
    {23, 23, ECRV_EKD_NOT_FOUND},
    {24, 24, ECRV_CRD_NOT_FOUND},
    {25, 25, ECRV_CRD_COM},
    {27, 27, ECRV_CRD_BLOCKED},
    {28, 28, ECRV_TRV_NOT_FOUND},
    {29, 29, ECRV_TRV_LIB},
    {30, 30, ECRV_TRV_DLL_FNC_LOAD_ERR},
    {31, 31, ECRV_PKCS_NOT_INIT},
    {35, 35, ECRV_KEY_NOT_FOUND},
    {36, 36, ECRV_PKCS_NOT_INIT},
    {37, 37, ECRV_KEY_NOT_FOUND},
    {40, 43, ECRV_TOO_MANY_EKDS},
    {44, 44, ECRV_SFT_FMT},
    {46, 46, ECRV_SEED_NOT_PRES},
    {47, 47, ECRV_SFT_FMT},
    {48, 48, ECRV_ACTION_CANCELLED},
    {49, 49, ECRV_DEC_PIN_NOT_PRES},
    {50, 50, ECRV_ROOTS_PIN_NOT_PRES},
    {51, 51, ECRV_SGN_KEY_PIN_NOT_PRES},
    {52, 52, ECRV_ROOTS_PASSWORD},
    {53, 53, ECRV_SGN_KEY_PASSWORD},
    {54, 54, ECRV_TRUSTED_CA_DIFFERENT_GROUP},
    {55, 55, ECRV_SIG_WITH_DIG_NOT_SUPPORTED},
    {58, 58, ECRV_RECERTIFICATION_WITH_DIFF_DN},
    {62, 62, ECRV_UNSUPPORTED_KEY_LEN_CERT_VERSION},
    {63, 63, ECRV_UNSUPPORTED_CURVE_CERT_VERSION},
    {64, 64, ECRV_UNSUPPORTED_ALGO_CERT_VERSION},
    {65, 65, ECRV_UNSUPPORTED_KEY_ALGO_CERT_VERSION},
};

}  // namespace

int libraryCode(KeyManagerResult result) noexcept {
    for (const Row& row : kRows)
        if (result >= row.from && result <= row.to) return row.library;
    return ECRV_INTERNAL_ERROR;
}

}  // namespace crv
