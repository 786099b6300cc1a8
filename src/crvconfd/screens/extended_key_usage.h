// The screen of the extended key usages that the profile accepts: "Akceptowane rozszerzone zastosowanie klucza".
#pragma once

#include <string>

#include "crvconfd/engines/numbered_list.h"

namespace crv {

/// The screen's key loop; every change is saved in the profile list at once.
void OnExtendedKeyUsage();

/// Draws the list from its first entry, sorted by name.
void showExtendedKeyUsages();
/// Draws one entry on its row; the index counts from 0.
void showExtendedKeyUsage(size_t index, const std::string& name, const std::string& identifier);
/// Asks for an identifier and a name and adds them.
void addExtendedKeyUsage();
/// Asks for a number of the sorted list and deletes that entry.
void delExtendedKeyUsage();

}  // namespace crv
