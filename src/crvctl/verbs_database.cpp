// Verbs on the database as a whole.
#include <unistd.h>

#include "crvctl/show.h"
#include "crvctl/texts.h"
#include "crvctl/verbs.h"
#include "ops/database_copy.h"
#include "ops/database_files.h"
#include "ops/database_server.h"

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
    if (state == DbState::Complete) throw OpError(OpFault::DatabaseExists, databaseName(session.profile()));
    if (state != DbState::Missing) session.failDatabase();
    run.out.change("add", "database", databaseName(session.profile()));
    if (!run.mode.dryRun && !database.createDb()) session.failDatabase();
}

void dbCheck(Run& run) {
    const FoundProfile found = run.profile();
    if (isOnServer(*found.profile)) return answerSound(run, checkServerDatabase(*found.profile, tellIn(run)));
    answerSound(run, DatabaseFiles(directoryOf(run), run.mode).check(tellIn(run)));
}

void dbRepair(Run& run) {
    const FoundProfile found = run.profile();
    if (isOnServer(*found.profile)) {
        run.out.change("repair", "database", databaseName(*found.profile));
        return answerSound(run, repairServerDatabase(*found.profile, run.mode, tellIn(run)));
    }
    const std::string directory = directoryOf(run);
    run.out.change("repair", "database", directory);
    answerSound(run, repairDatabase(directory, run.mode, tellIn(run)));
}

void dbStat(Run& run) {
    if (const FoundProfile found = run.profile(); isOnServer(*found.profile)) {
        for (const PgTableFigures& table : serverFigures(*found.profile)) {
            run.out.item({{"table", table.table},
                          {"live", table.rows},
                          {"dataOctets", table.dataOctets},
                          {"indexOctets", table.indexOctets}});
        }
        return;
    }
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

void dbCopy(Run& run) {
    for (const char* option : {"from", "to"})
        if (!run.call.has(option)) throw OpError(OpFault::WrongCall, std::string("--") + option);
    const FoundProfile from = findProfile(run.place, *run.call.value("from")),
                       to = findProfile(run.place, *run.call.value("to"));
    // A line that is written over: only who looks on has any use for it.
    const bool seen = isatty(STDERR_FILENO) != 0 && run.out.form() == OutputForm::Text;
    const auto show = [&](const DbCopied& done) {
        if (!seen) return;
        std::string line =
            "\r" + std::to_string(done.certificates.handled()) + "/" + std::to_string(done.certificatesThere);
        if (done.crlsThere > 0)
            line += " + CRL " + std::to_string(done.crlsHandled()) + "/" + std::to_string(done.crlsThere);
        static_cast<void>(Output::write(STDERR_FILENO, line));
    };
    run.out.change("import", "database", databaseName(*to.profile));
    const DbCopied done = copyDatabase(*from.profile, *to.profile, run.mode, show);
    if (seen) static_cast<void>(Output::write(STDERR_FILENO, "\r\033[K"));
    run.out.field("stored", done.certificates.stored);
    run.out.field("present", done.certificates.present);
    run.out.field("refused", done.certificates.refused);
    run.out.field("crls", done.crls);
    run.out.field("crlsPresent", done.crlsPresent);
    run.out.field("crlsLeftOut", done.crlsLeftOut);
    run.out.field("servers", done.servers);
}

}  // namespace crv::ctl
