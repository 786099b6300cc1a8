// Verbs on the database as a whole.
#include "crvctl/show.h"
#include "crvctl/verbs.h"
#include "ops/database_files.h"

namespace crv::ctl {
namespace {

std::string directoryOf(const Run& run) {
    return databaseDirectory(*run.profile().profile);
}

void answerSound(Run& run, bool sound) {
    run.out.field("sound", sound);
    if (!sound) run.out.no(ECRV_DB);
}

DbTell tellIn(Run& run) {
    return [&run](const std::string& where, const std::string& what) {
        run.out.item({{"file", where}, {"finding", what}});
    };
}

}  // namespace

void dbCreate(Run& run) {
    Session session(run.profile(), run.mode);
    waitForDatabase(session.profile(), run.mode);
    DbManager& database = session.context().dbManager;
    const DbState state = database.isDbCreated();
    if (state == DbState::Complete) throw OpError(OpFault::DatabaseExists, session.profile().dbConfig().db);
    if (state != DbState::Missing) session.failDatabase();
    run.out.change("add", "database", session.profile().dbConfig().db);
    if (!run.mode.dryRun && !database.createDb()) session.failDatabase();
}

void dbCheck(Run& run) {
    answerSound(run, DatabaseFiles(directoryOf(run), run.mode).check(tellIn(run)));
}

void dbRepair(Run& run) {
    const std::string directory = directoryOf(run);
    run.out.change("repair", "database", directory);
    answerSound(run, repairDatabase(directory, run.mode, tellIn(run)));
}

void dbStat(Run& run) {
    DatabaseFiles(directoryOf(run), run.mode).figures([&](const std::string& table, const TableReport& report) {
        Values indexes;
        for (size_t i = 0; i < report.pages.size(); ++i)
            indexes.emplace_back(Fields{{"pages", report.pages[i]}, {"levels", report.depths[i]}});
        run.out.item({{"table", table},
                      {"live", report.live},
                      {"deleted", report.deleted},
                      {"insertions", report.insertions},
                      {"dataOctets", report.dataOctets},
                      {"indexOctets", report.indexOctets},
                      {"indexes", std::move(indexes)},
                      {"sound", report.problems.empty()}});
    });
}

void dbDump(Run& run) {
    DatabaseFiles(directoryOf(run), run.mode).records(run.call.operand(0), [&](const DbRecordView& record) {
        run.out.item({{"record", record.number},
                      {"live", record.live},
                      {"length", record.length},
                      {"capacity", record.capacity},
                      {"keys", Values(record.keys.begin(), record.keys.end())},
                      {"body", hexOf(record.body)}});
    });
}

}  // namespace crv::ctl
