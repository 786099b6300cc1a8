#include "crvconfd/screens/save_to_file.h"

#include "asn/asn_object.h"
#include "crvconfd/screens/file_prompt.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/atomic_write.h"
#include "misc/path.h"

namespace crv {

bool saveToFile(const std::string& name, const ASNobject& object) {
    const std::string path = expandHome(name);
    Bytes encoding;
    WriteStep failed = WriteStep::Write;
    if (isProfileFile(path)) {
        failed = WriteStep::Open;
    } else if (object.writeToVector(encoding)) {
        failed = writeFileAtomically(path, encoding, {WriteMode::KeepOrCommon, true}).failed;
    }
    if (failed == WriteStep::None) return true;
    errInfo(kMessageRow, failed == WriteStep::Open ? "Nie mogę otworzyć pliku: %s" : "Błąd zapisu pliku: %s",
            name.c_str());
    return false;
}

}  // namespace crv
