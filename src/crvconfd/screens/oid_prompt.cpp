#include "crvconfd/screens/oid_prompt.h"

#include <array>

#include "asn/asn_object_id.h"
#include "crvconfd/toolkit/toolkit.h"

namespace crv {

namespace {

/// A word of up to Size - 1 characters; an empty one shows its message. False on Escape or after the message.
template <size_t Size>
bool askForWord(const char* prompt, const char* empty, std::string& word) {
    std::array<char, Size> buffer{};
    const int length = inputWord(kMessageRow, 0, prompt, buffer.data(), static_cast<int>(buffer.size()));
    if (length < 0) return false;
    if (length == 0) errInfo(kMessageRow, "%s", empty);
    word.assign(buffer.data(), static_cast<size_t>(length));
    return length > 0;
}

}  // namespace

bool askForOid(const OidPrompt& texts, ASNobjectId& oid) {
    std::string text;
    if (!askForWord<40>(texts.prompt, texts.empty, text)) return false;
    if (oid.setText(text)) return true;
    errInfo(kMessageRow, "%s", texts.invalid);
    return false;
}

bool askForName(const NamePrompt& texts, std::string& name) {
    return askForWord<60>(texts.prompt, texts.empty, name);
}

}  // namespace crv
