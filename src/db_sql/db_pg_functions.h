// The functions of libpq that the stores call. They come from the plug-in, so that no program is linked with libpq.
#pragma once

#include <libpq-fe.h>

/// X(member, function of libpq)
#define CRV_PG_FUNCTIONS(X)                     \
    X(conninfoParse, PQconninfoParse)           \
    X(conninfoFree, PQconninfoFree)             \
    X(freemem, PQfreemem)                       \
    X(connectStart, PQconnectStartParams)       \
    X(connectPoll, PQconnectPoll)               \
    X(conninfo, PQconninfo)                     \
    X(finish, PQfinish)                         \
    X(status, PQstatus)                         \
    X(transactionStatus, PQtransactionStatus)   \
    X(socket, PQsocket)                         \
    X(errorMessage, PQerrorMessage)             \
    X(setnonblocking, PQsetnonblocking)         \
    X(setNoticeProcessor, PQsetNoticeProcessor) \
    X(sendQueryParams, PQsendQueryParams)       \
    X(sendQuery, PQsendQuery)                   \
    X(sendPrepare, PQsendPrepare)               \
    X(sendQueryPrepared, PQsendQueryPrepared)   \
    X(flush, PQflush)                           \
    X(consumeInput, PQconsumeInput)             \
    X(isBusy, PQisBusy)                         \
    X(getResult, PQgetResult)                   \
    X(putCopyData, PQputCopyData)               \
    X(putCopyEnd, PQputCopyEnd)                 \
    X(resultStatus, PQresultStatus)             \
    X(resultErrorField, PQresultErrorField)     \
    X(resultErrorMessage, PQresultErrorMessage) \
    X(clear, PQclear)                           \
    X(ntuples, PQntuples)                       \
    X(getvalue, PQgetvalue)                     \
    X(getlength, PQgetlength)                   \
    X(getisnull, PQgetisnull)

namespace crv {

/// Changes with the list above: a plug-in of another version is refused.
inline constexpr int kPgPluginVersion = 1;

struct PgFunctions {
    int version;
#define CRV_PG_MEMBER(member, function) decltype(&::function) member;
    CRV_PG_FUNCTIONS(CRV_PG_MEMBER)
#undef CRV_PG_MEMBER
};

inline constexpr const char* kPgPluginFile = "libcorvane-pg.so";
/// What the plug-in exports: a function that gives its table.
inline constexpr const char* kPgPluginSymbol = "crvPgFunctions";
using PgPluginEntry = const PgFunctions* (*)();

}  // namespace crv
