/* An allocator under the whole program, libcrypto's share included, that fails on demand. */
#include <stddef.h>

extern void* __libc_malloc(size_t size);
extern void* __libc_calloc(size_t count, size_t size);
extern void* __libc_realloc(void* block, size_t size);
extern void* __libc_memalign(size_t align, size_t size);

static __thread long left; /* allocations up to the one that fails; 0: none fails */
static __thread int every; /* those behind it fail, too */
static __thread int failed;

void failAllocation(long n, int forEver);
int allocationFailed(void);

/* The n-th allocation of this thread from now on fails, with forEver those behind it, too. */
void failAllocation(long n, int forEver) {
    left = n;
    every = forEver;
    failed = 0;
}

/* Whether one did; from now on none does. */
int allocationFailed(void) {
    left = 0;
    return failed;
}

static int fails(void) {
    if (left == 0 || --left != 0) return 0;
    left = every;
    return failed = 1;
}

void* malloc(size_t size) {
    return fails() ? NULL : __libc_malloc(size);
}

void* calloc(size_t count, size_t size) {
    return fails() ? NULL : __libc_calloc(count, size);
}

void* realloc(void* block, size_t size) {
    return fails() ? NULL : __libc_realloc(block, size);
}

void* memalign(size_t align, size_t size);
void* memalign(size_t align, size_t size) {
    return fails() ? NULL : __libc_memalign(align, size);
}

void* aligned_alloc(size_t align, size_t size) {
    return memalign(align, size);
}

int posix_memalign(void** block, size_t align, size_t size) {
    *block = memalign(align, size);
    return *block ? 0 : 12; /* ENOMEM */
}
