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
void serverTest(Run& run);
void serverAllow(Run& run);
void proxyShow(Run& run);
void proxySet(Run& run);
void proxyClear(Run& run);
void storeInit(Run& run);
void storePasswd(Run& run);
void storeCheck(Run& run);
void storeBackup(Run& run);
void storeHistory(Run& run);
void storeRestore(Run& run);
void storeProtect(Run& run);
void policyList(Run& run);
void policyAdd(Run& run);
void policyRemove(Run& run);
void settingList(Run& run);
void settingGet(Run& run);
void settingSet(Run& run);
void settingReset(Run& run);
void keyList(Run& run);
void keyGenerate(Run& run);
void keyRequest(Run& run);
void keyReplace(Run& run);
void keyDelete(Run& run);
void keyExport(Run& run);
void keyImport(Run& run);
void certList(Run& run);
void certSearch(Run& run);
void certShow(Run& run);
void certImport(Run& run);
void certExport(Run& run);
void certFetch(Run& run);
void certInstall(Run& run);
void certDelete(Run& run);
void certPurge(Run& run);
void certVerify(Run& run);
void certCheck(Run& run);
void trustList(Run& run);
void trustAdd(Run& run);
void trustRemove(Run& run);
void trustExport(Run& run);
void crlList(Run& run);
void crlShow(Run& run);
void crlImport(Run& run);
void crlVerify(Run& run);
void crlRefresh(Run& run);
void crlExport(Run& run);
void dbCreate(Run& run);
void dbCheck(Run& run);
void dbRepair(Run& run);
void dbStat(Run& run);
void dbDump(Run& run);
void dbCopy(Run& run);
void sign(Run& run);
void verify(Run& run);
void encrypt(Run& run);
void decrypt(Run& run);
void moduleStatus(Run& run);
void completion(Run& run);
void watch(Run& run);
void version(Run& run);
void help(Run& run);

}  // namespace crv::ctl
