// A data file from anywhere under the indexes that mending makes of it: every operation ends, and what mending calls
// sound is sound.
#include <cstdlib>
#include <filesystem>

#include "db/table_check.h"
#include "db/table_mend.h"
#include "db/table_rebuild.h"
#include "table_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t size) {
    static crv::fuzz::TableFiles files;
    files.put(crv::kDataExtension, {octets, size});
    std::filesystem::remove(files.name() + crv::kIndexExtension);
    crv::Salvaged lost;
    if (crv::remakeIndexes(files.name(), crv::MendExtent::Salvage, lost)) {
        if (!crv::swapRebuilt(files.name()) || !crv::checkTable(files.name()).problems.empty()) std::abort();
    }
    crv::fuzz::exercise(files.name());
    crv::DataBase table;
    (void)rebuildTable(table, files.name());
    return 0;
}
