// The keys of a security file one by one: deletion, and the way to their transfer and to former files.
#pragma once

namespace crv {

/// Thrown when the security file under a session became another one: the session ends, and the profile is chosen anew.
/// No failure, so no exception of the library's kinds: nothing on the way handles it.
class SessionOver {};

/// Shows the list until the user goes back. Only for a profile with a security file. Throws SessionOver.
void OnKeyStore();

}  // namespace crv
