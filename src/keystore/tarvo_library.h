// The library of the Tarvo device, loaded at run time: the few calls that the key manager makes.
#pragma once

#include <span>
#include <string>

#include "keystore/key_manager_result.h"
#include "misc/bytes.h"
#include "misc/secret.h"

namespace crv {

/// What a device's library answers: done; no (no initialised device, wrong PIN, nothing stored); blocked; anything else
/// is a failure, whose number DtGetLastError gives.
enum TarvoAnswer : int { kDtOk = 0, kDtNo = 1, kDtBlocked = 2 };

/// The functions, with C linkage under these names. Lengths are octets.
struct TarvoFunctions {
    /// Finds an initialised device: the one with the 16-octet card id, or any when the id is null; kDtNo: none.
    int (*DtGetStatus)(const unsigned char* cardId, long deviceType) = nullptr;
    unsigned (*DtGetLastError)() = nullptr;
    int (*DtLogin)(const char* pin, unsigned length) = nullptr;
    int (*DtLogout)() = nullptr;
    int (*DtGetRBGSamples)(unsigned char* out, unsigned length) = nullptr;
    /// The stored object; a null buffer asks for the length. kDtNo: none stored.
    int (*DtReadConfig)(unsigned char* out, unsigned* length) = nullptr;
    int (*DtWriteConfig)(const unsigned char* data, unsigned length) = nullptr;
};

/// Loads a library and finds its functions. The library stays in the process.
class TarvoLibrary {
  public:
    static constexpr const char* kDefaultName = "libtarvo.so";

    TarvoLibrary() = default;
    ~TarvoLibrary();
    TarvoLibrary(const TarvoLibrary&) = delete;
    TarvoLibrary& operator=(const TarvoLibrary&) = delete;

    /// kKmDeviceLibrary or kKmDeviceFunction, with the loader's text in `diagnostic`. Loading twice does nothing.
    [[nodiscard]] KeyManagerResult load(const std::string& path, std::string& diagnostic);
    [[nodiscard]] bool loaded() const { return handle_ != nullptr; }
    /// Only of a loaded library.
    [[nodiscard]] const TarvoFunctions& operator*() const { return functions_; }
    [[nodiscard]] const TarvoFunctions* operator->() const { return &functions_; }

  private:
    void* handle_ = nullptr;
    TarvoFunctions functions_;
};

}  // namespace crv
