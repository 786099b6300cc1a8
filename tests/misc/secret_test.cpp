// Secrets must be gone from the heap when their block is given back: this program's operator delete looks at each
// block.
#include "misc/secret.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <stdexcept>

#include "support/heap_watch.h"

namespace crv::test {
namespace {

constexpr char kMark[] = "S3cr3t-Zażółć";

int leaksOf(const std::function<void()>& action) {
    return heap_watch::leaksOf(kMark, action);
}

TEST(Secret, TheWatcherSeesAPlainStringsLeftovers) {
    EXPECT_GT(leaksOf([] { const std::string plain = std::string(kMark) + kMark; }), 0);
}

TEST(Secret, NothingIsLeftOnAnyPath) {
    const std::pair<const char*, std::function<void()>> cases[] = {
        {"growth",
         [] {
             SecretText text(kMark);
             for (int i = 0; i < 100; ++i) text.append("x");
             SecretBytes bytes = toSecret(text.bytes());
             for (int i = 0; i < 1000; ++i) bytes.push_back('x');
             bytes.shrink_to_fit();
         }},
        {"assignment and move",
         [] {
             SecretText text(kMark);
             SecretText other = text;
             text = SecretText("short");
             other = std::move(text);
             SecretBytes bytes = toSecret(asBytes(kMark));
             bytes = SecretBytes(200, 'a');
         }},
        {"shrinking, then the end", [] { toSecret(asBytes(kMark)).resize(1); }},
        {"an exception on the way",
         [] {
             try {
                 const SecretText text(kMark);
                 const SecretBytes bytes = toSecret(text.bytes());
                 throw std::runtime_error("boom");
             } catch (const std::runtime_error&) {
             }
         }},
        {"fixed length inside a heap object", [] {
             const auto holder = std::make_unique<SecretArray<32>>();
             std::memcpy(holder->data(), kMark, sizeof kMark);
         }}};
    for (const auto& [name, action] : cases) EXPECT_EQ(leaksOf(action), 0) << name;
}

TEST(Secret, WipesAtOnceWhenAsked) {
    SecretBytes bytes = toSecret(asBytes(kMark));
    const uint8_t* block = bytes.data();
    const size_t length = bytes.size();
    bytes.resize(2);  // the tail stays in the block until it is wiped
    wipe(bytes);
    EXPECT_TRUE(bytes.empty());
    EXPECT_EQ(Bytes(block, block + length), Bytes(length));

    SecretText text("abcdef");
    const char* chars = text.c_str();
    text.truncate(9);
    text.truncate(2);
    EXPECT_EQ(std::string_view(chars, 7), std::string_view("ab\0\0\0\0\0", 7));
    EXPECT_EQ(text.view(), "ab");
    text.clear();
    EXPECT_STREQ(text.c_str(), "");
    std::array<uint8_t, 3> watched = {1, 2, 3};
    { const WipeGuard none(std::span<uint8_t>{}), guard(watched); }
    EXPECT_EQ(watched, (std::array<uint8_t, 3>{}));
}

TEST(Secret, ComparesWholeContents) {
    EXPECT_TRUE(SecretText("ala") == SecretText("ala"));
    EXPECT_FALSE(SecretText("ala") == SecretText("alb"));
    EXPECT_FALSE(SecretText("ala") == SecretText("al"));
    EXPECT_TRUE(equalConstantTime({}, {}));
}

}  // namespace
}  // namespace crv::test
