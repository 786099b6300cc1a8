// Prompts on the message row for an object identifier and for the name that goes with it.
#pragma once

#include <string>

namespace crv {

class ASNobjectId;

struct OidPrompt {
    const char* prompt;
    const char* empty;    ///< shown for nothing typed
    const char* invalid;  ///< shown for what is no object identifier
};

struct NamePrompt {
    const char* prompt;
    const char* empty;
};

/// Reads an identifier in dotted decimal, at most 39 characters. False on Escape or after a message.
[[nodiscard]] bool askForOid(const OidPrompt& texts, ASNobjectId& oid);

/// Reads a name without spaces, at most 59 characters. False on Escape or after a message.
[[nodiscard]] bool askForName(const NamePrompt& texts, std::string& name);

}  // namespace crv
