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
    WriteStep failed = WriteStep::write;
    if (isProfileFile(path))
        failed = WriteStep::open;
    else if (object.writeToVector(encoding))
        failed = writeFileAtomically(path, encoding, {WriteMode::keepOrCommon, true}).failed;
    if (failed == WriteStep::none) return true;
    errInfo(kMessageRow, failed == WriteStep::open ? "Nie mogę otworzyć pliku: %s" : "Błąd zapisu pliku: %s",
            name.c_str());
    return false;
}

}  // namespace crv
