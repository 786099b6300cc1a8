// Records: attributes, servers, proxy, usages, saving.
#include <gmock/gmock.h>
#include <sys/stat.h>

#include <cstdlib>
#include <cstring>

#include "asn/asn_object_id.h"
#include "corvane/crverrors.h"
#include "misc/exceptions.h"
#include "misc/file_ops.h"
#include "profiles/crv_profile_creation_guard.h"
#include "profiles/profile_kinds.h"
#include "support/temp_dir.h"

namespace crv {
namespace {

using test::TempDir;
using testing::HasSubstr;

/// Code of the failure that an action ends in, its text in what.
int codeOf(auto&& action, std::string* what = nullptr) {
    try {
        action();
    } catch (const CrvApiException& error) {
        if (what) *what = error.what();
        return error.code();
    }
    return 0;
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

const std::string kLabel = "token" + std::string(27, ' ');

struct AttrCase {
    long type, id;
    std::string set;
    int setResult;
    int getResult;
    std::string get;
    bool kept = true;
};

std::string asLong(long value) {
    return {reinterpret_cast<const char*>(&value), sizeof value};
}

const AttrCase kAttrs[] = {
    {1, 9, "~/a.p12", 0, 0, "~/a.p12"},
    {1, 30, "x", 0, 0, "x"},
    {1, 28, "1", 0, 0, asLong(1), false},
    {1, 46, std::string("\0\x30", 2), 0, 0, std::string("\0\x30", 2), false},
    {1, 9, "a\"b", 33, 38, ""},
    {1, 9, "a\nb", 33, 38, ""},
    {1, 14, "roots", 0, 0, "roots"},
    {1, 37, "1", 0, 0, asLong(1)},
    {1, 1, "5", 33, 0, asLong(1)},
    {7, 23, "5", 33, 0, "7"},
    {1, 2, "/db", 0, 0, "/db"},
    {1, 18, "n", 0, 0, "n"},
    {1, 19, "l", 0, 0, "l"},
    {1, 20, "p", 0, 0, "p"},
    {1, 3, "lib", 33, 33, ""},
    {1, 47, "", 33, 33, ""},
    {1, -1, "", 33, 33, ""},
    {3, 10, std::string("0123456789ABCDEF"), 0, 0, "0123456789ABCDEF"},
    {3, 10, "short", 33, 38, ""},
    {3, 13, "7", 0, 0, asLong(7)},
    {3, 26, "7", 0, 0, "7"},
    {3, 13, asLong(-9), 0, 0, asLong(-9)},
    {3, 16, "lib", 0, 0, "lib"},
    {5, 3, "a;b", 0, 0, "a;b"},
    {5, 45, "a;b", 0, 0, "a;b"},
    {5, 5, "token", 0, 0, kLabel},
    {5, 5, std::string(33, 'x'), 33, 38, ""},
    {5, 7, std::string("\0\1", 2), 0, 0, std::string("\0\1", 2)},
    {5, 7, "", 0, 38, ""},
    {5, 27, "1", 0, 0, "\1"},
    {5, 28, asLong(5), 0, 0, "\1"},
    {5, 29, std::string(1, '\0'), 0, 0, std::string(1, '\0')},
    {5, 32, "yes", 33, 0, std::string(1, '\0')},
    {5, 36, "2", 0, 0, asLong(2)},
    {5, 34, "der", 0, 0, "der", false},
    {5, 43, "3", 0, 0, asLong(3)},
};

TEST(ProfileAttrs, AreStoredAnsweredAndKeptAsTheirKindSays) {
    for (const AttrCase& c : kAttrs) {
        SCOPED_TRACE("type " + std::to_string(c.type) + " id " + std::to_string(c.id));
        auto profile = named(c.type, "p");
        EXPECT_EQ(profile->setAttr(c.id, c.set), c.setResult);
        std::string value;
        EXPECT_EQ(profile->getAttr(c.id, value), c.getResult);
        EXPECT_EQ(value, c.get);
        if (!c.kept) continue;
        EXPECT_EQ(reload(*profile)->getAttr(c.id, value), c.getResult);
        EXPECT_EQ(value, c.get);
    }
}

TEST(ProfileAttrs, FollowTheBufferRule) {
    auto profile = named(1, "abc");
    char buf[16];
    long len = -77;
    EXPECT_EQ(profile->getAttr(0, nullptr, &len), 0);
    EXPECT_EQ(len, 3);
    const struct {
        long id, len;
        int result;
        long after;
    } cases[] = {{0, 2, 34, 3}, {0, 3, 0, 3},   {0, -1, 33, -1}, {1, 7, 34, 8},    {1, 0, 34, 8},  {1, 8, 0, 8},
                 {1, -5, 0, 8}, {37, -5, 0, 8}, {37, 7, 34, 8},  {28, -1, 33, -1}, {28, 7, 34, 8}, {28, 16, 0, 8}};
    for (const auto& c : cases) {
        std::memset(buf, 'x', sizeof buf);
        len = c.len;
        EXPECT_EQ(profile->getAttr(c.id, buf, &len), c.result) << c.id << ' ' << c.len;
        EXPECT_EQ(len, c.after) << c.id << ' ' << c.len;
        EXPECT_TRUE(c.len != 16 || std::string(buf, 16) == std::string(16, 0));
    }
    EXPECT_EQ(profile->getAttr(0, buf, nullptr), 33);
    EXPECT_EQ(profile->getAttr(1, buf, nullptr), 33);
    EXPECT_EQ(profile->getAttr(9, buf, nullptr), 33);
    EXPECT_EQ(profile->setAttr(9, "x", -1), 33);
    EXPECT_EQ(profile->setAttr(9, nullptr, 1), 33);
    EXPECT_EQ(profile->setAttr(0, "a\\b"), 33);
    EXPECT_EQ(profile->setAttr(0, "a[b"), 33);
}

TEST(ProfileAttrs, TellDefaultFromNoValue) {
    for (auto [type, id, size] : {std::tuple{5L, 5L, 32}, {5L, 6L, 32}, {5L, 7L, 4}, {5L, 8L, 4}, {3L, 10L, 16}}) {
        SCOPED_TRACE(id);
        auto profile = named(type, "p");
        std::string value;
        EXPECT_EQ(profile->getAttr(id, value), kAttrNoValue);
        EXPECT_EQ(profile->setAttr(id, nullptr, 0), 0);
        EXPECT_EQ(profile->getAttr(id, value), kAttrDefault);
        EXPECT_EQ(reload(*profile)->getAttr(id, value), kAttrDefault);
        EXPECT_EQ(profile->setAttr(id, std::string(static_cast<size_t>(size), 'k')), 0);
        EXPECT_EQ(reload(*profile)->getAttr(id, value), 0);
        EXPECT_EQ(profile->setAttr(id, ""), 0);
        EXPECT_EQ(reload(*profile)->getAttr(id, value), kAttrNoValue);
    }
}

TEST(ProfileAttrs, KnowTheDatabasesAndTheSettingsOfAProvider) {
    auto profile = CrvProfile::create(1);
    std::string what, value;
    EXPECT_EQ(profile->getAttr(17, value), kAttrNoValue);
    EXPECT_EQ(codeOf([&] { profile->setAttr(17, "oracle"); }, &what), ECRV_API_INV_PAR);
    EXPECT_THAT(what, HasSubstr("dbType. Dopuszczalne wartosci to: corvane"));
    EXPECT_FALSE(CrvProfile::create(2));
    EXPECT_FALSE(CrvProfile::create(0));
    CspProfile csp;
    for (auto [id, text] : {std::pair{38L, "provider"}, {39L, "container"}, {42L, "24"}, {33L, "1"}}) {
        EXPECT_EQ(csp.setAttr(id, text), 0);
        EXPECT_EQ(csp.getAttr(id, value), 0);
        EXPECT_EQ(value, text);
    }
    long number = 0;
    EXPECT_EQ(csp.clone()->getAttr(40, number), 0);
    EXPECT_EQ(number, 24);
    EXPECT_THAT(Pkcs11Profile::splitLibs(";a;;b c;"), testing::ElementsAre("a", "b c"));
}

SrvParams server(const std::string& name, long usage = CRVSRV_USAGE_CRL) {
    SrvParams params;
    params.name = name;
    params.usage = usage;
    params.addr = "host." + name;
    return params;
}

std::vector<std::string> namesOf(const CrvProfile& profile, long usage, ByteView ca = {}) {
    std::vector<std::string> names;
    ServerIterator all = profile.getServerIterator(static_cast<ServerUsage>(usage), ca);
    for (SrvParams next; CrvProfile::getNextServer(all, next);) names.push_back(next.name);
    return names;
}

TEST(ProfileServers, KeepTheirOrderTheirSecretsAndUnknownKeys) {
    auto profile = named(1, "p");
    for (const char* name : {"A", "B", "C"}) profile->addSrv(server(name));
    SrvParams full = server("D", CRVSRV_USAGE_OCSP | CRVSRV_USAGE_CRL);
    full.type = CRVSRV_TYPE_HTTP;
    full.port = 8080;
    full.path = "/ocsp?x=1#y";
    full.user = "u";
    full.pass = SecretText("tajne\"\nhasło");
    full.caDn = {0x30, 0x00};
    full.caDnUtf8 = "CN=Ł";
    full.periodSeconds = 60;
    full.winAuth = true;
    full.others["NEW\\KEY"] = {5L};
    profile->addSrv(full);
    profile->moveSrvFirst("c");
    profile->moveSrvLast("a");
    auto back = reload(*profile);
    EXPECT_THAT(namesOf(*back, CRVSRV_USAGE_CRL), testing::ElementsAre("C", "B", "D", "A"));
    EXPECT_THAT(namesOf(*back, CRVSRV_USAGE_OCSP), testing::ElementsAre("D"));
    const Bytes other = {0x30, 0x01, 0x05};
    EXPECT_THAT(namesOf(*back, CRVSRV_USAGE_CRL, other), testing::ElementsAre("C", "B", "A"));
    EXPECT_EQ(back->getSrvListForCa(CRVSRV_USAGE_CRL, full.caDn).size(), 1u);
    SrvParams found;
    ASSERT_TRUE(back->findSrv("d", &found));
    EXPECT_EQ(std::tie(found.usage, found.type, found.addr, found.port, found.path, found.user, found.caDn,
                       found.caDnUtf8, found.periodSeconds, found.winAuth, found.others),
              std::tie(full.usage, full.type, full.addr, full.port, full.path, full.user, full.caDn, full.caDnUtf8,
                       full.periodSeconds, full.winAuth, full.others));
    EXPECT_TRUE(found.pass == full.pass);
    EXPECT_TRUE(back->getServer(CRVSRV_USAGE_CRL, {}, 3, found));
    EXPECT_EQ(found.name, "A");
    EXPECT_FALSE(back->getServer(CRVSRV_USAGE_CRL, {}, 4, found));
}

TEST(ProfileServers, RefuseDoublesMissingOnesAndBadValues) {
    auto profile = named(1, "p");
    profile->addSrv(server("A"));
    std::string what;
    EXPECT_EQ(codeOf([&] { profile->addSrv(server("a")); }), ECRV_SRV_EXIST);
    EXPECT_EQ(codeOf([&] { profile->delSrv("B"); }, &what), ECRV_SRV_NOT_FND);
    EXPECT_EQ(what, "Brak serwera o zadanej nazwie");
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
        EXPECT_EQ(codeOf([&] { profile->addSrv(bad); }), ECRV_API_INV_PAR);
    }
    profile->delSrv("a");
    EXPECT_TRUE(profile->servers().empty());
}

TEST(ProfileProxy, IsTheOwnOneOrTheSystems) {
    auto profile = named(1, "p");
    Proxy proxy;
    EXPECT_FALSE(profile->getProxy(proxy));
    profile->insertProxy("proxy.pl", 3128, "jan", SecretText("hasło"));
    auto back = reload(*profile);
    ASSERT_TRUE(back->getProxyForUrl("HTTP://u:p@crl.pl:80/x", proxy));
    EXPECT_EQ(proxy.addr, "proxy.pl");
    EXPECT_EQ(proxy.port, 3128);
    EXPECT_EQ(proxy.user, "jan");
    EXPECT_EQ(proxy.password.view(), "hasło");
    for (const char* direct :
         {"ldap://a.pl", "http://localhost/", "https://127.0.0.1:8443", "http://[::1]/x", "crl.pl"})
        EXPECT_FALSE(back->getProxyForUrl(direct, proxy)) << direct;
    setenv("http_proxy", "http://me:secret@[fe80::1]:81/", 1);
    setenv("no_proxy", " .gov.pl, host.pl", 1);
    back->setUseProxyFromSystemSettings(true);
    auto system = reload(*back);
    ASSERT_TRUE(system->getProxy(proxy));
    EXPECT_EQ(proxy.addr, "fe80::1");
    EXPECT_EQ(proxy.port, 81);
    EXPECT_EQ(proxy.password.view(), "secret");
    EXPECT_FALSE(system->useProxyForSpecifiedUrl("http://crl.GOV.pl/a"));
    EXPECT_FALSE(system->useProxyForSpecifiedUrl("http://host.pl"));
    EXPECT_TRUE(system->useProxyForSpecifiedUrl("http://xhost.pl"));
    system->setUseProxyFromSystemSettings(false);
    ASSERT_TRUE(system->getProxy(proxy));
    EXPECT_EQ(proxy.addr, "proxy.pl");
    for (const char* bad : {"http://h:x", "h:70000", "h:0", ""}) EXPECT_FALSE(parseProxyUrl(bad).defined()) << bad;
    EXPECT_EQ(codeOf([&] { profile->insertProxy("", 1, "", {}); }), ECRV_API_INV_PAR);
    EXPECT_EQ(codeOf([&] { profile->insertProxy("a", 0, "", {}); }), ECRV_API_INV_PAR);
    EXPECT_EQ(codeOf([&] { profile->insertProxy("a", 1, "\"", {}); }), ECRV_API_INV_PAR);
    profile->deleteProxy();
    EXPECT_FALSE(reload(*profile)->getProxy(proxy));
}

TEST(ProfileUsages, RefuseWhatCannotBeOne) {
    auto profile = named(1, "p");
    profile->addAcceptedExtKeyUsage("1.3.6.1.5.5.7.3.4",
                                    AcceptedUsages::getExtKeyUsageDescription("1.3.6.1.5.5.7.3.4"));
    profile->addAcceptedExtKeyUsage("1.2.3", "moje");
    const std::pair<std::pair<const char*, const char*>, const char*> cases[] = {
        {{"1", "x"}, "Niepoprawny identyfikator rozszerzenia"},
        {{"1.2.4", ""}, "Brak nazwy rozszerzenia"},
        {{"1.2.4", "moje"}, "Rozszerzenie extKeyUsage o zadanej nazwie i różnej wartości już istnieje"},
        {{"1.2.4", "a\"b"}, "Niedozwolony znak w nazwie rozszerzenia"}};
    for (const auto& [usage, text] : cases) {
        std::string what;
        EXPECT_EQ(codeOf([&, u = usage] { profile->addAcceptedExtKeyUsage(u.first, u.second); }, &what), ECRV_INV_REG);
        EXPECT_EQ(what, text);
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

TEST(ProfileRecord, RefusesDamagedEntriesWithTheirText) {
    TempDir dir;
    const std::pair<const char*, const char*> cases[] = {
        {"\\P\\extKeyUsages\\1.x [s] = a", "Niepoprawna wartość rozszerzonego zastosowania klucza w rejestrze"},
        {"\\P\\extKeyUsages\\1.2.3 [l] = 1", "Błąd odczytu akceptowanych rozszerzonych zastosowań klucza z rejestru"},
        {"\\P\\PROXY\\HTTP\\PASS [s] = xyz", "Niepoprawnie zapisane hasło"},
        {"\\P\\SRV\\A\\PASS [s] = QUJDREVGR0hJSktMTU5PUFFSU1RVVldYWVphYmNkZWY=", "Niepoprawnie zapisane hasło"}};
    for (const auto& [line, text] : cases) {
        test::writeFile(dir.file("l"), std::string("\\P\\Type[l]=1\n") + line + "\n");
        std::string what;
        EXPECT_EQ(codeOf([&] { CrvProfile::getProfileByName(ProfileMedia::File, dir.file("l"), "p"); }, &what), 24)
            << line;
        EXPECT_EQ(what, text);
    }
}

TEST(ProfileRecord, ReplacesOnlyItsOwnSubtree) {
    TempDir dir;
    const std::string list = dir.file("l");
    named(5, "PA")->saveProfile(ProfileMedia::File, list);
    auto p = named(1, "p");
    p->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, "old");
    p->saveProfile(ProfileMedia::File, list);
    p->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, "");
    p->saveProfile(ProfileMedia::File, list);
    UniversalConfMgr store;
    store.loadFromFile(list);
    EXPECT_TRUE(store.doesPathExist("\\PA\\Type"));
    EXPECT_FALSE(store.doesPathExist("\\P\\Pkcs12File"));
    std::string time;
    ASSERT_TRUE(store.getData("\\P\\LastProfileUpdate", time));
    EXPECT_THAT(time, testing::MatchesRegex("20[0-9]{12}"));
    EXPECT_EQ(codeOf([&] { CrvProfile::create(1)->saveProfile(ProfileMedia::File, list); }), ECRV_NO_PROFILE_NAME);
    auto noDb = CrvProfile::create(1);
    noDb->setAttr(0, "x");
    try {
        noDb->saveProfile(ProfileMedia::File, list);
        ADD_FAILURE();
    } catch (const std::runtime_error& error) {
        EXPECT_STREQ(error.what(), "Parametr: dbtype nie istnieje");
    }
    EXPECT_EQ(codeOf([&] { CrvProfile::removeProfile(ProfileMedia::File, list, "PA\\DB"); }), ECRV_API_INV_PAR);
    CrvProfile::removeProfile(ProfileMedia::File, list, "pa");
    CrvProfile::removeProfile(ProfileMedia::File, list, "none");
    store.loadFromFile(list);
    EXPECT_TRUE(store.doesPathExist("\\P"));
    EXPECT_FALSE(store.doesPathExist("\\PA"));
    std::string folder;
    CrvProfile::getProfileByName(ProfileMedia::File, list, "p")->getDefaultDbInstDir(folder);
    EXPECT_EQ(folder, dir.file("db/"));
}

/// Fails every rename, as a full or foreign folder does.
class NoRename : public FileOps {
  public:
    int rename(const std::string&, const std::string&) override {
        errno = EACCES;
        return -1;
    }
    int open(const std::string& path, int flags, mode_t mode) override {
        if (!(flags & (O_WRONLY | O_RDWR | O_CREAT))) return FileOps::open(path, flags, mode);
        errno = ENOSPC;
        return -1;
    }
};

TEST(ProfileRecord, GoesBackToTheListWhenASaveFails) {
    TempDir dir;
    const std::string list = dir.file("l");
    auto profile = named(1, "Ala");
    profile->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, "old");
    profile->saveProfile(ProfileMedia::File, list);
    const std::string before = test::readFile(list);
    profile->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, "new");
    {
        NoRename broken;
        ScopedFileOps scope(broken);
        EXPECT_THROW(profile->saveProfileWithRollbackIfError(ProfileMedia::File, list), std::runtime_error);
    }
    std::string value;
    EXPECT_EQ(profile->getAttr(CRVPROFILE_ATTR_PKCS12_FILE, value), 0);
    EXPECT_EQ(value, "old");
    EXPECT_EQ(test::readFile(list), before);
    profile->setAttr(CRVPROFILE_ATTR_PKCS12_FILE, std::string(1100, 'x'));
    EXPECT_EQ(codeOf([&] { profile->saveProfileWithRollbackIfError(ProfileMedia::File, list); }), ECRV_API_INV_PAR);
    EXPECT_EQ(test::readFile(list), before);
}

TEST(ProfileGuard, TakesAwayWhatAnUnfinishedCreationMade) {
    TempDir dir;
    const auto make = [&](CrvProfileCreationGuard& guard) {
        std::filesystem::create_directory(dir.path() / "db");
        for (const char* name : {"db/a", "k.p12", "roots"}) test::writeFile(dir.file(name), "x");
        guard.setDBCreated(dir.file("db"));
        guard.addDBFileCreated(dir.file("db/a"));
        guard.setPkcs12FileCreated(dir.file("k.p12"));
        guard.setRootsFileCreated(dir.file("roots"));
        guard.setRootsRegCreated("HKCU");
    };
    {
        CrvProfileCreationGuard guard;
        make(guard);
        guard.setCreationCompleted();
    }
    EXPECT_TRUE(std::filesystem::exists(dir.path() / "db/a"));
    {
        CrvProfileCreationGuard guard;
        make(guard);
    }
    EXPECT_TRUE(std::filesystem::is_empty(dir.path()));
}

}  // namespace
}  // namespace crv
