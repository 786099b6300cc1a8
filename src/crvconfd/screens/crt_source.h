// Where the certificate browser takes its rows from: the whole database, or what a search found.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "db_sql/crt_item.h"

namespace crv {

/// Rows, read piece by piece so that the size of the database does not matter.
class CrtSource {
  public:
    /// The whole database, in the order of its records.
    CrtSource() = default;
    /// Only these certificates, in this order.
    explicit CrtSource(std::vector<int64_t> ids) : ids_(std::move(ids)) {}

    /// Up to count certificates from an id on (kFirst: from the first), in order. False when the database fails.
    [[nodiscard]] bool from(int64_t id, size_t count, CrtItemList& list) const;
    /// The same behind the id.
    [[nodiscard]] bool forward(int64_t after, size_t count, CrtItemList& list) const;
    /// Up to count certificates before an id (kBehindAll: from the last), in order.
    [[nodiscard]] bool backward(int64_t before, size_t count, CrtItemList& list) const;
    static constexpr int64_t kFirst = 0;
    static constexpr int64_t kBehindAll = INT64_MAX;

    /// Forgets a certificate that was deleted.
    void forget(int64_t id);

  private:
    using Position = std::vector<int64_t>::const_iterator;
    /// The end for one that is not among them.
    [[nodiscard]] Position positionOf(int64_t id) const;
    [[nodiscard]] bool readFrom(Position first, size_t count, CrtItemList& list) const;
    [[nodiscard]] bool read(Position first, Position last, CrtItemList& list) const;

    std::optional<std::vector<int64_t>> ids_;
};

}  // namespace crv
