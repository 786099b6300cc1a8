// The first seed of the random generators, from the user's keystrokes.
#pragma once

namespace crv {

/// Asks for 30 random keys (again after fewer) and seeds the key manager's generators with them. False on Escape, which
/// is said, and on a lack of memory, for which the given text is shown.
[[nodiscard]] bool seedFromKeystrokes(const char* noMemoryText);

}  // namespace crv
