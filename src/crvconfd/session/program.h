// The program from its start to its exit status.
#pragma once

namespace crv {

/// Exit statuses: 0 after help, version, the list or a normal end; 1 for a wrong argument, a list or profile that
/// cannot be had, or no fit terminal; 255 for an exception. When a signal asked for the end, the process ends by that
/// signal.
int runProgram(int count, const char* const* arguments);

}  // namespace crv
