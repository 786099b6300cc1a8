// The reader of profile lists: whatever it accepts must come back the same from its own output, and every record in it
// must be read or refused with an exception.
#include <cstdlib>

#include "misc/bytes.h"
#include "misc/exceptions.h"
#include "profiles/crv_profile.h"

using namespace crv;

namespace {

void readRecords(const UniversalConfMgr& list) {
    UniversalConfMgr::Iterator at;
    for (list.getIterator(at, "\\", UCMNodeType::Key); at; ++at) {
        std::string name = at.getDescr();
        name.pop_back();
        try {
            const auto profile = CrvProfile::readProfile(list, name);
            std::string value;
            for (long id = -1; profile && id < 48; ++id) (void)profile->getAttr(id, value);
        } catch (const StoreError&) {
        } catch (const CrvApiException&) {
            // Damaged entries of a record are refused with either.
        }
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    UniversalConfMgr list, again;
    try {
        list.loadFromText(asText({data, size}), "list");
    } catch (const StoreError&) {
        return 0;
    }
    // Only a line that the quotes of its written form make too long may not be written.
    if (!list.findUnwritable()) {
        again.loadFromText(list.toText(), "again");
        if (again.toText() != list.toText() || again.size() != list.size()) std::abort();
    } else if (list.toText().size() < UniversalConfMgr::kMaxLine) {
        std::abort();
    }
    readRecords(list);
    return 0;
}
