// libcorvane-pg.so: brings libpq into a program that opens a PostgreSQL database. Nothing of ours is in it.
#include "db_sql/db_pg_functions.h"

extern "C" __attribute__((visibility("default"))) const crv::PgFunctions* crvPgFunctions() {
    static constexpr crv::PgFunctions kFunctions{crv::kPgPluginVersion,
#define CRV_PG_VALUE(member, function) &::function,
                                                 CRV_PG_FUNCTIONS(CRV_PG_VALUE)
#undef CRV_PG_VALUE
    };
    return &kFunctions;
}
