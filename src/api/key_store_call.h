// What calls that open, save or change the key store share: its lock, its PINs, codes of its results.
#pragma once

#include "api/api_frame.h"
#include "keystore/key_store_door.h"

namespace crv {

/// The key store of the context's profile, with the context's wait for its lock. Refers to the context.
[[nodiscard]] KeyStoreAccess accessOf(CRVctx& ctx);

/// Code of a result of an operation; what it means becomes the diagnostic text of a failure.
[[nodiscard]] int codeOfKeys(CRVctx& ctx, KeyManagerResult result);

/// Throws CrvApiException (ECRV_API_NOT_INITED) before the log-in.
void demandLogIn(const CRVctx& ctx);

/// Gets the PINs that work under the lock on a file or device will want: a user takes his time, and others wait for the
/// lock. A token asks for its own, which no lock waits for. Throws CrvApiException: what a missing, wrong or cancelled
/// PIN is called.
void fetchPins(CRVctx& ctx, bool withRoots = false);

/// A number of a profile as yes or no; no when it has none.
[[nodiscard]] bool flagOf(const CrvProfile& profile, long id);
/// The additional trust points have a place and a password.
[[nodiscard]] bool rootsNeedPassword(const CrvProfile& profile);

/// The database of the profile for a use of it; waits for its lock as long as the context does. Throws OpError,
/// CrvApiException (ECRV_PROFILE_NOT_LOADED, ECRV_DB, ECRV_DB_VER, ECRV_DB_ACCESS).
void demandDatabase(CRVctx& ctx);
/// For an operation of the database that answered false.
[[noreturn]] void failDatabase(CRVctx& ctx);
/// Code of a state of the database; 0 for the one that a profile needs.
[[nodiscard]] int codeOfDbState(DbState state);

}  // namespace crv
