#include "crvconfd/screens/oid_prompt.h"

#include "asn/asn_object_id.h"
#include "crvconfd/engines/entry.h"
#include "crvconfd/toolkit/toolkit.h"

namespace crv {

namespace {

constexpr size_t kLongestOid = 39;
constexpr size_t kLongestNote = 59;

/// A word; an empty one shows its message. False on Escape or after the message.
bool askForWord(const char* prompt, const char* empty, size_t longest, std::string& word) {
    const auto typed = askLine(prompt, longest, true);
    if (!typed) return false;
    if (typed->empty()) errInfo(kMessageRow, "%s", empty);
    word = *typed;
    return !word.empty();
}

}  // namespace

bool askForOid(const OidPrompt& texts, ASNobjectId& oid) {
    std::string text;
    if (!askForWord(texts.prompt, texts.empty, kLongestOid, text)) return false;
    if (oid.setText(text)) return true;
    errInfo(kMessageRow, "%s", texts.invalid);
    return false;
}

bool askForName(const NamePrompt& texts, std::string& name) {
    return askForWord(texts.prompt, texts.empty, kLongestNote, name);
}

}  // namespace crv
