// The screen of the certificate policies that the user signs under: "Lista polityk użytkownika".
#pragma once

#include <cstddef>

namespace crv {

class PolicyIdAndNote;

/// The screen's key loop; every change is saved in the protected configuration at once.
void OnUserPolicies();

/// Draws the list from its first entry, in stored order. Without a signing key and its certificate only a message is
/// shown, unless the profile is one that only decrypts (option 19), which has no signing key by intention; false then.
bool showPolicies();
/// Draws one entry on its row; the index counts from 0.
void showPolicy(size_t index, const PolicyIdAndNote& policy);
/// Asks for an identifier and a name and appends the policy.
void addPolicy();
/// Asks for a number and removes that policy.
void delPolicy();

}  // namespace crv
