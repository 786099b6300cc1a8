// A few hundred certificates that differ in everything the database looks at.
#pragma once

#include "support/cert_maker.h"

namespace crv::test {

/// Made once a process; the last one repeats the first's serial number with other octets.
const std::vector<Bytes>& certPool();

}  // namespace crv::test
