// What verbs that ask the network share.
#pragma once

#include "crvctl/run.h"
#include "ops/session.h"

namespace crv::ctl {

/// Goes on as long as nobody asks the process to end.
bool goesOn(const FetchProgress& progress);
/// Opens the key store for reading and gives its lock back: nobody is to wait for the network with a change of theirs.
[[nodiscard]] Session openForNetwork(const Run& run);

}  // namespace crv::ctl
