// What verbs that ask the network share.
#pragma once

#include "crvctl/run.h"
#include "ops/session.h"

namespace crv::ctl {

/// Goes on as long as nobody asks the process to end.
bool goesOn(const FetchProgress& progress);
/// Moves what was fetched into the databases; in a dry run it is dropped.
void storeFetched(Run& run, Session& session);

}  // namespace crv::ctl
