#include "db_sql/db_pg_target.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "misc/c_string.h"
#include "misc/exceptions.h"

namespace crv {

namespace {

constexpr const char* kProgram = "corvane";

/// The options of libpq, wiped: a password may stand in them.
struct FreeOptions {
    const PgFunctions* functions;
    void operator()(PQconninfoOption* options) const {
        for (PQconninfoOption* one = options; one->keyword; ++one) {
            if (one->val) wipeMemory(one->val, std::strlen(one->val));
        }
        functions->conninfoFree(options);
    }
};
using Options = std::unique_ptr<PQconninfoOption, FreeOptions>;

std::string_view valueOf(const Options& options, std::string_view keyword) {
    for (const PQconninfoOption* one = options.get(); one && one->keyword; ++one) {
        if (one->keyword == keyword) return viewOrEmpty(one->val);
    }
    return {};
}

bool isConnectionString(std::string_view text) {
    return text.find('=') != std::string_view::npos || text.starts_with("postgresql://") ||
           text.starts_with("postgres://");
}

/// 127.0.0.0/8, not a name that begins so.
bool isLoopback(std::string_view host) {
    in_addr address{};
    return inet_pton(AF_INET, std::string(host).c_str(), &address) == 1 && ntohl(address.s_addr) >> 24 == 127;
}

bool isLocalHost(std::string_view host) {
    return host.empty() || host.front() == '/' || host.front() == '@' || host == "localhost" || host == "::1" ||
           isLoopback(host);
}

/// Takes the first element off a list.
std::string_view takeElement(std::string_view& list) {
    const std::string_view first = list.substr(0, list.find(','));
    list.remove_prefix(std::min(first.size() + 1, list.size()));
    return first;
}

}  // namespace

PgTarget::PgTarget(const DbConfig& config, const PgFunctions& functions) {
    if (isConnectionString(config.dbName)) {
        readConnectionString(config.dbName, functions);
        add("dbname", config.dbName);
    } else if (!config.dbName.empty()) {
        add("service", config.dbName);
    }
    if (!config.dbLogin.empty()) add("user", config.dbLogin);
    if (!config.dbPass.empty()) add("password", config.dbPass);
    add("client_encoding", "UTF8");
    add("fallback_application_name", kProgram);
    saysSslMode_ = saysSslMode_ || !viewOrEmpty(std::getenv("PGSSLMODE")).empty();
}

void PgTarget::readConnectionString(const std::string& text, const PgFunctions& functions) {
    char* complaint = nullptr;
    const Options options(functions.conninfoParse(text.c_str(), &complaint), FreeOptions{&functions});
    // libpq's complaint quotes what it could not read, which may be a part of the password.
    if (complaint) wipeMemory(complaint, std::strlen(complaint));
    functions.freemem(complaint);
    if (!options) {
        throw StoreError(StoreCause::Refused,
                         "Niepoprawny napis połączenia z bazą PostgreSQL (dbname): oczekiwano par nazwa=wartość, "
                         "adresu postgresql:// albo nazwy usługi");
    }
    // The name of a database is shown where a profile is looked at.
    if (!valueOf(options, "password").empty() || !valueOf(options, "sslpassword").empty()) {
        throw StoreError(StoreCause::Refused,
                         "Hasło do bazy PostgreSQL nie może stać w dbname: wpisz je do pliku haseł libpq (~/.pgpass) "
                         "albo do dbpass");
    }
    saysSslMode_ = !valueOf(options, "sslmode").empty();
}

void PgTarget::passOver(int hosts, const PgEffective& started) {
    for (const auto& [keyword, all] :
         {std::pair{"host", &started.host}, {"hostaddr", &started.hostAddr}, {"port", &started.port}}) {
        std::string_view rest = *all;
        for (int i = 0; i < hosts && rest.find(',') != std::string_view::npos; ++i) takeElement(rest);
        if (rest.size() < all->size()) add(keyword, rest);
    }
}

std::vector<const char*> PgTarget::keywords() const {
    std::vector<const char*> list;
    for (const auto& [keyword, value] : items_) list.push_back(keyword);
    list.push_back(nullptr);
    return list;
}

std::vector<const char*> PgTarget::values() const {
    std::vector<const char*> list;
    for (const auto& [keyword, value] : items_) list.push_back(value.c_str());
    list.push_back(nullptr);
    return list;
}

PgEffective effectiveOf(PGconn* conn, const PgFunctions& functions) {
    const Options options(functions.conninfo(conn), FreeOptions{&functions});
    PgEffective found;
    std::string_view hosts = valueOf(options, "host"), addresses = valueOf(options, "hostaddr");
    const std::string_view seconds = valueOf(options, "connect_timeout");
    found.host = hosts;
    found.hostAddr = addresses;
    found.port = valueOf(options, "port");
    found.hosts += static_cast<int>(std::max(std::ranges::count(hosts, ','), std::ranges::count(addresses, ',')));
    // The lists go in pairs: a host that has an address is reached there.
    for (int i = 0; i < found.hosts; ++i) {
        const std::string_view host = takeElement(hosts), address = takeElement(addresses);
        found.isLocal = found.isLocal && isLocalHost(address.empty() ? host : address);
    }
    found.sslMode = valueOf(options, "sslmode");
    (void)std::from_chars(seconds.data(), seconds.data() + seconds.size(), found.connectSeconds);
    return found;
}

}  // namespace crv
