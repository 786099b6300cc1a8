// The files of tests/pkcs/data, made by data/make.sh.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "asn/asn_object.h"

namespace crv::test {

inline constexpr const char* kPassword = "Zażółć1";

/// A file's octets; fails the running test when it cannot be read.
Bytes dataFile(const std::string& name);
/// Sorted names of the files that begin with a prefix, without the texts beside them.
std::vector<std::string> dataFiles(const std::string& prefix);
/// What openssl says about an encoding: `arguments` come before "-in <file>".
std::string openssl(const std::string& arguments, const ASNobject& object);
/// A file as a structure in keeping mode with octets of its own.
template <class T>
T fromFile(const std::string& name) {
    T object;
    EXPECT_TRUE(object.readExactly(dataFile(name), ASN_FLAG_CONST | ASN_FLAG_COPY)) << name;
    return object;
}

}  // namespace crv::test
