// How a call of the module ends early: what works below the C functions throws the value that the call answers.
#pragma once

#include <p11-kit/pkcs11.h>

namespace crv::p11 {

/// Ends the running call with the value.
struct Refusal {
    CK_RV rv;
};

/// Another program holds the lock of the security file: the call is begun again for a while. Never answered.
inline constexpr CK_RV kBusy = CKR_VENDOR_DEFINED | 1UL;

inline void demand(bool holds, CK_RV otherwise) {
    if (!holds) throw Refusal{otherwise};
}

}  // namespace crv::p11
