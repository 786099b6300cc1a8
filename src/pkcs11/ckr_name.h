// Names of the return values of PKCS#11 modules.
#pragma once

#include <string>

namespace crv {

/// The symbolic name of a CKR_ value (PKCS#11 2.40, 11.1), or its number in hexadecimal.
std::string ckrName(unsigned long rv);

}  // namespace crv
