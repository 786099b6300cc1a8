// The files of tests/pkcs/data, made by data/make.sh.
#pragma once

#include <string>
#include <vector>

#include "misc/bytes.h"

namespace crv::test {

inline constexpr const char* kPassword = "Zażółć1";

/// A file's octets; fails the running test when it cannot be read.
Bytes dataFile(const std::string& name);
/// Sorted names of the files that begin with a prefix and end with a suffix.
std::vector<std::string> dataFiles(const std::string& prefix, const std::string& suffix);

}  // namespace crv::test
