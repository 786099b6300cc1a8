#include "crvconfd/session/token_dialog.h"

#include "context/context_state.h"
#include "crvconfd/screens/password_entry.h"
#include "crvconfd/session/context.h"
#include "crvconfd/toolkit/toolkit.h"
#include "keystore/key_manager.h"

namespace crv {
namespace {

/// A PIN that nobody gave before the log-in; the prompt names the token.
PinResult askLate(PinSlot slot, SecretText& pin) {
    const std::string label = keyManager->tokenLabel(slot);
    const std::string of = slot == PinSlot::SigningKey ? "Podaj PIN klucza do podpisywania" : "Podaj PIN do karty";
    return readPassword((of + (label.empty() ? ":" : " " + label + ":")).c_str(), pin) ? kPinOk : kPinCancelled;
}

bool tell(TokenNotice notice, const std::string& label) {
    clrToEol(kMessageRow, 0);
    switch (notice) {
        case TokenNotice::FinalTry:
            return displCentQuestion(kMessageRow, "To ostatnia próba przed zablokowaniem karty. Kontynuować (t/n)?") ==
                   1;
        case TokenNotice::FewTries:
            errInfo(kMessageRow, "Podano już błędny PIN do karty %s", label.c_str());
            return true;
        case TokenNotice::PinOnReader:
            displText(kMessageRow, 0, "Podaj PIN na czytniku...");
            refreshScr();
            return true;
    }
    return true;
}

}  // namespace

void talkToTokens(ContextState& context) {
    context.prompt = askLate;
    context.tokenNotices = tell;
}

}  // namespace crv
