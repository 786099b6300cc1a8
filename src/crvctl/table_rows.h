// What the sources of the verb table share.
#pragma once

#include <vector>

#include "crvctl/table.h"

namespace crv::ctl {

inline const OptionRow kForce{"force", ValueKind::Flag, nullptr, "replace a file that is there"};

/// The secrets that open a key store.
inline constexpr unsigned kOpen = kPasswordBit | kPinBit | kRootsPasswordBit | kDecryptionPinBit | kKeyPinBit;

template <class Item>
std::vector<Item> join(std::vector<Item> first, const std::vector<Item>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// The verbs of each group, as they are listed.
std::vector<VerbRow> profileVerbs();
std::vector<VerbRow> storeVerbs();
std::vector<VerbRow> keyVerbs();
std::vector<VerbRow> policyVerbs();
std::vector<VerbRow> settingVerbs();
std::vector<VerbRow> certVerbs();
std::vector<VerbRow> trustVerbs();
std::vector<VerbRow> crlVerbs();
std::vector<VerbRow> dbVerbs();
std::vector<VerbRow> usageVerbs();
std::vector<VerbRow> serverVerbs();
std::vector<VerbRow> proxyVerbs();
std::vector<VerbRow> messageVerbs();

}  // namespace crv::ctl
