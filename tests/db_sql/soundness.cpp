#include "soundness.h"

#include "db/table_check.h"
#include "db_sql/crt_table_set.h"
#include "db_sql/dangling_records.h"

namespace crv::test {

std::vector<std::string> problemsOf(const std::string& directory) {
    std::vector<std::string> problems;
    std::array<int64_t, CrtTableSet::count> live{};
    for (const CrtTableSet::Tb table : CrtTableSet::mainTables) {
        const TableReport report = checkTable(directory + std::string(CrtTableSet::layouts[table]->file));
        problems.insert(problems.end(), report.problems.begin(), report.problems.end());
        live[table] = report.live;
    }
    for (const TableLayout* side : {&dnTb, &caTb, &addIdxTb}) {
        std::vector<int64_t> dangling;
        if (!DanglingRecords(directory).find(*side, dangling)) problems.emplace_back("unreadable");
        if (!dangling.empty()) problems.push_back("dangling records in " + std::string(side->file));
    }
    // Each certificate has exactly one record there.
    if (live[CrtTableSet::crt] != live[CrtTableSet::addIdx]) problems.emplace_back("addidx does not match");
    return problems;
}

}  // namespace crv::test
