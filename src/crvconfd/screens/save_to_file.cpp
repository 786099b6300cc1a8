#include "crvconfd/screens/save_to_file.h"

#include "asn/asn_object.h"
#include "crvconfd/screens/file_prompt.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/atomic_write.h"
#include "misc/path.h"

namespace crv {

bool saveToFile(const std::string& name, const ASNobject& object) {
    const TypedFile file{name, expandHome(name)};
    if (!mayWrite(file)) return false;
    Bytes encoding;
    WriteResult written{.failed = WriteStep::Write};
    if (object.writeToVector(encoding))
        written = writeFileAtomically(file.path, encoding, {WriteMode::KeepOrCommon, true});
    if (written) {
        note("Zapisano plik: " + file.path);
        displCentInfo(kMessageRow, "Plik został zapisany", 2);
        return true;
    }
    showWriteFailure(written, name);
    return false;
}

}  // namespace crv
