// The kinds of profiles: where the private keys live. Each is a record with a table of attributes of its own.
#pragma once

#include <string_view>
#include <vector>

#include "profiles/crv_profile.h"

namespace crv {

/// Whether a list's "Type" stands for a kind of profile.
bool isListedKind(long type);

/// Keys in a password-protected PKCS#12 file.
class Pkcs12Profile : public CrvProfile {
  public:
    Pkcs12Profile();
};

/// Keys in a Tarvo device.
class Tarvo23Profile : public CrvProfile {
  public:
    Tarvo23Profile();
};

/// Keys on a PKCS#11 token.
class Pkcs11Profile : public CrvProfile {
  public:
    Pkcs11Profile();
    /// Single paths of a library attribute, which separates several with ";"; empty ones are left out.
    static std::vector<std::string> splitLibs(std::string_view libs);
};

/// Nothing lasting.
class MemoryProfile : public CrvProfile {
  public:
    MemoryProfile();
};

/// Keys behind a cryptographic provider. No list holds such a record.
class CspProfile : public CrvProfile {
  public:
    CspProfile();
};

}  // namespace crv
