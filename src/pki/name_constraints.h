// Name constraints along a path (RFC 5280 4.2.1.10, 6.1.3 (b), (c), 6.1.4 (g)).
#pragma once

#include <vector>

#include "pki/certificate_facts.h"

namespace crv {

/// The names that the authorities seen so far permit. Directory names, e-mail addresses, DNS names, URIs and addresses
/// are understood; of another form nothing is permitted once it is constrained.
class NameConstraintsState {
  public:
    /// `budget`: comparisons that all certificates together may cost.
    explicit NameConstraintsState(size_t budget) : budget_(budget) {}

    /// Adds what an authority demands of the certificates below it.
    void add(const CertificateFacts& authority);
    /// What is wrong with the names of the certificate.
    [[nodiscard]] PathFault check(const CertificateFacts& certificate);

  private:
    /// A name, or the base of a subtree, made ready to be compared.
    struct Name {
        int form = -1;
        std::string text{};         // of texts, the octets of addresses
        std::vector<Bytes> sets{};  // of a directory name, normalised
        bool malformed = false;
    };
    struct Subtrees {
        std::vector<Name> permitted, excluded;
    };
    enum class Match { Inside, Outside, OtherForm, Unknown };

    [[nodiscard]] static Name prepared(const GeneralName& name, bool base);
    [[nodiscard]] static Match match(const Name& name, const Name& base, bool excluded);
    [[nodiscard]] static std::vector<Name> namesOf(const CertificateFacts& certificate);
    [[nodiscard]] PathFault check(const Name& name, const Subtrees& trees);

    std::vector<Subtrees> subtrees_;
    size_t budget_;
};

}  // namespace crv
