// Side records whose certificate is not there.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "db_sql/db_layout.h"

namespace crv {

/// Reads the data files of a directory only, so it works whatever the indexes are like. The caller holds the lock.
class DanglingRecords {
  public:
    explicit DanglingRecords(std::string directory) : directory_(std::move(directory)) {}

    /// Numbers of the live records of a side table whose id is not that of a live certificate. A missing file holds no
    /// records. False when a data file cannot be read to its end.
    [[nodiscard]] bool find(const TableLayout& side, std::vector<int64_t>& records);

  private:
    [[nodiscard]] bool readCertificates();

    std::string directory_;
    std::vector<int64_t> certificates_;  // ascending
    bool read_ = false;
};

}  // namespace crv
