#include "keystore/tarvo_library.h"

#include <dlfcn.h>

#include <cstddef>
#include <cstring>

#include "misc/c_string.h"

namespace crv {
namespace {

struct FunctionRow {
    const char* name;
    size_t offset;  // of its pointer in TarvoFunctions
};

#define CRV_DT(name) \
    { #name, offsetof(TarvoFunctions, name) }
constexpr FunctionRow kFunctions[] = {
    CRV_DT(DtGetStatus),     CRV_DT(DtGetLastError), CRV_DT(DtLogin),       CRV_DT(DtLogout),
    CRV_DT(DtGetRBGSamples), CRV_DT(DtReadConfig),   CRV_DT(DtWriteConfig),
};
#undef CRV_DT

}  // namespace

TarvoLibrary::~TarvoLibrary() {
    if (handle_) dlclose(handle_);
}

KeyManagerResult TarvoLibrary::load(const std::string& path, std::string& diagnostic) {
    if (handle_) return kKmOk;
    // Such libraries keep threads and open devices: once in the process they stay.
    void* handle = dlopen(path.empty() ? kDefaultName : path.c_str(), RTLD_NOW | RTLD_LOCAL | RTLD_NODELETE);
    if (!handle) {
        diagnostic = orEmpty(dlerror());
        return kKmDeviceLibrary;
    }
    for (const FunctionRow& row : kFunctions) {
        void* symbol = dlsym(handle, row.name);
        if (!symbol) {
            diagnostic = orEmpty(dlerror());
            dlclose(handle);
            return kKmDeviceFunction;
        }
        std::memcpy(reinterpret_cast<char*>(&functions_) + row.offset, &symbol, sizeof symbol);
    }
    handle_ = handle;
    return kKmOk;
}

}  // namespace crv
