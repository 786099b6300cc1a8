// Which hashes and key lengths signatures of certificates and CRLs may still have, and until when.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "crypto/kc_hash.h"
#include "crypto/public_key.h"

namespace crv {

/// A list of entries with semicolons between: what, a space, and until when it passes: "md5 never", "rsa<2048
/// 2013-12-31" (the last day, UTC), "sha1 always". What is not named passes always; of several entries that fit the
/// strictest counts.
class AlgorithmPolicy {
  public:
    /// What holds where nobody set another one. Curves below 160 bits are no keys here at all.
    static constexpr std::string_view kDefault =
        "md5 never; ripemd128 never; rsa<1024 never; dsa<1024 never; sha1 2016-12-31; "
        "ripemd160 2016-12-31; rsa<2048 2016-12-31; dsa<2048 2016-12-31";

    /// Nothing for a text that is none.
    [[nodiscard]] static std::optional<AlgorithmPolicy> fromText(std::string_view text);

    struct Answer {
        bool refused = false;
        std::string weakness{};  ///< the entries that fit; empty when none does
    };
    /// Whether keys of the scheme are limited at all.
    [[nodiscard]] bool limits(KeyScheme scheme) const;
    [[nodiscard]] Answer hash(KcHashAlgo algo, int64_t time) const;
    [[nodiscard]] Answer key(KeyScheme scheme, unsigned bits, int64_t time) const;
    [[nodiscard]] Answer key(const PublicKey& one, int64_t time) const { return key(one.scheme(), one.bits(), time); }

  private:
    struct Entry {
        std::string text{};
        KcHashAlgo hash = KcHashAlgo::None;  // or
        KeyScheme scheme = KeyScheme::None;
        unsigned bits = 0;
        int64_t until = 0;
    };
    [[nodiscard]] static std::optional<Entry> entryOf(std::string_view text);
    template <class Fits>
    [[nodiscard]] Answer answer(int64_t time, Fits fits) const;

    std::vector<Entry> entries_;
};

}  // namespace crv
