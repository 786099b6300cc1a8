#include "crvconfd/screens/save_to_file.h"

#include "asn/asn_object.h"
#include "crvconfd/screens/file_prompt.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/atomic_write.h"
#include "misc/path.h"

namespace crv {

bool saveToFile(const std::string& name, const ASNobject& object) {
    const TypedFile file{name, expandHome(name)};
    if (!mayWrite(file)) return false;
    Bytes encoding;
    WriteStep failed = WriteStep::Write;
    if (object.writeToVector(encoding))
        failed = writeFileAtomically(file.path, encoding, {WriteMode::KeepOrCommon, true}).failed;
    if (failed == WriteStep::None) {
        displCentInfo(kMessageRow, "Plik został zapisany", 2);
        return true;
    }
    errInfo(kMessageRow, failed == WriteStep::Open ? "Nie mogę otworzyć pliku: %s" : "Błąd zapisu pliku: %s",
            name.c_str());
    return false;
}

}  // namespace crv
