// The options of a context, as calls and operations read and change them.
#pragma once

#include "context/crvctx.h"

namespace crv {

/// As crvSetOptionAPI and crvGetOptionAPI, without the frame; other failures are thrown.
int crvSetOptionInt(CRVctx* ctx, long id, long value);
int crvGetOptionInt(CRVctx* ctx, long id, long* value);

/// Sets again what the program set since the last save; a value that does not go with the key leaves a warning and a
/// line of the report.
void applyUnsavedOptions(CRVctx* ctx);

/// 15, 21 and 25: the algorithms of signatures.
int setDigestOption(CRVctx* ctx, long value);
int getDigestOption(CRVctx* ctx, long* value);
int setSchemeOption(CRVctx* ctx, long value);
int getSchemeOption(CRVctx* ctx, long* value);
int setSignatureOption(CRVctx* ctx, long value);
int getSignatureOption(CRVctx* ctx, long* value);

/// CRVDIGEST_ and CRVSCHEME_ values: what they mean (ECRV_API_INV_PAR for others), and the reverse (0: none).
[[nodiscard]] KcHashAlgo hashOfOption(long value);
[[nodiscard]] KeyScheme schemeOfOption(long value);
[[nodiscard]] long optionOfHash(KcHashAlgo hash);
[[nodiscard]] long optionOfScheme(KeyScheme scheme);

/// An integer option that has another value for a scope. The constructor throws CrvApiException when the option cannot
/// be read or set; the end of the scope sets the former value again.
class CrvOptionGuard {
  public:
    CrvOptionGuard(CRVctx* ctx, long id, long value);
    ~CrvOptionGuard();
    CrvOptionGuard(const CrvOptionGuard&) = delete;
    CrvOptionGuard& operator=(const CrvOptionGuard&) = delete;

  private:
    CRVctx* ctx_;
    long id_;
    long former_ = 0;
};

}  // namespace crv
