#include "api/key_store_call.h"

#include <chrono>

#include "ops/database_files.h"
#include "ops/lock_wait.h"
#include "ops/op_error.h"

namespace crv {
namespace {

/// Codes of results of operations after the log-in, which the table of results has none for.
constexpr struct {
    KeyManagerResult result;
    int code;
} kCallCodes[] = {{kKmNotOnThisMedium, ECRV_NOT_IMPL},
                  {kKmNoCaCertificate, ECRV_NO_CA_AUTO_CRT},
                  {kKmNoKeyForCertificate, ECRV_UNP_KEY_CRT},
                  {kKmBadSignature, ECRV_CRTSIGN},
                  {kKmTrustPointExists, ECRV_CRT_WITH_SUCH_USAGE_EXISTS},
                  {kKmRoleTaken, ECRV_KEY_WITH_SUCH_USAGE_EXISTS},
                  {kKmCertificateExists, ECRV_CRT_WITH_SUCH_USAGE_EXISTS}};

/// Codes of the states of a database; the state that a profile needs has none.
constexpr struct {
    DbState state;
    int code;
} kDbCodes[] = {{DbState::Complete, CRV_OK},
                {DbState::Incomplete, ECRV_DB},
                {DbState::OtherVersion, ECRV_DB_VER},
                {DbState::Missing, ECRV_DB},
                {DbState::NoAccess, ECRV_DB_ACCESS}};

void fetchPin(CRVctx& ctx, PinSlot slot) {
    if (ctx.state.pins.slot(slot).present) return;
    SecretText pin;
    switch (ctx.getPIN(slot, pin)) {
        case kPinOk:
            return;
        case kPinWrong:
            throw CrvApiException(slot == PinSlot::Roots ? ECRV_ROOTS_PASSWORD : ECRV_PASSWORD);
        default:
            throw CrvApiException(ECRV_ACTION_CANCELLED);
    }
}

/// Longest wait that is as long as it takes.
constexpr double kForever = 1e8;

}  // namespace

KeyStoreAccess accessOf(CRVctx& ctx) {
    using Clock = std::chrono::steady_clock;
    KeyStoreAccess access{ctx.configurationManager, ctx.keyManager};
    if (ctx.lockSeconds < 0) return access;
    const auto end = Clock::now() + std::chrono::seconds(ctx.lockSeconds);
    access.wait.goOn = [end] { return Clock::now() < end && !processEnding(); };
    return access;
}

int codeOfKeys(CRVctx& ctx, KeyManagerResult result) {
    if (result == kKmOk) return CRV_OK;
    const auto* row = std::ranges::find_if(kCallCodes, [&](const auto& one) { return one.result == result; });
    const int code = row == std::end(kCallCodes) ? libraryCode(result) : row->code;
    if (code == ECRV_MEM) throw std::bad_alloc();
    ctx.state.setDiagnosticText(resultText(result));
    return code;
}

void demandLogIn(const CRVctx& ctx) {
    if (!ctx.keyManager.isLoggedIn()) throw CrvApiException(ECRV_API_NOT_INITED);
}

bool flagOf(const CrvProfile& profile, long id) {
    long value = 0;
    return profile.getAttr(id, value) == kAttrOk && value != 0;
}

bool rootsNeedPassword(const CrvProfile& profile) {
    std::string file;
    profile.getAttr(CRVPROFILE_ATTR_ROOTS_FILE, file);
    return !file.empty() && !flagOf(profile, CRVPROFILE_ATTR_ROOTS_EMPTY_PASSWORD);
}

void fetchPins(CRVctx& ctx, bool withRoots) {
    const KeyMedium medium = ctx.configurationManager.keyMedium();
    if (medium == KeyMedium::File || medium == KeyMedium::Tarvo) fetchPin(ctx, PinSlot::SigningToken);
    // Without a prompt the store that is read says itself what it misses.
    if (withRoots && ctx.state.prompt && rootsNeedPassword(*ctx.configurationManager.profile()))
        fetchPin(ctx, PinSlot::Roots);
}

int codeOfDbState(DbState state) {
    const auto* row = std::ranges::find_if(kDbCodes, [&](const auto& one) { return one.state == state; });
    return row == std::end(kDbCodes) ? ECRV_DB : row->code;
}

void demandDatabase(CRVctx& ctx) {
    const CrvProfile* profile = ctx.configurationManager.profile();
    if (!profile) throw CrvApiException(ECRV_PROFILE_NOT_LOADED);
    waitForDatabase(*profile, {false, ctx.lockSeconds < 0 ? kForever : static_cast<double>(ctx.lockSeconds)});
    if (const int code = codeOfDbState(ctx.dbManager.isDbCreated()))
        throw CrvApiException(code, ctx.dbManager.lastFailure());
}

void failDatabase(CRVctx& ctx) {
    stopIfEnding();
    throw CrvApiException(ctx.dbManager.lastCause() == StoreCause::NotLocked ? ECRV_LOCK : ECRV_DB,
                          ctx.dbManager.lastFailure());
}

}  // namespace crv
