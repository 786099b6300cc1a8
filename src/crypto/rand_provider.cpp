#include "crypto/rand_provider.h"

#include <openssl/core_dispatch.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/params.h>
#include <openssl/provider.h>
#include <openssl/rand.h>

#include <memory>
#include <new>

#include "crypto/random_bridge.h"
#include "misc/secret.h"

namespace crv::ossl {

namespace {

constexpr char kProvider[] = "corvane";
constexpr char kGenerator[] = "CORVANE-RBG";

// The generator has no state of its own but libcrypto's idea of whether it runs.
struct Generator {
    int state = EVP_RAND_STATE_UNINITIALISED;
};

Generator& generatorOf(void* ctx) {
    return *static_cast<Generator*>(ctx);
}

// Called from C, which holds locks: nothing is thrown.
void* newGenerator(void*, void*, const OSSL_DISPATCH*) {
    return std::unique_ptr<Generator>(new (std::nothrow) Generator).release();
}

void freeGenerator(void* ctx) {
    const std::unique_ptr<Generator> ended(static_cast<Generator*>(ctx));
}

int instantiate(void* ctx, unsigned int, int, const unsigned char*, size_t, const OSSL_PARAM*) {
    generatorOf(ctx).state = EVP_RAND_STATE_READY;
    return 1;
}

int uninstantiate(void* ctx) {
    generatorOf(ctx).state = EVP_RAND_STATE_UNINITIALISED;
    return 1;
}

int generateOctets(void*, unsigned char* out, size_t length, unsigned int, int, const unsigned char*, size_t) {
    return fillFromCurrentSource({out, length}) ? 1 : 0;
}

// The sources are seeded by their owners.
int reseed(void*, int, const unsigned char*, size_t, const unsigned char*, size_t) {
    return 1;
}

// A source belongs to the thread that runs the operation, so there is nothing to lock.
int enableLocking(void*) {
    return 1;
}

int lock(void*) {
    return 1;
}

void unlock(void*) {}

const OSSL_PARAM* gettableParams(void*, void*) {
    static const OSSL_PARAM params[] = {OSSL_PARAM_int(OSSL_RAND_PARAM_STATE, nullptr),
                                        OSSL_PARAM_uint(OSSL_RAND_PARAM_STRENGTH, nullptr),
                                        OSSL_PARAM_size_t(OSSL_RAND_PARAM_MAX_REQUEST, nullptr), OSSL_PARAM_END};
    return params;
}

int getParams(void* ctx, OSSL_PARAM params[]) {
    OSSL_PARAM* p = OSSL_PARAM_locate(params, OSSL_RAND_PARAM_STATE);
    if (p && OSSL_PARAM_set_int(p, generatorOf(ctx).state) == 0) return 0;
    p = OSSL_PARAM_locate(params, OSSL_RAND_PARAM_STRENGTH);
    if (p && OSSL_PARAM_set_uint(p, 256) == 0) return 0;
    p = OSSL_PARAM_locate(params, OSSL_RAND_PARAM_MAX_REQUEST);
    return !p || OSSL_PARAM_set_size_t(p, 65536) != 0 ? 1 : 0;
}

template <class Function>
OSSL_DISPATCH entry(int id, Function* function) {
    return {id, reinterpret_cast<void (*)()>(function)};
}

// The tables are made when they are asked for: a program may use a context before its main begins.

const OSSL_DISPATCH* randFunctions() {
    static const OSSL_DISPATCH functions[] = {
        entry(OSSL_FUNC_RAND_NEWCTX, newGenerator),
        entry(OSSL_FUNC_RAND_FREECTX, freeGenerator),
        entry(OSSL_FUNC_RAND_INSTANTIATE, instantiate),
        entry(OSSL_FUNC_RAND_UNINSTANTIATE, uninstantiate),
        entry(OSSL_FUNC_RAND_GENERATE, generateOctets),
        entry(OSSL_FUNC_RAND_RESEED, reseed),
        entry(OSSL_FUNC_RAND_ENABLE_LOCKING, enableLocking),
        entry(OSSL_FUNC_RAND_LOCK, lock),
        entry(OSSL_FUNC_RAND_UNLOCK, unlock),
        entry(OSSL_FUNC_RAND_GETTABLE_CTX_PARAMS, gettableParams),
        entry(OSSL_FUNC_RAND_GET_CTX_PARAMS, getParams),
        {0, nullptr},
    };
    return functions;
}

const OSSL_ALGORITHM* queryOperation(void*, int operation, int* noCache) {
    static const OSSL_ALGORITHM algorithms[] = {
        {kGenerator, "provider=corvane", randFunctions(), "generator of the key store"},
        {nullptr, nullptr, nullptr, nullptr}};
    *noCache = 0;
    return operation == OSSL_OP_RAND ? algorithms : nullptr;
}

int initProvider(const OSSL_CORE_HANDLE* handle, const OSSL_DISPATCH*, const OSSL_DISPATCH** out, void** context) {
    static const OSSL_DISPATCH functions[] = {entry(OSSL_FUNC_PROVIDER_QUERY_OPERATION, queryOperation), {0, nullptr}};
    *out = functions;
    *context = const_cast<OSSL_CORE_HANDLE*>(handle);  // must not be null; nothing reads it
    return 1;
}

}  // namespace

bool installRandProvider(OSSL_LIB_CTX* context) {
    return OSSL_PROVIDER_add_builtin(context, kProvider, initProvider) == 1 && OSSL_PROVIDER_load(context, kProvider) &&
           RAND_set_DRBG_type(context, kGenerator, nullptr, nullptr, nullptr) == 1;
}

}  // namespace crv::ossl
