#include "misc/exceptions.h"

#include <gtest/gtest.h>

namespace crv {
namespace {

TEST(Exceptions, AssertionTextNamesTheFixedPlaceAndLine) {
    const char* profilesFile = nullptr;
    try {
        VTEST_AT(profilesFile, "src/crvconfd/main", 453);
        FAIL() << "a null pointer passed the assertion";
    } catch (const VtestException& e) {
        EXPECT_STREQ(e.what(), "Assertion profilesFile failed in src/crvconfd/main");
        EXPECT_EQ(e.line(), 453);
    }
}

}  // namespace
}  // namespace crv
