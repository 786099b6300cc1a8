// An index file from anywhere over a sound data file: every operation ends, and the check too.
#include "db/database.h"
#include "db/table_check.h"
#include "table_fuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* octets, size_t size) {
    static crv::fuzz::TableFiles files;
    files.restoreData();
    files.put(crv::kIndexExtension, {octets, size});
    crv::fuzz::exercise(files.name());
    return 0;
}
