// Where the certificate browser takes its rows from: the whole database, or what a search found.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "db_sql/crt_item.h"

namespace crv {

/// Rows in record order, read piece by piece so that the size of the database does not matter.
class CrtSource {
  public:
    /// The whole database.
    CrtSource() = default;
    /// Only these certificates, by ascending id.
    explicit CrtSource(std::vector<int64_t> ids) : ids_(std::move(ids)) {}

    [[nodiscard]] bool isSearch() const { return ids_.has_value(); }
    [[nodiscard]] size_t found() const { return ids_ ? ids_->size() : 0; }

    /// Up to count certificates behind an id (0: from the first), in order. False when the database fails.
    [[nodiscard]] bool forward(int64_t after, size_t count, CrtItemList& list) const;
    /// Up to count certificates before an id (kBehindAll: from the last), in order.
    [[nodiscard]] bool backward(int64_t before, size_t count, CrtItemList& list) const;
    static constexpr int64_t kBehindAll = INT64_MAX;

    /// Forgets a certificate that was deleted.
    void forget(int64_t id);

  private:
    [[nodiscard]] bool read(std::vector<int64_t>::const_iterator first, std::vector<int64_t>::const_iterator last,
                            CrtItemList& list) const;

    std::optional<std::vector<int64_t>> ids_;
};

}  // namespace crv
