#include "misc/process_guard.h"

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>

namespace crv {

void guardStandardFiles() {
    for (int fd = open("/dev/null", O_RDONLY); fd >= 0; fd = open("/dev/null", O_RDONLY)) {
        if (fd > STDERR_FILENO) {
            close(fd);
            break;
        }
    }
    std::signal(SIGPIPE, SIG_IGN);
}

void hideMemory() {
    const rlimit none{};
    setrlimit(RLIMIT_CORE, &none);
#ifndef __SANITIZE_ADDRESS__  // whose leak check needs to trace the process
    prctl(PR_SET_DUMPABLE, 0);
#endif
}

}  // namespace crv
