// What the process gives up before it looks at anything from outside.
#pragma once

namespace crv::fetch {

/// Sets the limits, ends with whoever started it, and forbids by seccomp to start programs, to write files and to look
/// into other processes. False when the system refuses; nothing is fetched then.
[[nodiscard]] bool confine();

}  // namespace crv::fetch
