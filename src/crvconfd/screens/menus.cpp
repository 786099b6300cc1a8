#include "crvconfd/screens/menus.h"

#include <algorithm>
#include <span>

#include "config/configuration_manager.h"
#include "corvane/crvprofile.h"
#include "crvconfd/engines/screen.h"
#include "crvconfd/screens/cert_view.h"
#include "crvconfd/screens/change_password.h"
#include "crvconfd/screens/crl_browser.h"
#include "crvconfd/screens/db_browser.h"
#include "crvconfd/screens/db_operations.h"
#include "crvconfd/screens/extended_key_usage.h"
#include "crvconfd/screens/key_gen.h"
#include "crvconfd/screens/key_view.h"
#include "crvconfd/screens/net_screens.h"
#include "crvconfd/screens/profile_details.h"
#include "crvconfd/screens/server_screens.h"
#include "crvconfd/screens/trusted_points.h"
#include "crvconfd/screens/user_policies.h"
#include "crvconfd/screens/user_settings.h"
#include "crvconfd/screens/usr_crt_install.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/program_info.h"
#include "crvconfd/toolkit/toolkit.h"

namespace crv {

namespace {

constexpr const char* kLeaveLabel = "~W) Wyjście";

bool always() {
    return true;
}
bool hasPassword() {
    return cfgManager->profileType() != SessionProfileType::Device;
}

struct MenuEntry {
    char key;
    const char* label;
    void (*action)();
    bool (*offered)() = always;
};

struct Menu {
    void (*draw)();     ///< the header
    int (*firstRow)();  ///< of the entries
    std::span<const MenuEntry> entries;
};

constexpr MenuEntry kMainEntries[] = {
    {'1', "~1) Klucze", OnMenuKeys},
    {'2', "~2) Konfiguracja", OnMenuConfiguration},
    {'3', "~3) Bazy danych", OnMenuDataBase},
    {'4', "~4) Szczegóły profilu", [] { OnProfileDetails(); }},
};

constexpr MenuEntry kKeyEntries[] = {
    {'1', "~1) Generuj klucz do podpisywania", [] { OnKeyGen(KeyType::Signing); }},
    {'2', "~2) Generuj klucz do szyfrowania", [] { OnKeyGen(KeyType::Encryption); }},
    {'3', "~3) Generuj klucz do podpisywania i szyfrowania", [] { OnKeyGen(KeyType::Both); }},
    {'4', "~4) Wyświetl certyfikat klucza podpisującego", [] { showCert(KeyType::Signing); }},
    {'5', "~5) Wyświetl certyfikat klucza szyfrującego", [] { showCert(KeyType::Encryption); }},
    {'6', "~6) Instaluj certyfikat użytkownika", OnUsrCrtInstall},
    {'7', "~7) Zmiana hasła", OnChangePassword, hasPassword},
};

constexpr MenuEntry kConfigurationEntries[] = {
    {'1', "~1) Punkty zaufania", OnTrustedPoints},
    {'2', "~2) Serwery datowania", [] { SrvDatViewer().run(); }},
    {'3', "~3) Serwery list CRL", [] { Cck4srv(CRVSRV_USAGE_CRL, trustPointChoices()).run(); }},
    {'4', "~4) Serwery certyfikatów", [] { Cck4srv(CRVSRV_USAGE_CERTIFICATES, trustPointChoices()).run(); }},
    {'5', "~5) Serwery OCSP", [] { Cck4srv(CRVSRV_USAGE_OCSP, trustPointChoices()).run(); }},
    {'6', "~6) Ustawienia proxy", OnSrvProxy},
    {'7', "~7) Ustawienia kryptograficzne", OnUserSettings},
    {'8', "~8) Polityki użytkownika", OnUserPolicies},
    {'9', "~9) Rozszerzone zastosowanie klucza", OnExtendedKeyUsage},
};

constexpr MenuEntry kDataBaseEntries[] = {
    {'1', "~1) Przeglądaj bazę certyfikatów", [] { DbBrowser().run(); }},
    {'2', "~2) Przeglądaj bazę CRL", [] { CrlBrowser().run(); }},
    {'3', "~3) Instaluj certyfikaty korespondentów", OnCrtImport},
    {'4', "~4) Instaluj listę CRL", OnCrlImport},
    {'5', "~5) Eksportuj wszystkie certyfikaty", OnAllCrtsExport},
    {'6', "~6) Usuń przeterminowane certyfikaty", OnDbRebuild},
};

/// Entries one a row, the way back below them.
void drawEntries(int row, const std::vector<const char*>& labels) {
    constexpr int kColumn = 23;
    size_t widest = 0;
    for (const char* label : labels) widest = std::max(widest, columnsOf(label));
    const int column = std::clamp(shownColumns() - static_cast<int>(widest), 0, kColumn);
    for (const char* label : labels) displColText(row++, column, "%s", label);
    displColText(std::min<int>(row + 1, kMessageRow), column, "%s", kLeaveLabel);
}

ScreenOps menuOps(const Menu& menu) {
    ScreenActions actions;
    for (const MenuEntry& entry : menu.entries)
        actions.push_back({entry.key, entry.label, false, [&entry](size_t) { entry.action(); }, entry.offered});
    return {.draw = menu.draw,
            .actions = std::move(actions),
            .drawLabels = [&menu](const auto& labels) { drawEntries(menu.firstRow(), labels); },
            .escapeLeaves = false,
            .idle = CrlKeeper::idle};
}

/// First row of the main menu below a key table that ends on a row.
int mainMenuRow(int tableEnd) {
    return tableEnd <= 9 ? 10 : std::min<int>(tableEnd + 1, BottomRow{19});
}

int usualRow() {
    return 5;
}

constexpr Menu kMainMenu{[] { displayProgramInfo(0); }, [] { return mainMenuRow(showKeyInfo()); }, kMainEntries};
constexpr Menu kKeysMenu{[] { displHeader(0, "Operacje na kluczach użytkownika"); }, usualRow, kKeyEntries};
constexpr Menu kConfigurationMenu{[] { displHeader(0, "Konfiguracja"); }, usualRow, kConfigurationEntries};
constexpr Menu kDataBaseMenu{[] { displHeader(0, "Bazy danych"); }, usualRow, kDataBaseEntries};

}  // namespace

void displMainMenu() {
    drawScreen(menuOps(kMainMenu));
}
void displMenuKeys() {
    drawScreen(menuOps(kKeysMenu));
}
void displMenuConfiguration() {
    drawScreen(menuOps(kConfigurationMenu));
}
void displMenuDataBase() {
    drawScreen(menuOps(kDataBaseMenu));
}

void OnMainMenu() {
    runScreen(menuOps(kMainMenu));
}
void OnMenuKeys() {
    runScreen(menuOps(kKeysMenu));
}
void OnMenuConfiguration() {
    runScreen(menuOps(kConfigurationMenu));
}
void OnMenuDataBase() {
    runScreen(menuOps(kDataBaseMenu));
}

}  // namespace crv
