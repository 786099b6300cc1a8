#include "crvconfd/screens/server_screens.h"

#include <algorithm>
#include <array>

#include "config/configuration_manager.h"
#include "crvconfd/engines/form.h"
#include "crvconfd/engines/pick_list.h"
#include "crvconfd/engines/screen.h"
#include "crvconfd/screens/net_screens.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/current_profile.h"
#include "crvconfd/session/messages.h"
#include "crvconfd/toolkit/toolkit.h"
#include "db_sql/db_manager.h"
#include "profiles/crv_profile.h"

namespace crv {

namespace {

constexpr size_t kWidestName = 24;
constexpr size_t kProtocolWidth = 4;
constexpr long kMaxPort = 65535;
constexpr long kMaxPeriod = 31'536'000;  // a year

constexpr std::array kProtocols{
    FormChoice{CRVSRV_TYPE_LDAP, "LDAP"},
    FormChoice{CRVSRV_TYPE_HTTP, "HTTP"},
    FormChoice{CRVSRV_TYPE_FTP, "FTP"},
    FormChoice{CRVSRV_TYPE_FILE, "PLIK"},
};

constexpr std::array kTlsChoices{
    FormChoice{CRVSRV_TLS_NONE, "nie"},
    FormChoice{CRVSRV_TLS_ALWAYS, "tak"},
    FormChoice{CRVSRV_TLS_START, "StartTLS"},
};

const char* protocolText(long type) {
    const auto found =
        std::find_if(kProtocols.begin(), kProtocols.end(), [&](const auto& choice) { return choice.value == type; });
    return found == kProtocols.end() ? "?" : found->text;
}

/// The field that chooses the CA: none, then each of the authorities.
FormField authorityField(SrvParams& server, const std::vector<CaChoice>& authorities) {
    return {"Urząd", [&server] { return server.caDn.empty() ? std::string("dowolny") : server.caDnUtf8; },
            [&server, &authorities] {
                std::vector<std::string> items{"dowolny"};
                int selected = 0;
                for (const auto& authority : authorities) {
                    items.push_back(authority.name);
                    if (authority.dn == server.caDn) selected = static_cast<int>(items.size()) - 1;
                }
                clrScr(kFewestRows);
                displHeader(0, "Wybór urzędu");
                const int index = pickFromList({kFirstRow, std::max<int>(BottomRow{18}, 1)}, items, selected);
                if (index < 0 || index == selected) return false;
                server.caDn = index == 0 ? Bytes() : authorities[static_cast<size_t>(index) - 1].dn;
                server.caDnUtf8 = index == 0 ? std::string() : items[static_cast<size_t>(index)];
                return true;
            }};
}

}  // namespace

SrvDatViewer::SrvDatViewer(std::string title, ServerUsage usage, std::vector<CaChoice> authorities)
    : title_(std::move(title)), usage_(usage), authorities_(std::move(authorities)) {}

std::vector<SrvParams> SrvDatViewer::servers() const {
    return boundProfile().getServerIterator(usage_).servers;
}

std::vector<std::string> SrvDatViewer::items() const {
    const auto list = servers();
    size_t width = 0;
    for (const SrvParams& server : list) width = std::max(width, columnsOf(server.name));
    std::vector<std::string> rows;
    for (const SrvParams& server : list) {
        std::string row = fitText(server.name, std::min(width, kWidestName)) + "  " +
                          fitText(protocolText(server.type), kProtocolWidth) + "  " + server.addr;
        if (server.port != 0) row += ":" + std::to_string(server.port);
        row += server.path;
        if (!server.caDn.empty()) row += "  [" + server.caDnUtf8 + "]";
        rows.push_back(std::move(row));
    }
    return rows;
}

void SrvDatViewer::edit(SrvParams server, bool isNew) {
    std::vector<FormField> fields;
    if (isNew) fields.push_back(textField("Nazwa", server.name));
    fields.push_back(choiceField("Protokół", server.type, kProtocols));
    fields.push_back(textField("Adres", server.addr));
    fields.push_back(numberField("Port", server.port, kMaxPort));
    fields.push_back(textField("Ścieżka", server.path));
    fields.push_back(textField("Użytkownik", server.user));
    fields.push_back(passwordField("Hasło", server.pass));
    fields.push_back(flagField("Logowanie systemowe", server.winAuth));
    fields.push_back(choiceField("TLS", server.tls, kTlsChoices));
    if (usage_ == CRVSRV_USAGE_CRL)
        fields.push_back(numberField("Okres pobierania w sekundach", server.periodSeconds, kMaxPeriod));
    if (usage_ != CRVSRV_USAGE_TIME_STAMP) fields.push_back(authorityField(server, authorities_));
    runForm(isNew ? title_ + " - nowy serwer" : title_ + " - " + server.name, fields, [&] {
        if (server.name.find_first_not_of(' ') == std::string::npos) {
            errInfo(kMessageRow, "Nazwa serwera nie może być pusta");
            return false;
        }
        return changeCurrentProfile(
            [&](CrvProfile& target) { isNew ? target.addSrv(server) : target.updateSrv(server); });
    });
}

void SrvDatViewer::remove(const SrvParams& server) {
    if (!askOfLoss("Czy na pewno chcesz usunąć serwer (t/n)?")) return;
    const bool done = changeCurrentProfile([&](CrvProfile& target) {
        // A server may have other uses, by now: it goes only with the last of them.
        SrvParams rest;
        if (!target.findSrv(server.name, &rest)) return;
        rest.usage &= ~static_cast<long>(usage_);
        rest.usage == 0 ? (void)target.delSrv(server.name) : target.updateSrv(rest);
    });
    // Numbers of imports from it are nobody's now; a database that is missing has none.
    if (!done || boundProfile().findSrv(server.name)) return;
    const DbState state = dbManager->isDbCreated();
    if (state != DbState::Missing && (state != DbState::Complete || !dbManager->delSrv(server.name)))
        showDatabaseFailure("Serwer usunięto, ale jego numer importu pozostał w bazie danych", "Brak pamięci !!!");
}

void SrvDatViewer::run() {
    const auto at = [this](size_t index) { return servers().at(index); };
    const auto add = [this](size_t) {
        SrvParams server;
        server.usage = usage_;
        server.type = usage_ == CRVSRV_USAGE_CERTIFICATES ? CRVSRV_TYPE_LDAP : CRVSRV_TYPE_HTTP;
        edit(std::move(server), true);
    };
    // The cursor follows the server, so that the next key means the same one.
    ScreenOps ops{
        .draw = drawTitle(title_), .items = [this] { return items(); }, .empty = "Brak serwerów", .actions = {}};
    const auto first = [&](size_t i) {
        const std::string name = at(i).name;
        if (changeCurrentProfile([&](CrvProfile& target) { target.moveSrvFirst(name); })) ops.selected = 0;
    };
    const auto last = [&](size_t i) {
        const std::string name = at(i).name;
        if (changeCurrentProfile([&](CrvProfile& target) { target.moveSrvLast(name); }))
            ops.selected = servers().size() - 1;
    };
    ops.actions = {
        {'d', "~Dodaj", false, add},
        {'e', "~Edytuj", true, [&](size_t i) { edit(at(i), false); }},
        {'u', "~Usuń", true, [&](size_t i) { remove(at(i)); }},
        {'p', "Na ~początek", true, first},
        {'k', "Na ~koniec", true, last},
        {'t', "Tes~t", true, [&](size_t i) { testServer(at(i)); }},
        {'r', "Pobie~rz", false, [](size_t) { fetchAllCrls(); }, [this] { return usage_ == CRVSRV_USAGE_CRL; }}};
    runScreen(ops);
}

namespace {

std::string serverListTitle(ServerUsage kind) {
    switch (kind) {
        case CRVSRV_USAGE_CERTIFICATES:
            return "Serwery certyfikatów";
        case CRVSRV_USAGE_OCSP:
            return "Serwery OCSP";
        default:
            return "Serwery list CRL";
    }
}

}  // namespace

Cck4srv::Cck4srv(ServerUsage kind, std::vector<CaChoice> authorities)
    : SrvDatViewer(serverListTitle(kind), kind, std::move(authorities)) {}

void OnSrvProxy() {
    Proxy proxy = boundProfile().ownProxy();
    bool system = boundProfile().usesSystemProxy();
    const std::vector<FormField> fields{
        flagField("Ustawienia systemowe", system), textField("Adres", proxy.addr),
        numberField("Port", proxy.port, kMaxPort), textField("Użytkownik", proxy.user),
        passwordField("Hasło", proxy.password),
    };
    runForm("Ustawienia proxy", fields, [&] {
        return changeCurrentProfile([&](CrvProfile& target) {
            target.setUseProxyFromSystemSettings(system);
            if (proxy.defined()) {
                target.insertProxy(proxy.addr, proxy.port, proxy.user, proxy.password);
            } else {
                target.deleteProxy();
            }
        });
    });
}

}  // namespace crv
