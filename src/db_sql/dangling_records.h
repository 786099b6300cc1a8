// Side records whose certificate is not there.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "db/record_numbers.h"
#include "db_sql/db_layout.h"

namespace crv {

/// Reads the data files of a directory only, so it works whatever the indexes are like. The caller holds the lock.
class DanglingRecords {
  public:
    explicit DanglingRecords(std::string directory) : directory_(std::move(directory)) {}

    /// Takes the number of a record, and may delete it; false ends the search.
    using Found = std::function<bool(int64_t recNo)>;
    /// Shows the live records of a side table whose id is not that of a live certificate. A missing file holds no
    /// records. False when a data file cannot be read to its end.
    [[nodiscard]] bool find(const TableLayout& side, const Found& found);

  private:
    [[nodiscard]] bool readCertificates();

    std::string directory_;
    RecordNumbers certificates_;
    bool read_ = false;
};

}  // namespace crv
