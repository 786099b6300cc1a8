// The options of a context, as calls and operations read and change them.
#pragma once

#include "context/crvctx.h"

namespace crv {

/// As crvSetOptionAPI and crvGetOptionAPI, without the frame; other failures are thrown.
int crvSetOptionInt(CRVctx* ctx, long id, long value);
int crvGetOptionInt(CRVctx* ctx, long id, long* value);

/// 15, 21 and 25: the algorithms of signatures.
int setDigestOption(CRVctx* ctx, long value);
int getDigestOption(CRVctx* ctx, long* value);
int setSchemeOption(CRVctx* ctx, long value);
int getSchemeOption(CRVctx* ctx, long* value);
int setSignatureOption(CRVctx* ctx, long value);
int getSignatureOption(CRVctx* ctx, long* value);

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
