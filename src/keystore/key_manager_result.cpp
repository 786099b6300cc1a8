#include "keystore/key_manager_result.h"

#include "corvane/crverrors.h"

namespace crv {
namespace {

struct Row {
    KeyManagerResult result;
    int library;
    const char* meaning;
};

#define CRV_KM_ROW(name, number, library, meaning) {name, library, meaning},
constexpr Row kRows[] = {KEY_MANAGER_RESULTS(CRV_KM_ROW)};
#undef CRV_KM_ROW

const Row* rowOf(KeyManagerResult result) noexcept {
    for (const Row& row : kRows)
        if (row.result == result) return &row;
    return nullptr;
}

}  // namespace

int libraryCode(KeyManagerResult result) noexcept {
    const Row* row = rowOf(result);
    return row ? row->library : ECRV_INTERNAL_ERROR;
}

const char* resultText(KeyManagerResult result) noexcept {
    const Row* row = rowOf(result);
    return row ? row->meaning : "unknown";
}

KeyManagerResult keyResultOf(CryptoFailure failure, bool rsa) noexcept {
    switch (failure) {
        case CryptoFailure::Cancelled:
            return kKmCancelled;
        case CryptoFailure::NoRandom:
        case CryptoFailure::NotSeeded:
            return kKmNoSeed;
        case CryptoFailure::Unsupported:
        case CryptoFailure::BadParameter:
            return kKmAlgorithmNotSupported;
        default:
            return rsa ? kKmRsaFailed : kKmGenerationFailed;
    }
}

}  // namespace crv
