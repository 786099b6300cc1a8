/* Preloaded into a program, this makes its world a bad one. Variables say how:
     TROUBLE_MEMORY=n or n+   the n-th allocation since main fails; with +, all behind it, too
     TROUBLE_KILL=n:us        SIGKILL us microseconds after the n-th change of a file has begun
     TROUBLE_CLOCK=seed       the time of day jumps to and fro by up to a year
     TROUBLE_TOLD=file        three numbers (long) are kept there: allocations, changes of files, what was made to fail */
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdarg.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <time.h>
#include <unistd.h>

extern void* __libc_malloc(size_t size);
extern void* __libc_calloc(size_t count, size_t size);
extern void* __libc_realloc(void* block, size_t size);
extern void* __libc_memalign(size_t align, size_t size);

enum { kAllocations, kChanges, kFailed };
static long unshared[3];
static long* told = unshared;
static long failing, every, killing, after, clockSeed;
static int running;

__attribute__((constructor)) static void readOrders(void) {
    char* rest = NULL;
    const char* text = getenv("TROUBLE_MEMORY");
    if (text) failing = strtol(text, &rest, 10), every = *rest == '+';
    if ((text = getenv("TROUBLE_KILL"))) killing = strtol(text, &rest, 10), after = strtol(rest + 1, NULL, 10);
    if ((text = getenv("TROUBLE_CLOCK"))) clockSeed = strtol(text, NULL, 10);
    const int fd = (text = getenv("TROUBLE_TOLD")) ? open(text, O_RDWR | O_CLOEXEC) : -1;
    void* shared = mmap(NULL, sizeof unshared, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    if (shared != MAP_FAILED) told = shared;
    if (fd >= 0) close(fd);
}

static int (*realMain)(int, char**, char**);
static int mainUnderTrouble(int count, char** words, char** environment) {
    running = 1;
    return realMain(count, words, environment);
}

int __libc_start_main(int (*main)(int, char**, char**), int count, char** words, void (*begin)(void), void (*end)(void),
                      void (*last)(void), void* stack) {
    int (*start)(int (*)(int, char**, char**), int, char**, void (*)(void), void (*)(void), void (*)(void), void*);
    *(void**)&start = dlsym(RTLD_NEXT, "__libc_start_main");
    realMain = main;
    return start(mainUnderTrouble, count, words, begin, end, last, stack);
}

static int noMemory(void) {
    if (!running) return 0;
    const long n = __atomic_add_fetch(&told[kAllocations], 1, __ATOMIC_RELAXED);
    if (failing == 0 || n < failing || (n > failing && !every)) return 0;
    told[kFailed] = 1;
    errno = ENOMEM;
    return 1;
}

void* malloc(size_t size) {
    return noMemory() ? NULL : __libc_malloc(size);
}
void* calloc(size_t count, size_t size) {
    return noMemory() ? NULL : __libc_calloc(count, size);
}
void* realloc(void* block, size_t size) {
    return noMemory() ? NULL : __libc_realloc(block, size);
}
void* memalign(size_t align, size_t size) {
    return noMemory() ? NULL : __libc_memalign(align, size);
}
void* aligned_alloc(size_t align, size_t size) {
    return memalign(align, size);
}
int posix_memalign(void** block, size_t align, size_t size) {
    return (*block = memalign(align, size)) ? 0 : ENOMEM;
}

/* A change of a file begins. */
static void change(void) {
    if (__atomic_add_fetch(&told[kChanges], 1, __ATOMIC_RELAXED) != killing) return;
    told[kFailed] = 1;
    if (after == 0) kill(getpid(), SIGKILL);
    struct sigevent event = {.sigev_notify = SIGEV_SIGNAL, .sigev_signo = SIGKILL};
    const struct itimerspec when = {.it_value = {0, after * 1000}};
    timer_t timer;
    if (timer_create(CLOCK_MONOTONIC, &event, &timer) == 0) timer_settime(timer, 0, &when, NULL);
}

ssize_t write(int fd, const void* data, size_t size) {
    if (fd > STDERR_FILENO) change();
    return syscall(SYS_write, fd, data, size);
}
ssize_t pwrite64(int fd, const void* data, size_t size, off64_t position) {
    change();
    return syscall(SYS_pwrite64, fd, data, size, position);
}
int ftruncate64(int fd, off64_t length) {
    change();
    return (int)syscall(SYS_ftruncate, fd, length);
}
int fsync(int fd) {
    change();
    return (int)syscall(SYS_fsync, fd);
}
int rename(const char* from, const char* to) {
    change();
    return (int)syscall(SYS_rename, from, to);
}
int unlink(const char* path) {
    change();
    return (int)syscall(SYS_unlink, path);
}
int open64(const char* path, int flags, ...) {
    va_list rest;
    va_start(rest, flags);
    const int mode = va_arg(rest, int);
    va_end(rest);
    if (flags & (O_CREAT | O_TRUNC)) change();
    return (int)syscall(SYS_openat, AT_FDCWD, path, flags | O_LARGEFILE, mode);
}

static long jump(void) {
    if (clockSeed == 0) return 0;
    clockSeed = clockSeed * 1103515245 + 12345;
    return (clockSeed >> 16) % (365L * 24 * 3600);
}
int clock_gettime(clockid_t clock, struct timespec* now) {
    const int answer = (int)syscall(SYS_clock_gettime, clock, now);
    if (clock == CLOCK_REALTIME) now->tv_sec += jump();
    return answer;
}
time_t time(time_t* where) {
    struct timespec now;
    clock_gettime(CLOCK_REALTIME, &now);
    if (where) *where = now.tv_sec;
    return now.tv_sec;
}
int gettimeofday(struct timeval* where, void* zone) {
    (void)zone;
    where->tv_sec = time(NULL), where->tv_usec = 0;
    return 0;
}
