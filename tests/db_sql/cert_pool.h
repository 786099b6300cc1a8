// A few hundred certificates that differ in everything the database looks at, and a judge of the databases they are in.
#pragma once

#include "support/cert_maker.h"
#include "support/temp_dir.h"

namespace crv::test {

/// Made once a process; the last one repeats the first's serial number with other octets.
const std::vector<Bytes>& certPool();

/// What crvdb finds wrong with a database directory; empty when it is sound.
inline std::string problemsOfDatabase(const std::string& directory) {
    const std::string found = shell(CRV_BIN_DIR "/crvdb check " + directory);
    return found == "sound\n" ? "" : found;
}

}  // namespace crv::test
