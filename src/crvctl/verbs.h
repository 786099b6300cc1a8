// The verbs, each a function that the table names.
#pragma once

#include "crvctl/run.h"

namespace crv::ctl {

void profileList(Run& run);
void profileShow(Run& run);
void profileCreate(Run& run);
void profileCopy(Run& run);
void profileRename(Run& run);
void profileSet(Run& run);
void profileRemove(Run& run);
void profileCheck(Run& run);
void usageList(Run& run);
void usageAdd(Run& run);
void usageRemove(Run& run);
void serverList(Run& run);
void serverAdd(Run& run);
void serverSet(Run& run);
void serverRemove(Run& run);
void serverMove(Run& run);
void proxyShow(Run& run);
void proxySet(Run& run);
void proxyClear(Run& run);
void completion(Run& run);
void version(Run& run);
void help(Run& run);

}  // namespace crv::ctl
