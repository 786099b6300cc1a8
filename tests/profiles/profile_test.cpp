// Records: attributes, servers, proxy, usages, saving.
#include <gmock/gmock.h>

#include <cstdlib>
#include <cstring>

#include "asn/asn_object_id.h"
#include "corvane/crverrors.h"
#include "misc/exceptions.h"
#include "profiles/crv_profile_creation_guard.h"
#include "profiles/profile_kinds.h"
#include "support/faulty_file_ops.h"
#include "support/message_of.h"
#include "support/temp_dir.h"

namespace crv::test {
namespace {

using namespace std::string_literals;
using Failure = std::pair<int, std::string>;

constexpr long kFile = CRVPROFILE_TYPE_PKCS12, kTarvo = CRVPROFILE_TYPE_TARVO, kToken = CRVPROFILE_TYPE_PKCS11,
               kMemory = CRVPROFILE_TYPE_MEMORY;

/// Code and text of the failure that an action ends in.
Failure failureOf(auto&& action) {
    try {
        action();
    } catch (const CrvApiException& error) {
        return {error.code(), error.what()};
    }
    return {};
}

int codeOf(auto&& action) {
    return failureOf(action).first;
}

std::unique_ptr<CrvProfile> named(long type, const std::string& name) {
    auto profile = CrvProfile::create(type);
    EXPECT_EQ(profile->setAttr(CRVPROFILE_ATTR_NAME, name), kAttrOk);
    EXPECT_EQ(profile->setAttr(CRVPROFILE_ATTR_DB_TYPE, "corvane"), kAttrOk);
    return profile;
}

std::unique_ptr<CrvProfile> reload(const CrvProfile& profile) {
    TempDir dir;
    profile.saveProfile(ProfileMedia::File, dir.file("list"));
    return CrvProfile::getProfileByName(ProfileMedia::File, dir.file("list"), profile.name());
}

std::string asLong(long value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

/// Sets an attribute of a fresh profile and gets it from a copy and, when the record keeps it, after a reload.
void expectAttr(long type, long id, const std::string& set, int setResult, int getResult, const std::string& get,
                bool kept = true) {
    SCOPED_TRACE("type " + std::to_string(type) + " id " + std::to_string(id) + " " + set);
    auto profile = named(type, "p");
    EXPECT_EQ(profile->setAttr(id, set), setResult);
    for (const auto& holder : {profile->clone(), kept ? reload(*profile) : profile->clone()}) {
        std::string value;
        EXPECT_EQ(holder->getAttr(id, value), getResult);
        EXPECT_EQ(value, get);
    }
}

TEST(ProfileAttrs, AreStoredAnsweredAndKeptAsTheirKindSays) {
    const std::tuple<long, long, std::string> plain[] = {{kFile, CRVPROFILE_ATTR_PKCS12_FILE, "~/a.p12"},
                                                         {kFile, CRVPROFILE_ATTR_PKCS12_FILE_PATH, "x"},
                                                         {kFile, CRVPROFILE_ATTR_ROOTS_FILE, "roots"},
                                                         {kFile, CRVPROFILE_ATTR_DB, "/db"},
                                                         {kFile, CRVPROFILE_ATTR_DB_NAME, "n"},
                                                         {kFile, CRVPROFILE_ATTR_DB_LOGIN, "l"},
                                                         {kFile, CRVPROFILE_ATTR_DB_PASS, "p"},
                                                         {kTarvo, CRVPROFILE_ATTR_T23_TYPE_TEXT, "7"},
                                                         {kTarvo, CRVPROFILE_ATTR_TRV_LIB_PATH, "lib"},
                                                         {kToken, CRVPROFILE_ATTR_PKCS11_LIBRARY, "a;b"},
                                                         {kToken, CRVPROFILE_ATTR_PKCS11_LIBRARIES, "a;b"},
                                                         {kToken, CRVPROFILE_ATTR_SKEY_ID, "\0\1"s},
                                                         {kToken, CRVPROFILE_ATTR_AUTO_EXTERN_PINS, "\0"s}};
    for (const auto& [type, id, value] : plain) expectAttr(type, id, value, kAttrOk, kAttrOk, value);
    for (const auto& [type, id, value] : {std::tuple{kFile, CRVPROFILE_ATTR_ROOTS_EMPTY_PASSWORD, 1},
                                          {kTarvo, CRVPROFILE_ATTR_T23_TYPE, 7},
                                          {kToken, CRVPROFILE_ATTR_CERT_FILTER_FIELD_TYPE, 2},
                                          {kToken, CRVPROFILE_ATTR_SKEY_USAGE_SPEC, 3}})
        expectAttr(type, id, std::to_string(value), kAttrOk, kAttrOk, asLong(value));
    const std::tuple<long, long, const char*, int, int> empty[] = {
        {kFile, CRVPROFILE_ATTR_PKCS12_FILE, "a\"b", kAttrBadArgument, kAttrNoValue},
        {kFile, CRVPROFILE_ATTR_PKCS12_FILE, "a\nb", kAttrBadArgument, kAttrNoValue},
        {kFile, CRVPROFILE_ATTR_PKCS11_LIBRARY, "lib", kAttrBadArgument, kAttrBadArgument},
        {kFile, 47, "", kAttrBadArgument, kAttrBadArgument},
        {kFile, -1, "", kAttrBadArgument, kAttrBadArgument},
        {kTarvo, CRVPROFILE_ATTR_T23_CARD_ID, "short", kAttrBadArgument, kAttrNoValue},
        {kToken, CRVPROFILE_ATTR_SKEY_ID, "", kAttrOk, kAttrNoValue}};
    for (const auto& [type, id, value, setResult, getResult] : empty)
        expectAttr(type, id, value, setResult, getResult, "");
    expectAttr(kToken, CRVPROFILE_ATTR_SKEY_TOK, std::string(33, 'x'), kAttrBadArgument, kAttrNoValue, "");
    expectAttr(kFile, CRVPROFILE_ATTR_TYPE, "5", kAttrBadArgument, kAttrOk, asLong(1));
    expectAttr(kMemory, CRVPROFILE_ATTR_TYPE_TEXT, "5", kAttrBadArgument, kAttrOk, "7");
    expectAttr(kToken, CRVPROFILE_ATTR_PKCS11_KEEP_SESSION_OPEN, "yes", kAttrBadArgument, kAttrOk, "\0"s);
    expectAttr(kTarvo, CRVPROFILE_ATTR_T23_CARD_ID, "0123456789ABCDEF", kAttrOk, kAttrOk, "0123456789ABCDEF");
    expectAttr(kTarvo, CRVPROFILE_ATTR_T23_TYPE, asLong(-9), kAttrOk, kAttrOk, asLong(-9));
    expectAttr(kToken, CRVPROFILE_ATTR_SKEY_TOK, "token", kAttrOk, kAttrOk, "token" + std::string(27, ' '));
    expectAttr(kToken, CRVPROFILE_ATTR_PKCS11_SYNC_BY_LIB, "1", kAttrOk, kAttrOk, "\1");
    expectAttr(kToken, CRVPROFILE_ATTR_IGNORE_SFT_FILE, asLong(5), kAttrOk, kAttrOk, "\1");
    expectAttr(kFile, CRVPROFILE_ATTR_IGNORE_SFT_FILE, "1", kAttrOk, kAttrOk, asLong(1), false);
    expectAttr(kFile, CRVPROFILE_ATTR_SFT_FILE_BYTES, "\0\x30"s, kAttrOk, kAttrOk, "\0\x30"s, false);
    expectAttr(kToken, CRVPROFILE_ATTR_SKEY_CERT, "der", kAttrOk, kAttrOk, "der", false);
}

TEST(ProfileAttrs, FollowTheBufferRule) {
    auto profile = named(kFile, "abc");
    char buf[16];
    long len = -77;
    EXPECT_EQ(profile->getAttr(CRVPROFILE_ATTR_NAME, nullptr, &len), kAttrOk);
    EXPECT_EQ(len, 3);
    const struct {
        long id, len;
        int result;
        long after;
    } cases[] = {{CRVPROFILE_ATTR_NAME, 2, kAttrTooShort, 3},
                 {CRVPROFILE_ATTR_NAME, 3, kAttrOk, 3},
                 {CRVPROFILE_ATTR_NAME, -1, kAttrBadArgument, -1},
                 {CRVPROFILE_ATTR_TYPE, 7, kAttrTooShort, 8},
                 {CRVPROFILE_ATTR_TYPE, 0, kAttrTooShort, 8},
                 {CRVPROFILE_ATTR_TYPE, 8, kAttrOk, 8},
                 {CRVPROFILE_ATTR_TYPE, 999, kAttrOk, 8},
                 {CRVPROFILE_ATTR_ROOTS_EMPTY_PASSWORD, 999, kAttrOk, 8},
                 {CRVPROFILE_ATTR_TYPE, -5, kAttrOk, 8},
                 {CRVPROFILE_ATTR_ROOTS_EMPTY_PASSWORD, -5, kAttrOk, 8},
                 {CRVPROFILE_ATTR_ROOTS_EMPTY_PASSWORD, 7, kAttrTooShort, 8},
                 {CRVPROFILE_ATTR_IGNORE_SFT_FILE, -1, kAttrBadArgument, -1},
                 {CRVPROFILE_ATTR_IGNORE_SFT_FILE, 7, kAttrTooShort, 8},
                 {CRVPROFILE_ATTR_IGNORE_SFT_FILE, 16, kAttrOk, 8}};
    for (const auto& c : cases) {
        std::memset(buf, 'x', sizeof buf);
        len = c.len;
        EXPECT_EQ(profile->getAttr(c.id, buf, &len), c.result) << c.id << ' ' << c.len;
        EXPECT_EQ(len, c.after) << c.id << ' ' << c.len;
        EXPECT_TRUE(c.len != 16 || std::string(buf, 16) == std::string(16, 0));
        EXPECT_TRUE(c.len != 999 || std::string(buf + 8, 8) == std::string(8, 'x')) << "an open length is no size";
    }
    for (long id : {CRVPROFILE_ATTR_NAME, CRVPROFILE_ATTR_TYPE, CRVPROFILE_ATTR_PKCS12_FILE})
        EXPECT_EQ(profile->getAttr(id, buf, nullptr), kAttrBadArgument) << id;
    EXPECT_EQ(profile->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, "x", -1), kAttrBadArgument);
    EXPECT_EQ(profile->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, nullptr, 1), kAttrBadArgument);
    for (const char* bad : {"a\\b", "a[b"})
        EXPECT_EQ(profile->setAttr(CRVPROFILE_ATTR_NAME, bad), kAttrBadArgument) << bad;
}

TEST(ProfileAttrs, TellDefaultFromNoValue) {
    for (auto [type, id, size] : {std::tuple{kToken, CRVPROFILE_ATTR_SKEY_TOK, 32u},
                                  {kToken, CRVPROFILE_ATTR_DKEY_TOK, 32u},
                                  {kToken, CRVPROFILE_ATTR_SKEY_ID, 4u},
                                  {kToken, CRVPROFILE_ATTR_DKEY_ID, 4u},
                                  {kTarvo, CRVPROFILE_ATTR_T23_CARD_ID, 16u}}) {
        SCOPED_TRACE(id);
        auto profile = named(type, "p");
        std::string value;
        EXPECT_EQ(profile->getAttr(id, value), kAttrNoValue);
        EXPECT_EQ(profile->setAttr(id, nullptr, 0), kAttrOk);
        EXPECT_EQ(profile->getAttr(id, value), kAttrDefault);
        EXPECT_EQ(reload(*profile)->getAttr(id, value), kAttrDefault);
        EXPECT_EQ(profile->setAttr(id, std::string(size, 'k')), kAttrOk);
        EXPECT_EQ(reload(*profile)->getAttr(id, value), kAttrOk);
        EXPECT_EQ(profile->setAttr(id, ""), kAttrOk);
        EXPECT_EQ(reload(*profile)->getAttr(id, value), kAttrNoValue);
    }
}

TEST(ProfileAttrs, KnowTheDatabasesAndTheSettingsOfAProvider) {
    auto profile = CrvProfile::create(kFile);
    std::string value;
    EXPECT_EQ(profile->getAttr(CRVPROFILE_ATTR_DB_TYPE, value), kAttrNoValue);
    const auto [code, what] = failureOf([&] { profile->setAttr(CRVPROFILE_ATTR_DB_TYPE, "oracle"); });
    EXPECT_EQ(code, ECRV_API_INV_PAR);
    EXPECT_THAT(what, testing::HasSubstr("dbType. Dopuszczalne wartosci to: corvane"));
    EXPECT_FALSE(CrvProfile::create(2) || CrvProfile::create(0));
    CspProfile csp;
    EXPECT_EQ(csp.setAttr(CRVPROFILE_ATTR_CSP_PROV_TYPE_TEXT, "24"), kAttrOk);
    long number = 0;
    EXPECT_EQ(csp.clone()->getAttr(CRVPROFILE_ATTR_CSP_PROV_TYPE, number), kAttrOk);
    EXPECT_EQ(number, 24);
    EXPECT_THAT(Pkcs11Profile::splitLibs(";a;;b c;"), testing::ElementsAre("a", "b c"));
}

SrvParams server(const std::string& name) {
    SrvParams params;
    params.name = name;
    params.usage = CRVSRV_USAGE_CRL;
    params.addr = "host." + name;
    return params;
}

std::string namesOf(const CrvProfile& profile, long usage, ByteView ca = {}) {
    std::string names;
    ServerIterator all = profile.getServerIterator(static_cast<ServerUsage>(usage), ca);
    for (SrvParams next; CrvProfile::getNextServer(all, next);) names += next.name;
    return names;
}

TEST(ProfileServers, KeepTheirOrderTheirSecretsAndUnknownKeys) {
    auto profile = named(kFile, "p");
    for (const char* name : {"A", "B", "C"}) profile->addSrv(server(name));
    SrvParams full = server("D"), found;
    const auto fields = [](auto& s) {
        return std::tie(s.usage, s.type, s.addr, s.port, s.path, s.user, s.caDn, s.caDnUtf8, s.periodSeconds,
                        s.winAuth);
    };
    fields(full) = std::make_tuple(CRVSRV_USAGE_OCSP | CRVSRV_USAGE_CRL, CRVSRV_TYPE_HTTP, "host.D", 8080,
                                   "/ocsp?x=1#y", "u", Bytes{0x30, 0x00}, "CN=Ł", 60, true);
    full.pass = SecretText("tajne\"\nhasło");
    full.others["NEW\\KEY"] = {5L};
    profile->addSrv(full);
    profile->moveSrvFirst("c");
    profile->moveSrvLast("a");
    auto back = reload(*profile);
    EXPECT_EQ(namesOf(*back, CRVSRV_USAGE_CRL), "CBDA");
    EXPECT_EQ(namesOf(*back, CRVSRV_USAGE_OCSP), "D");
    EXPECT_EQ(namesOf(*back, CRVSRV_USAGE_CRL, Bytes{0x30, 0x01, 0x05}), "CBA");
    EXPECT_EQ(back->getSrvListForCa(CRVSRV_USAGE_CRL, full.caDn).size(), 1u);
    ASSERT_TRUE(back->findSrv("d", &found));
    EXPECT_EQ(fields(found), fields(full));
    EXPECT_TRUE(found.pass == full.pass && found.others == full.others);
    EXPECT_TRUE(back->getServer(CRVSRV_USAGE_CRL, {}, 3, found));
    EXPECT_EQ(found.name, "A");
    EXPECT_FALSE(back->getServer(CRVSRV_USAGE_CRL, {}, 4, found));
}

TEST(ProfileServers, RefuseDoublesMissingOnesAndBadValues) {
    auto profile = named(kFile, "p");
    profile->addSrv(server("A"));
    EXPECT_EQ(codeOf([&] { profile->addSrv(server("a")); }), ECRV_SRV_EXIST);
    EXPECT_EQ(failureOf([&] { profile->delSrv("B"); }), Failure(ECRV_SRV_NOT_FND, "Brak serwera o zadanej nazwie"));
    EXPECT_EQ(codeOf([&] { profile->updateSrv(server("B")); }), ECRV_SRV_NOT_FND);
    EXPECT_EQ(codeOf([&] { profile->moveSrvFirst("B"); }), ECRV_SRV_NOT_FND);
    const std::function<void(SrvParams&)> faults[] = {
        [](SrvParams& s) { s.name = ""; },          [](SrvParams& s) { s.name = "a\\b"; },
        [](SrvParams& s) { s.usage = 16; },         [](SrvParams& s) { s.usage = 0; },
        [](SrvParams& s) { s.type = 4; },           [](SrvParams& s) { s.port = 65536; },
        [](SrvParams& s) { s.periodSeconds = -1; }, [](SrvParams& s) { s.addr = ""; },
        [](SrvParams& s) { s.addr = "a/b"; },       [](SrvParams& s) { s.path = "\""; },
        [](SrvParams& s) { s.user = "\n"; }};
    for (const auto& spoil : faults) {
        SrvParams bad = server("X");
        spoil(bad);
        EXPECT_EQ(codeOf([&] { profile->addSrv(bad); }), ECRV_API_INV_PAR) << &spoil - faults;
    }
    profile->delSrv("a");
    EXPECT_TRUE(profile->servers().empty());
}

std::string shown(const Proxy& proxy) {
    return proxy.user + ":" + std::string(proxy.password.view()) + "@" + proxy.addr + ":" + std::to_string(proxy.port);
}

TEST(ProfileProxy, IsTheOwnOneOrTheSystems) {
    auto profile = named(kFile, "p");
    Proxy proxy;
    EXPECT_FALSE(profile->getProxy(proxy));
    profile->insertProxy("proxy.pl", 3128, "jan", SecretText("hasło"));
    auto back = reload(*profile);
    ASSERT_TRUE(back->getProxyForUrl("HTTP://u:p@crl.pl:80/x", proxy));
    EXPECT_EQ(shown(proxy), "jan:hasło@proxy.pl:3128");
    for (const char* direct :
         {"ldap://a.pl", "http://localhost/", "https://127.0.0.1:8443", "http://[::1]/x", "crl.pl"})
        EXPECT_FALSE(back->getProxyForUrl(direct, proxy)) << direct;
    setenv("http_proxy", "http://m%65:s%40%zzcret%4@[fe80::1]:81/", 1);
    setenv("no_proxy", " .gov.pl, host.pl", 1);
    back->setUseProxyFromSystemSettings(true);
    auto system = reload(*back);
    ASSERT_TRUE(system->getProxy(proxy));
    EXPECT_EQ(shown(proxy), "me:s@%zzcret%4@fe80::1:81");
    for (const auto& [url, used] :
         {std::pair{"http://crl.GOV.pl/a", false}, {"http://host.pl", false}, {"http://xhost.pl", true}})
        EXPECT_EQ(system->useProxyForSpecifiedUrl(url), used) << url;
    system->setUseProxyFromSystemSettings(false);
    ASSERT_TRUE(system->getProxy(proxy));
    EXPECT_EQ(proxy.addr, "proxy.pl");
    for (const char* bad : {"http://h:x", "h:70000", "h:0", ""}) EXPECT_FALSE(parseProxyUrl(bad).defined()) << bad;
    for (const auto& [addr, port, user] : {std::tuple{"", 1, ""}, {"a", 0, ""}, {"a", 1, "\""}})
        EXPECT_EQ(codeOf([&, a = addr, p = port, u = user] { profile->insertProxy(a, p, u, {}); }), ECRV_API_INV_PAR);
    profile->deleteProxy();
    EXPECT_FALSE(reload(*profile)->getProxy(proxy));
}

TEST(ProfileUsages, RefuseWhatCannotBeOne) {
    auto profile = named(kFile, "p");
    profile->addAcceptedExtKeyUsage("1.3.6.1.5.5.7.3.4",
                                    AcceptedUsages::getExtKeyUsageDescription("1.3.6.1.5.5.7.3.4"));
    profile->addAcceptedExtKeyUsage("1.2.3", "moje");
    const std::tuple<const char*, const char*, const char*> cases[] = {
        {"1", "x", "Niepoprawny identyfikator rozszerzenia"},
        {"1.2.4", "", "Brak nazwy rozszerzenia"},
        {"1.2.4", "moje", "Rozszerzenie extKeyUsage o zadanej nazwie i różnej wartości już istnieje"},
        {"1.2.4", "a\"b", "Niedozwolony znak w nazwie rozszerzenia"}};
    for (const auto& c : cases) {
        EXPECT_EQ(failureOf([&] { profile->addAcceptedExtKeyUsage(std::get<0>(c), std::get<1>(c)); }),
                  Failure(ECRV_INV_REG, std::get<2>(c)));
    }
    profile->addAcceptedExtKeyUsage("1.2.3", "nowe");
    auto back = reload(*profile);
    ASSERT_EQ(back->getAcceptedExtKeyUsagesCount(), 2);
    std::string description;
    ASNobjectId oid;
    ASSERT_TRUE(back->getAcceptedExtKeyUsage(0, description, oid));
    EXPECT_EQ(oid.text() + description, "1.2.3nowe");
    EXPECT_FALSE(back->getAcceptedExtKeyUsage(2, description, oid));
    EXPECT_TRUE(back->delAcceptedExtKeyUsage("1.2.3"));
    EXPECT_FALSE(back->delAcceptedExtKeyUsage("1.2.3"));
}

struct ProfileRecord : testing::Test {
    TempDir dir;
    std::string list = dir.file("l");
};

TEST_F(ProfileRecord, RefusesDamagedEntriesWithTheirText) {
    const std::pair<const char*, const char*> cases[] = {
        {R"(\P\extKeyUsages\1.x [s] = a)", "Niepoprawna wartość rozszerzonego zastosowania klucza w rejestrze"},
        {R"(\P\extKeyUsages\1.2.3 [l] = 1)", "Błąd odczytu akceptowanych rozszerzonych zastosowań klucza z rejestru"},
        {R"(\P\PROXY\HTTP\PASS [s] = xyz)", "Niepoprawnie zapisane hasło"},
        {R"(\P\SRV\A\PASS [s] = QUJDREVGR0hJSktMTU5PUFFSU1RVVldYWVphYmNkZWY=)", "Niepoprawnie zapisane hasło"}};
    for (const auto& [line, text] : cases) {
        writeFile(list, std::string("\\P\\Type[l]=1\n") + line + "\n");
        EXPECT_EQ(failureOf([&] { CrvProfile::getProfileByName(ProfileMedia::File, list, "p"); }),
                  Failure(ECRV_INV_REG, text))
            << line;
    }
}

TEST_F(ProfileRecord, ReplacesOnlyItsOwnSubtree) {
    named(kToken, "PA")->saveProfile(ProfileMedia::File, list);
    auto p = named(kFile, "p");
    for (const char* value : {"old", ""}) {
        p->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, value);
        p->saveProfile(ProfileMedia::File, list);
    }
    UniversalConfMgr store;
    store.loadFromFile(list);
    EXPECT_TRUE(store.doesPathExist("\\PA\\Type") && !store.doesPathExist("\\P\\Pkcs12File"));
    std::string text;
    ASSERT_TRUE(store.getData("\\P\\LastProfileUpdate", text));
    EXPECT_THAT(text, testing::MatchesRegex("20[0-9]{12}"));
    auto without = CrvProfile::create(kFile);
    EXPECT_EQ(codeOf([&] { without->saveProfile(ProfileMedia::File, list); }), ECRV_NO_PROFILE_NAME);
    without->setAttr(CRVPROFILE_ATTR_NAME, "x");
    EXPECT_EQ(messageOf([&] { without->saveProfile(ProfileMedia::File, list); }), "Parametr: dbtype nie istnieje");
    EXPECT_EQ(codeOf([&] { CrvProfile::removeProfile(ProfileMedia::File, list, "PA\\DB"); }), ECRV_API_INV_PAR);
    for (const char* name : {"pa", "none"}) CrvProfile::removeProfile(ProfileMedia::File, list, name);
    store.loadFromFile(list);
    EXPECT_TRUE(store.doesPathExist("\\P") && !store.doesPathExist("\\PA"));
    CrvProfile::getProfileByName(ProfileMedia::File, list, "p")->getDefaultDbInstDir(text);
    EXPECT_EQ(text, dir.file("db/"));
}

TEST_F(ProfileRecord, KeepsKeysOfOthersUnlessItsKindChanges) {
    for (const auto& [type, kept] : {std::pair(kFile, true), {kToken, false}}) {
        writeFile(list, R"(\P\Type [l] = 1
\P\Pkcs12File [s] = old
\P\DBpath [s] = theirs
\P\New\Deep [l] = 7
)");
        named(type, "p")->saveProfile(ProfileMedia::File, list);
        UniversalConfMgr store;
        store.loadFromFile(list);
        std::string text;
        long number = 0;
        EXPECT_EQ(store.getData("\\P\\DBpath", text) && store.getData("\\P\\New\\Deep", number), kept);
        EXPECT_EQ(text + std::to_string(number), kept ? "theirs7" : "0");
        EXPECT_FALSE(store.doesPathExist("\\P\\Pkcs12File"));
    }
}

TEST_F(ProfileRecord, GoesBackToTheListWhenASaveFails) {
    auto profile = named(kFile, "Ala");
    profile->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, "old");
    profile->saveProfile(ProfileMedia::File, list);
    const std::string before = readFile(list);
    profile->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, "new");
    {
        FaultyFileOps full;
        full.changesLeft = 0;
        ScopedFileOps scope(full);
        EXPECT_THROW(profile->saveProfileWithRollbackIfError(ProfileMedia::File, list), StoreError);
    }
    std::string value;
    EXPECT_EQ(profile->getAttr(CRVPROFILE_ATTR_PKCS12_FILE, value), kAttrOk);
    EXPECT_EQ(value, "old");
    profile->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, std::string(1100, 'x'));
    EXPECT_EQ(codeOf([&] { profile->saveProfileWithRollbackIfError(ProfileMedia::File, list); }), ECRV_API_INV_PAR);
    EXPECT_EQ(readFile(list), before);
}

TEST_F(ProfileRecord, ChangesKeepWhatAnotherProgramSavedMeanwhile) {
    auto profile = named(kFile, "Ala");
    profile->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, "used");
    profile->saveProfile(ProfileMedia::File, list);
    const auto other = CrvProfile::getProfileByName(ProfileMedia::File, list, "Ala");
    other->addAcceptedExtKeyUsage("1.2.3", "cudze");
    other->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, "moved");
    other->saveProfile(ProfileMedia::File, list);
    const auto add = [](CrvProfile& target) { target.addAcceptedExtKeyUsage("1.2.4", "moje"); };
    profile->changeAndSave(ProfileMedia::File, list, add);
    std::string value;
    profile->getAttr(CRVPROFILE_ATTR_PKCS12_FILE, value);
    EXPECT_EQ(value, "used") << "an open profile does not change its files";
    const auto saved = CrvProfile::getProfileByName(ProfileMedia::File, list, "Ala");
    saved->getAttr(CRVPROFILE_ATTR_PKCS12_FILE, value);
    EXPECT_EQ(value, "moved");
    for (const CrvProfile* record : {profile.get(), saved.get()}) EXPECT_EQ(record->getAcceptedExtKeyUsagesCount(), 2);
}

TEST(ProfileGuard, TakesAwayWhatAnUnfinishedCreationMade) {
    for (const bool completed : {true, false}) {
        TempDir dir;
        {
            CrvProfileCreationGuard guard;
            std::filesystem::create_directory(dir.path() / "db");
            for (const char* name : {"db/a", "k.p12", "roots"}) writeFile(dir.file(name), "x");
            guard.setDBCreated(dir.file("db"));
            guard.addDBFileCreated(dir.file("db/a"));
            guard.setPkcs12FileCreated(dir.file("k.p12"));
            guard.setRootsFileCreated(dir.file("roots"));
            guard.setRootsRegCreated("HKCU");
            if (completed) guard.setCreationCompleted();
        }
        EXPECT_EQ(std::filesystem::exists(dir.path() / "db/a"), completed);
        EXPECT_EQ(std::filesystem::is_empty(dir.path()), !completed);
    }
}

}  // namespace
}  // namespace crv::test
