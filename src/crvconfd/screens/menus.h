// The menu tree of a session. Each menu runs until the user goes back.
#pragma once

namespace crv {

void OnMainMenu();
void OnMenuKeys();
void OnMenuConfiguration();
void OnMenuDataBase();

/// Draw a menu; the main menu with the key table above it.
void displMainMenu();
void displMenuKeys();
void displMenuConfiguration();
void displMenuDataBase();

}  // namespace crv
