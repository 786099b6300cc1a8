// Verbs on what the record of a profile lists: extended key usages, servers, the proxy.
#include <algorithm>
#include <cstdlib>

#include "asn/asn_object_id.h"
#include "asn/x509/signed_certificate.h"
#include "crvctl/secrets.h"
#include "crvctl/verbs.h"
#include "misc/hex.h"
#include "ops/certificates.h"
#include "ops/session.h"

namespace crv::ctl {
namespace {

struct Word {
    long value;
    const char* name;
};
constexpr Word kProtocols[] = {
    {CRVSRV_TYPE_LDAP, "ldap"}, {CRVSRV_TYPE_HTTP, "http"}, {CRVSRV_TYPE_FTP, "ftp"}, {CRVSRV_TYPE_FILE, "file"}};
constexpr Word kTlsModes[] = {{CRVSRV_TLS_NONE, "no"}, {CRVSRV_TLS_ALWAYS, "yes"}, {CRVSRV_TLS_START, "starttls"}};
constexpr Word kServerUses[] = {{CRVSRV_USAGE_CERTIFICATES, "certificates"},
                                {CRVSRV_USAGE_CRL, "crl"},
                                {CRVSRV_USAGE_OCSP, "ocsp"},
                                {CRVSRV_USAGE_TIME_STAMP, "time-stamp"}};

Values usesOf(long usage) {
    Values words;
    for (const Word& use : kServerUses)
        if ((usage & use.value) != 0) words.emplace_back(use.name);
    return words;
}

long numberOf(const std::string& text) {
    return std::strtol(text.c_str(), nullptr, 10);
}

std::string authorityOf(const SrvParams& server) {
    DistinguishedName name;
    return name.readExactly(server.caDn, ASN_FLAG_CONST) ? name.rfc4514() : server.caDnUtf8;
}

void setAuthority(const std::string& file, SrvParams& server) {
    const CertPtr certificate = certsOfFile(file).front();
    if (!certificate->isCaCrt()) throw OpError(OpFault::BadValue, file);
    server.caDn.clear();
    if (!certificate->subject().writeToVector(server.caDn)) throw OpError(OpFault::BadFile, file);
    server.caDnUtf8 = certificate->subject().text();
}

/// The word for a number that a list may hold.
template <size_t N>
const char* wordFor(const Word (&words)[N], long value) {
    const auto* row = std::ranges::find(words, value, &Word::value);
    return row == std::end(words) ? "?" : row->name;
}

/// The number for a word, which the parser has checked.
template <size_t N>
long numberFor(const Word (&words)[N], const std::string& name) {
    return std::ranges::find(words, name, [](const Word& w) { return std::string(w.name); })->value;
}

Fields fieldsOf(const SrvParams& server) {
    return {{"name", server.name},           {"type", wordFor(kProtocols, server.type)},
            {"address", server.addr},        {"port", server.port},
            {"path", server.path},           {"use", usesOf(server.usage)},
            {"user", server.user},           {"period", server.periodSeconds},
            {"systemLogin", server.winAuth}, {"tls", wordFor(kTlsModes, server.tls)},
            {"ca", authorityOf(server)}};
}

/// Takes what the call names over into the server.
void apply(const Call& call, SrvParams& server) {
    const auto text = [&](const char* option, std::string& target) {
        if (const auto value = call.value(option)) target = *value;
    };
    text("address", server.addr);
    text("path", server.path);
    text("user", server.user);
    if (const auto port = call.value("port")) server.port = numberOf(*port);
    if (const auto period = call.value("period")) server.periodSeconds = numberOf(*period);
    if (const auto login = call.value("system-login")) server.winAuth = *login == "yes";
    if (call.has("any-ca")) {
        server.caDn.clear();
        server.caDnUtf8.clear();
    }
    if (const auto file = call.value("ca")) setAuthority(*file, server);
    if (const auto type = call.value("type")) server.type = numberFor(kProtocols, *type);
    if (const auto tls = call.value("tls")) server.tls = numberFor(kTlsModes, *tls);
    if (call.has("use")) {
        server.usage = 0;
        for (const std::string& use : call.options.at("use")) server.usage |= numberFor(kServerUses, use);
    }
}

void forgetServer(const Run& run, const std::string& name) {
    if (run.mode.dryRun) return;
    Session session(run.profile(), run.mode);
    DbManager& database = session.context().dbManager;
    // Numbers of imports from it are nobody's now; a database that is missing has none.
    const DbState state = database.isDbCreated();
    if (state != DbState::Missing && (state != DbState::Complete || !database.delSrv(name))) session.failDatabase();
}

}  // namespace

void usageList(Run& run) {
    const auto profile = run.profile().profile;
    std::string description;
    ASNobjectId oid;
    for (long i = 0; profile->getAcceptedExtKeyUsage(i, description, oid); ++i)
        run.out.item({{"oid", oid.text()}, {"name", description}});
}

void usageAdd(Run& run) {
    const std::string oid = run.call.operand(0);
    const char* known = CrvProfile::getExtKeyUsageDescription(oid);
    const std::string name = run.call.operands.size() > 1 ? run.call.operand(1) : known ? known : "";
    if (name.empty()) throw CallError("missing", "NAME");
    changeListed(run.place, run.profileName(), run.mode, [&](CrvProfile& profile) {
        std::string description;
        ASNobjectId there;
        for (long i = 0; profile.getAcceptedExtKeyUsage(i, description, there); ++i)
            if (there.text() == oid) throw OpError(OpFault::ObjectExists, oid);
        profile.addAcceptedExtKeyUsage(oid, name);
    });
    run.out.change("add", "usage", oid);
}

void usageRemove(Run& run) {
    const std::string oid = run.call.operand(0);
    changeListed(run.place, run.profileName(), run.mode, [&](CrvProfile& profile) {
        if (!profile.delAcceptedExtKeyUsage(oid)) throw OpError(OpFault::ObjectMissing, oid);
    });
    run.out.change("remove", "usage", oid);
}

void serverList(Run& run) {
    const auto profile = run.profile().profile;
    for (const auto& [number, server] : profile->servers()) run.out.item(fieldsOf(server));
}

void serverAdd(Run& run) {
    SrvParams server;
    server.name = run.call.operand(0);
    const bool isFile = run.call.value("type").value_or("") == "file";
    for (const char* needed : {isFile ? "path" : "address", "use"})
        if (!run.call.has(needed)) throw CallError("missing", std::string("--") + needed);
    apply(run.call, server);
    readGivenSecret(run.call, "server-password", server.pass);
    changeListed(run.place, run.profileName(), run.mode, [&](CrvProfile& profile) { profile.addSrv(server); });
    run.out.change("add", "server", server.name);
}

void serverSet(Run& run) {
    const std::string name = run.call.operand(0);
    SecretText password;  // read before the list is locked: its writer may take its time
    const bool withPassword = readGivenSecret(run.call, "server-password", password);
    changeListed(run.place, run.profileName(), run.mode, [&](CrvProfile& profile) {
        SrvParams server;
        if (!profile.findSrv(name, &server)) throw OpError(OpFault::ServerMissing, name);
        apply(run.call, server);
        if (withPassword) server.pass = password;
        profile.updateSrv(server);
    });
    run.out.change("set", "server", name);
}

void serverRemove(Run& run) {
    const std::string name = run.call.operand(0);
    if (!run.profile().profile->findSrv(name)) throw OpError(OpFault::ServerMissing, name);
    run.confirm("Remove the server?", name);
    changeListed(run.place, run.profileName(), run.mode, [&](CrvProfile& profile) { profile.delSrv(name); });
    forgetServer(run, name);
    run.out.change("remove", "server", name);
}

void serverMove(Run& run) {
    const std::string name = run.call.operand(0), place = run.call.operand(1);
    changeListed(run.place, run.profileName(), run.mode, [&](CrvProfile& profile) {
        place == "first" ? profile.moveSrvFirst(name) : profile.moveSrvLast(name);
    });
    run.out.change("move", "server", name + " -> " + place);
}

void serverAllow(Run& run) {
    const std::string places = run.call.operand(0);
    changeListed(run.place, run.profileName(), run.mode, [&](CrvProfile& profile) { profile.setNetAllow(places); });
    run.out.change("set", "net-allow", places);
}

void proxyShow(Run& run) {
    const auto profile = run.profile().profile;
    const Proxy& own = profile->ownProxy();
    run.out.field("system", profile->usesSystemProxy());
    run.out.field("address", own.addr);
    run.out.field("port", own.port);
    run.out.field("user", own.user);
    run.out.field("password", !own.password.empty());
}

void proxySet(Run& run) {
    const auto address = run.call.value("address");
    const bool system = run.call.has("system");
    if (!address && !system) throw CallError("missing", "--address, --system");
    SecretText password;
    readGivenSecret(run.call, "proxy-password", password);
    changeListed(run.place, run.profileName(), run.mode, [&](CrvProfile& profile) {
        profile.setUseProxyFromSystemSettings(system);
        if (address) {
            profile.insertProxy(*address, numberOf(run.call.value("port").value_or("8080")),
                                run.call.value("user").value_or(""), password);
        }
    });
    run.out.change("set", "proxy", address.value_or("system"));
}

void proxyClear(Run& run) {
    changeListed(run.place, run.profileName(), run.mode, [](CrvProfile& profile) {
        profile.setUseProxyFromSystemSettings(false);
        profile.deleteProxy();
    });
    run.out.change("remove", "proxy", run.profileName());
}

}  // namespace crv::ctl
