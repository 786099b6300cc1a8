#include "confinement.h"

#include <fcntl.h>
#include <seccomp.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <memory>

namespace crv::fetch {

namespace {

struct Limit {
    __rlimit_resource resource;
    rlim_t value;
};
constexpr Limit kLimits[] = {
#if !defined(__SANITIZE_ADDRESS__)  // its shadow alone takes more
    {RLIMIT_AS, rlim_t{512} << 20},
#endif
    {RLIMIT_NOFILE, 32},
    {RLIMIT_CORE, 0},
};

constexpr int kForbidden[] = {SCMP_SYS(execve),
                              SCMP_SYS(execveat),
                              SCMP_SYS(fork),
                              SCMP_SYS(vfork),
                              SCMP_SYS(ptrace),
                              SCMP_SYS(kill),
                              SCMP_SYS(process_vm_readv),
                              SCMP_SYS(creat),
                              SCMP_SYS(unlink),
                              SCMP_SYS(unlinkat),
                              SCMP_SYS(rename),
                              SCMP_SYS(process_vm_writev),
                              SCMP_SYS(renameat),
                              SCMP_SYS(renameat2),
                              SCMP_SYS(mkdir),
                              SCMP_SYS(mkdirat),
                              SCMP_SYS(rmdir),
                              SCMP_SYS(link),
                              SCMP_SYS(linkat),
                              SCMP_SYS(symlink),
                              SCMP_SYS(symlinkat),
                              SCMP_SYS(chmod),
                              SCMP_SYS(fchmod),
                              SCMP_SYS(fchmodat),
                              SCMP_SYS(chown),
                              SCMP_SYS(fchown),
                              SCMP_SYS(fchownat),
                              SCMP_SYS(truncate),
                              SCMP_SYS(mknod),
                              SCMP_SYS(mknodat),
                              SCMP_SYS(mount),
                              SCMP_SYS(setuid),
                              SCMP_SYS(setgid),
                              SCMP_SYS(bpf),
                              SCMP_SYS(keyctl),
                              SCMP_SYS(shmget),
                              SCMP_SYS(perf_event_open),
                              SCMP_SYS(userfaultfd),
                              SCMP_SYS(setns),
                              SCMP_SYS(unshare),
                              SCMP_SYS(io_uring_setup),
                              SCMP_SYS(openat2),
                              SCMP_SYS(open),
                              SCMP_SYS(pidfd_open)};

/// A file may be opened for reading only.
bool forbidWriting(scmp_filter_ctx filter) {
    return std::ranges::all_of(std::initializer_list<scmp_datum_t>{O_WRONLY, O_RDWR, O_CREAT, O_TRUNC}, [&](auto bits) {
        return seccomp_rule_add(filter, SCMP_ACT_ERRNO(EACCES), SCMP_SYS(openat), 1,
                                scmp_arg_cmp{2, SCMP_CMP_MASKED_EQ, bits, bits}) == 0;
    });
}

bool filterCalls() {
    const std::unique_ptr<void, decltype(&seccomp_release)> filter(seccomp_init(SCMP_ACT_ALLOW), seccomp_release);
    return filter && forbidWriting(filter.get()) &&
           std::ranges::all_of(
               kForbidden,
               [&](int call) { return seccomp_rule_add(filter.get(), SCMP_ACT_ERRNO(EPERM), call, 0) == 0; }) &&
           seccomp_load(filter.get()) == 0;
}

}  // namespace

bool confine() {
    std::signal(SIGPIPE, SIG_DFL);
    const bool limited = std::ranges::all_of(kLimits, [](const Limit& row) {
        const rlimit limit{row.value, row.value};
        return setrlimit(row.resource, &limit) == 0;
    });
    return limited && prctl(PR_SET_PDEATHSIG, SIGKILL) == 0 && prctl(PR_SET_DUMPABLE, 0) == 0 &&
           prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) == 0 && filterCalls();
}

}  // namespace crv::fetch
