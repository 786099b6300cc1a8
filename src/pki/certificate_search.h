// Searching the whole database for certificates by what a user knows of them.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "db_sql/db_manager.h"

namespace crv {

class SignedCertificate;

/// What is looked for; empty fields do not matter. Texts are parts of the value, whatever the letter case.
struct CertificateQuery {
    std::string subject{};  ///< in any attribute of the subject
    std::string email{};    ///< in any e-mail address
    std::string issuer{};   ///< in any attribute of the issuer
    std::string serial{};   ///< serial number: hexadecimal digits, or decimal ones
    /// Still valid at `time`, but no longer so many days later.
    std::optional<int> expiresWithinDays{};
    int64_t time = 0;  ///< seconds since 1970 UTC

    [[nodiscard]] bool matches(const SignedCertificate& certificate) const;
};

/// Whether the text is found in the other one, without regard to the case of Latin letters with or without marks.
[[nodiscard]] bool containsFolded(std::string_view text, std::string_view part);

enum class SearchEnd { Done, Stopped, Failed };

/// Called at once and then about ten times a second on the caller's thread while a worker searches: certificates found
/// and looked at so far. False stops the search.
using SearchProgress = std::function<bool(size_t found, size_t looked)>;

/// Searches on a worker thread and waits for it. The ids of what was found, in record order, are appended also when the
/// search was stopped. Meanwhile nobody else may use the manager, progress included.
SearchEnd searchCertificates(DbManager& database, const CertificateQuery& query, const SearchProgress& progress,
                             std::vector<int64_t>& ids);

}  // namespace crv
