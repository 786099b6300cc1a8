// What every program does with its process before anything else.
#pragma once

namespace crv {

/// Takes up closed standard descriptors, so that no file of the program is opened in their place: what is written to
/// them then fails. A closed pipe becomes a failed write (EPIPE) instead of a signal.
void guardStandardFiles();

/// Neither a core file nor another process of the user is to see passwords.
void hideMemory();

}  // namespace crv
