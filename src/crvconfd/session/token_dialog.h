// What tokens ask of the user while they work: PINs that are needed late, and what they say of their PIN.
#pragma once

namespace crv {

class ContextState;

/// Has the context ask and tell on the message row.
void talkToTokens(ContextState& context);

}  // namespace crv
