// Findings about a database, of each kind a few.
#pragma once

#include <map>
#include <string>

#include "db/table_check.h"
#include "db_sql/db_crl_files.h"
#include "ops/database_files.h"

namespace crv {

/// What is wrong, told while it is found. A table that is damaged throughout has as many faults of one kind as records.
class DbFindings {
  public:
    explicit DbFindings(const DbTell& tell) : tell_(tell) {}

    void add(const std::string& where, const std::string& what) {
        const std::string place = where.ends_with(kCrlExtension) ? std::string(kCrlExtension) : where;
        if (++kinds_[{place, what.substr(0, what.rfind(" at "))}] <= kMaxProblems) tell_(where, what);
    }

    /// Tells how many were not told; true when there was nothing to tell.
    bool finish() {
        for (const auto& [kind, seen] : kinds_) {
            if (seen <= kMaxProblems) continue;
            tell_(kind.first, "and " + std::to_string(seen - kMaxProblems) + " more: " + kind.second);
        }
        return kinds_.empty();
    }

  private:
    const DbTell& tell_;
    std::map<std::pair<std::string, std::string>, size_t> kinds_;
};

}  // namespace crv
