#include "profiles/server_list.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <variant>

#include "corvane/crverrors.h"
#include "misc/ascii.h"
#include "misc/exceptions.h"
#include "profiles/attr_set.h"
#include "profiles/hidden_password.h"

namespace crv {
namespace {

/// A key of a server's subtree and the member that it fills.
struct SrvKey {
    const char* key;
    std::variant<long SrvParams::*, std::string SrvParams::*, Bytes SrvParams::*, SecretText SrvParams::*,
                 bool SrvParams::*>
        member;
};

const SrvKey kKeys[] = {
    {"USAGE", &SrvParams::usage},        {"TYPE", &SrvParams::type},
    {"ADDR", &SrvParams::addr},          {"PORT", &SrvParams::port},
    {"PATH", &SrvParams::path},          {"USER", &SrvParams::user},
    {"PASS", &SrvParams::pass},          {"CADN", &SrvParams::caDn},
    {"CADN_UTF8", &SrvParams::caDnUtf8}, {"PERIODSECONDS", &SrvParams::periodSeconds},
    {"WINAUTH", &SrvParams::winAuth},    {"TLS", &SrvParams::tls},
};

constexpr const char* kNetAllowKey = "NetAllow";
constexpr const char* kSequenceKey = "SEQUENCE";

/// Reads and writes one member below the path of a server.
struct MemberIo {
    std::string path;

    void load(const UniversalConfMgr& store, long& value) const { store.getData(path, value); }
    void load(const UniversalConfMgr& store, std::string& value) const { store.getData(path, value); }
    void load(const UniversalConfMgr& store, bool& value) const {
        long number = 0;
        if (store.getData(path, number)) value = number != 0;
    }
    void load(const UniversalConfMgr& store, Bytes& value) const {
        std::vector<char> octets;
        if (store.getData(path, octets)) value.assign(octets.begin(), octets.end());
    }
    void load(const UniversalConfMgr& store, SecretText& value) const {
        std::string hidden;
        if (store.getData(path, hidden)) value = revealPassword(hidden);
    }

    void save(UniversalConfMgr& store, long value) const { store.setData(path.c_str(), value); }
    void save(UniversalConfMgr& store, bool value) const { save(store, static_cast<long>(value)); }
    void save(UniversalConfMgr& store, const std::string& value) const {
        if (!value.empty()) store.setData(path.c_str(), value.c_str());
    }
    void save(UniversalConfMgr& store, const Bytes& value) const {
        const char* data = reinterpret_cast<const char*>(value.data());
        if (!value.empty()) store.setData(path.c_str(), data, static_cast<long>(value.size()));
    }
    void save(UniversalConfMgr& store, const SecretText& value) const { save(store, hidePassword(value)); }
};

bool isKnown(std::string_view key) {
    return equalIgnoreCase(key, kSequenceKey) ||
           std::ranges::any_of(kKeys, [key](const SrvKey& row) { return equalIgnoreCase(key, row.key); });
}

SrvParams loadServer(const UniversalConfMgr& store, const std::string& path, std::string name) {
    SrvParams server;
    server.name = std::move(name);
    for (const SrvKey& row : kKeys)
        std::visit([&](auto member) { MemberIo{path + row.key}.load(store, server.*member); }, row.member);
    for (UCMNodeType type : {UCMNodeType::Long, UCMNodeType::String, UCMNodeType::Binary}) {
        UniversalConfMgr::Iterator at;
        for (store.getIterator(at, path, type); at; ++at)
            if (!isKnown(at.getDescr())) server.others.emplace(at.getDescr(), at.getData());
    }
    return server;
}

/// "host:port".
bool isPlace(std::string_view text) {
    const size_t colon = text.rfind(':');
    if (colon == std::string_view::npos || colon == 0) return false;
    long port = 0;
    const char* end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data() + colon + 1, end, port);
    return error == std::errc() && stop == end && port > 0 && port <= 65535 &&
           text.find_first_of(" \t/@") == std::string_view::npos;
}

[[noreturn]] void refuse(const std::string& reason) {
    throw CrvApiException(ECRV_API_INV_PAR, reason);
}

}  // namespace

void SrvParams::validate() const {
    constexpr long kAllUsages =
        CRVSRV_USAGE_CERTIFICATES | CRVSRV_USAGE_CRL | CRVSRV_USAGE_OCSP | CRVSRV_USAGE_TIME_STAMP;
    if (name.empty() || !fitsListName(name)) refuse("Niepoprawna nazwa serwera");
    if (usage <= 0 || (usage & ~kAllUsages)) refuse("Niepoprawne zastosowanie serwera");
    if (type < CRVSRV_TYPE_LDAP || type > CRVSRV_TYPE_FILE) refuse("Niepoprawny typ serwera");
    const bool isFile = type == CRVSRV_TYPE_FILE;
    if (tls < CRVSRV_TLS_NONE || tls > CRVSRV_TLS_START || (isFile && tls != CRVSRV_TLS_NONE) ||
        (type == CRVSRV_TYPE_HTTP && tls == CRVSRV_TLS_START)) {
        refuse("Niepoprawny tryb TLS serwera");
    }
    if (isFile && path.empty()) refuse("Brak ścieżki pliku");
    if ((addr.empty() && !isFile) || addr.find_first_of(" \t/@") != std::string::npos)
        refuse("Niepoprawny adres serwera");
    if (port < 0 || port > 65535) refuse("Niepoprawny port serwera");
    if (periodSeconds < 0) refuse("Niepoprawny okres pobierania");
    for (const std::string* text : {&addr, &path, &user, &caDnUtf8})
        if (!fitsList(*text)) refuse("Niedozwolony znak w parametrach serwera");
}

void ServerList::setNetAllow(const std::string& list) {
    if (!fitsList(list)) refuse("Niepoprawna lista NetAllow");
    for (std::string_view rest = list; !rest.empty();) {
        const size_t end = std::min(rest.find(';'), rest.size());
        if (!isPlace(rest.substr(0, end))) refuse("Niepoprawna lista NetAllow: oczekiwano host:port;host:port");
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    netAllow_ = list;
}

ServerList::Servers::const_iterator ServerList::find(std::string_view name) const {
    return std::ranges::find_if(servers_,
                                [name](const auto& entry) { return equalIgnoreCase(entry.second.name, name); });
}

ServerList::Servers::const_iterator ServerList::demand(std::string_view name) const {
    auto found = find(name);
    if (found == servers_.end()) throw CrvApiException(ECRV_SRV_NOT_FND, "Brak serwera o zadanej nazwie");
    return found;
}

void ServerList::addSrv(const SrvParams& server) {
    server.validate();
    if (find(server.name) != servers_.end()) throw CrvApiException(ECRV_SRV_EXIST);
    servers_.emplace(servers_.empty() ? 1 : servers_.rbegin()->first + 1, server);
}

void ServerList::updateSrv(const SrvParams& server) {
    server.validate();
    servers_[demand(server.name)->first] = server;
}

void ServerList::delSrv(std::string_view name) {
    servers_.erase(demand(name));
}

void ServerList::move(std::string_view name, bool toFront) {
    auto node = servers_.extract(demand(name));
    if (!servers_.empty()) node.key() = toFront ? servers_.begin()->first - 1 : servers_.rbegin()->first + 1;
    servers_.insert(std::move(node));
}

void ServerList::moveSrvFirst(std::string_view name) {
    move(name, true);
}

void ServerList::moveSrvLast(std::string_view name) {
    move(name, false);
}

bool ServerList::findSrv(std::string_view name, SrvParams* server) const {
    auto found = find(name);
    if (found != servers_.end() && server) *server = found->second;
    return found != servers_.end();
}

std::vector<SrvParams> ServerList::getSrvListForCa(ServerUsage usage, ByteView caDn) const {
    std::vector<SrvParams> chosen;
    for (const auto& [sequence, server] : servers_)
        if ((server.usage & usage) && std::ranges::equal(server.caDn, caDn)) chosen.push_back(server);
    return chosen;
}

ServerIterator ServerList::getServerIterator(ServerUsage usage, ByteView caDn, long* count) const {
    ServerIterator iterator;
    for (const auto& [sequence, server] : servers_) {
        const bool ofCa = caDn.empty() || server.caDn.empty() || std::ranges::equal(server.caDn, caDn);
        if ((server.usage & usage) && ofCa) iterator.servers.push_back(server);
    }
    if (count) *count = static_cast<long>(iterator.servers.size());
    return iterator;
}

bool ServerList::getNextServer(ServerIterator& iterator, SrvParams& server) {
    if (iterator.next >= iterator.servers.size()) return false;
    server = iterator.servers[iterator.next++];
    return true;
}

bool ServerList::getServer(ServerUsage usage, ByteView caDn, long index, SrvParams& server) const {
    ServerIterator iterator = getServerIterator(usage, caDn);
    if (index < 0) return false;
    iterator.next = static_cast<size_t>(index);
    return getNextServer(iterator, server);
}

void ServerList::loadServers(const UniversalConfMgr& store, const std::string& prefix) {
    std::multimap<long, SrvParams> bySequence;
    UniversalConfMgr::Iterator at;
    for (store.getIterator(at, prefix + "SRV", UCMNodeType::Key); at; ++at) {
        std::string name = at.getDescr();
        const std::string path = prefix + "SRV\\" + name;
        name.pop_back();
        long sequence = std::numeric_limits<long>::max();
        store.getData(path + kSequenceKey, sequence);
        bySequence.emplace(sequence, loadServer(store, path, std::move(name)));
    }
    netAllow_.clear();
    store.getData(prefix + kNetAllowKey, netAllow_);
    servers_.clear();
    long sequence = 0;
    for (auto& [place, server] : bySequence) servers_.emplace(++sequence, std::move(server));
}

void ServerList::saveServers(UniversalConfMgr& store, const std::string& prefix) const {
    if (!netAllow_.empty()) store.setData((prefix + kNetAllowKey).c_str(), netAllow_.c_str());
    for (const auto& entry : servers_) {
        const SrvParams& server = entry.second;
        const std::string path = prefix + "SRV\\" + server.name + "\\";
        for (const auto& [key, node] : server.others) store.setNode((path + key).c_str(), node);
        for (const SrvKey& row : kKeys)
            std::visit([&](auto member) { MemberIo{path + row.key}.save(store, server.*member); }, row.member);
        store.setData((path + kSequenceKey).c_str(), entry.first);
    }
}

}  // namespace crv
