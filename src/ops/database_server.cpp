#include "ops/database_server.h"

#include "db_sql/db_pg.h"
#include "misc/exceptions.h"
#include "ops/database_copy.h"
#include "ops/db_findings.h"
#include "ops/op_error.h"
#include "profiles/crv_profile.h"

namespace crv {

namespace {

/// Runs the work on the session of a database that is there. What a repair makes anew is of this program's version.
template <class Work>
auto onServer(const CrvProfile& profile, const Work& work) {
    try {
        DbPg database(profile.dbConfig());
        const DbState state = pgState(database.session());
        if (state == DbState::Missing) throw OpError(OpFault::DatabaseMissing, databaseName(profile));
        if (state != DbState::Complete && state != DbState::Incomplete)
            throw OpError(OpFault::DatabaseFailed, pgStateText(state));
        return work(database.session());
    } catch (const StoreError& error) {
        throw OpError(OpFault::DatabaseFailed, error.what());
    }
}

bool check(PgSession& session, const DbTell& tell) {
    DbFindings findings(tell);
    const bool sound = checkPg(session, [&](const auto& where, const auto& what) { findings.add(where, what); });
    return findings.finish() && sound;
}

}  // namespace

bool isOnServer(const CrvProfile& profile) {
    return connFactory(profile.dbConfig()).dbType == kDbKindPg;
}

bool checkServerDatabase(const CrvProfile& profile, const DbTell& tell) {
    return onServer(profile, [&](PgSession& session) { return check(session, tell); });
}

bool repairServerDatabase(const CrvProfile& profile, const OpMode& mode, const DbTell& tell) {
    return onServer(profile, [&](PgSession& session) {
        DbFindings mended(tell);
        if (!mode.dryRun) repairPg(session, [&](const auto& where, const auto& what) { mended.add(where, what); });
        static_cast<void>(mended.finish());
        return check(session, tell);
    });
}

std::vector<PgTableFigures> serverFigures(const CrvProfile& profile) {
    return onServer(profile, [](PgSession& session) { return pgFigures(session); });
}

std::string serverIdentity(const CrvProfile& profile) {
    return onServer(profile, [](PgSession& session) { return pgIdentity(session); });
}

}  // namespace crv
