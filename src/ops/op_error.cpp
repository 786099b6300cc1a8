#include "ops/op_error.h"

#include <array>

#include "misc/ascii.h"
#include "misc/file_semaphore.h"

namespace crv {
namespace {

struct FaultRow {
    const char* name;
    OpStatus status;
    int code;
};

#define CRV_OP_FAULT(fault, status, code) FaultRow{#fault, OpStatus::status, code},
constexpr std::array kRows{CRV_OP_FAULTS(CRV_OP_FAULT)};
#undef CRV_OP_FAULT

const FaultRow& rowOf(OpFault fault) {
    return kRows[static_cast<size_t>(fault)];
}

}  // namespace

std::string faultName(OpFault fault) {
    std::string name;
    for (const char* at = rowOf(fault).name; *at; ++at) {
        if (isAsciiUpper(*at) && !name.empty()) name += '-';
        name += asciiLower(*at);
    }
    return name;
}

OpError::OpError(OpFault fault, const std::string& text) : OpError(fault, rowOf(fault).code, text) {}

OpError::OpError(OpFault fault, int code, const std::string& text) : OpError(fault, rowOf(fault).status, code, text) {}

void stopIfEnding() {
    if (processEnding()) throw OpStopped();
}

int codeOfCrypto(CryptoFailure failure) noexcept {
    switch (failure) {
        case CryptoFailure::BadData:
            return ECRV_INV_CRV_MSG;
        case CryptoFailure::BadParameter:
        case CryptoFailure::BadKey:
        case CryptoFailure::Unsupported:
            return ECRV_UNSUPPORTED_KEY_ALGO;
        case CryptoFailure::NoRandom:
        case CryptoFailure::NotSeeded:
        case CryptoFailure::ReseedRequired:
            return ECRV_SEED_NOT_PRES;
        case CryptoFailure::Cancelled:
            return ECRV_ACTION_CANCELLED;
        case CryptoFailure::SelfTest:
        case CryptoFailure::Internal:
            break;
    }
    return ECRV_INTERNAL_ERROR;
}

}  // namespace crv
