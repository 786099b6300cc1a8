// Kinds of paths as tables over made certificates: what RFC 5280 says of each, and by which clause.
#include <openssl/evp.h>
#include <openssl/rsa.h>

#include "asn/x509/ext_names.h"
#include "asn/x509/ext_policies.h"
#include "asn/x509/signed_certificate.h"
#include "corvane/crverrors.h"
#include "pki/path_cases.h"

using namespace crv;
using namespace crv::test;

namespace {

std::string policyList(int first, int last) {
    CertificatePolicies policies;
    for (int i = first; i <= last; ++i)
        static_cast<void>(policies.add().policyIdentifier.setText("1.2.3." + std::to_string(i)));
    return der(policies);
}

TEST_F(PathCasesTest, ExtensionsThatLie) {
    struct Row {
        const char* what;
        Texts ca, leaf;
        const char* clause;  // empty: good
    };
    const char* twice = "4.2";
    const Row rows[] = {
        {"constraints twice",
         {{"nameConstraints", "permitted;DNS:a.pl"}, {"2.5.29.30", "DER:3008A1063004820261"}},
         {},
         twice},
        {"usage twice", {}, {{"keyUsage", "digitalSignature"}, {"keyUsage", "keyAgreement"}}, twice},
        {"unknown twice", {}, {{"1.2.3.4", "DER:0500"}, {"1.2.3.4", "DER:0500"}}, twice},
        {"usage that is none", {}, {{"2.5.29.15", "DER:0500"}}, "4.2.1.3"},
        {"usage without a bit", {}, {{"2.5.29.15", "DER:030100"}}, "4.2.1.3"},
        {"TRUE of 01", {{"basicConstraints", ""}, {"2.5.29.19", "critical,DER:3003010101"}}, {}, "4.2.1.9"},
        {"authority with a negative length",
         {{"basicConstraints", ""}, {"2.5.29.19", "DER:30060101FF0201FF"}},
         {},
         "4.2.1.9"},
        {"no purposes", {}, {{"2.5.29.37", "DER:3000"}}, "4.2.1.12"},
        {"no names", {}, {{"2.5.29.17", "DER:3000"}}, "4.2.1.6"},
        {"no subtrees", {{"2.5.29.30", "DER:3002A000"}}, {}, "4.2.1.10"},
        {"constraints without any", {{"2.5.29.30", "DER:3000"}}, {}, "4.2.1.10"},
        {"minimum 1", {{"2.5.29.30", "DER:300CA00A30088203612E70800101"}}, {}, "4.2.1.10"},
        {"a policy twice", {}, {{"2.5.29.32", "DER:300C300406022A03300406022A03"}}, "4.2.1.4"},
        {"no points", {}, {{"2.5.29.31", "DER:3000"}}, "4.2.1.13"},
        {"policy constraints without any", {{"2.5.29.36", "DER:3000"}}, {}, "4.2.1.11"},
        {"unknown critical", {}, {{"1.2.3.4", "critical,DER:0500"}}, "6.1.5 (f)"},
        {"unknown critical above", {{"1.2.3.4", "critical,DER:0500"}}, {}, "6.1.4 (o)"},
        {"key identifier that is none", {{"subjectKeyIdentifier", ""}, {"2.5.29.14", "DER:0500"}}, {}, ""},
        {"foreign key identifier", {}, {{"2.5.29.35", "DER:30048002AAAA"}}, ""},
        {"mapping of any policy", {{"policyMappings", "2.5.29.32.0:1.2.3"}}, {}, "6.1.4 (a)"},
        {"no authority", {{"basicConstraints", "CA:FALSE"}}, {}, "6.1.4 (k)"},
        {"must not sign", {{"keyUsage", "critical,cRLSign"}}, {}, "6.1.4 (n)"},
    };
    for (const Row& row : rows) {
        fresh();
        const MadeCert ca = issue(caPlan(std::string("Urząd ") + row.what, row.ca), root);
        const PathVerdict found = path(issue({.subject = {{"CN", "Jan"}}, .extensions = row.leaf}, ca));
        EXPECT_EQ(found.clause, row.clause) << row.what << ": " << found.reason;
        EXPECT_EQ(found.good(), *row.clause == '\0') << row.what;
        EXPECT_EQ(found.steps.size(), 3U) << row.what;
    }
}

TEST_F(PathCasesTest, NamesAndTheirConstraints) {
    struct Row {
        const char* constraints;
        const char* names;
        bool good;
        const char* email = nullptr;  // in the subject
    };
    const Row rows[] = {
        {"permitted;email:Jan@firma.pl", "email:Jan@FIRMA.pl", true},
        {"permitted;email:Jan@firma.pl", "email:jan@firma.pl", false},
        {"permitted;email:firma.pl", "email:a@firma.pl", true},
        {"permitted;email:firma.pl", "email:a@x.firma.pl", false},
        {"permitted;email:.firma.pl", "email:a@x.firma.pl", true},
        {"permitted;email:.firma.pl", "email:a@firma.pl", false},
        {"excluded;email:firma.pl", "email:bez-malpy", false},
        {"permitted;DNS:firma.pl", "DNS:firma.pl", true},
        {"permitted;DNS:firma.pl", "DNS:a.FIRMA.pl", true},
        {"permitted;DNS:firma.pl", "DNS:afirma.pl", false},
        {"excluded;DNS:zla.pl", "DNS:a.zla.pl.", false},
        {"excluded;DNS:zla.pl.", "DNS:a.zla.pl", false},
        {"excluded;DNS:a.zla.pl", "DNS:*.zla.pl", false},
        {"excluded;DNS:zla.pl", "DNS:dobra.pl", true},
        {"permitted;DNS:a.pl", "email:a@b.pl", true},
        {"permitted;IP:10.0.0.0/255.0.0.0", "IP:10.1.2.3", true},
        {"permitted;IP:10.0.0.0/255.0.0.0", "IP:11.1.2.3", false},
        {"excluded;IP:10.0.0.0/255.0.0.0", "IP:10.1.2.3", false},
        {"excluded;IP:10.0.0.0/255.0.0.0", "IP:12.1.2.3", true},
        {"permitted;IP:10.0.0.0/255.0.0.0", "IP:fe80::1", false},
        {"permitted;IP:fe80::/ffff::", "IP:fe80::1", true},
        {"excluded;IP:10.0.0.0/255.0.255.0", "IP:12.1.2.3", false},
        {"permitted;URI:.firma.pl", "URI:https://u@a.firma.pl:1/x", true},
        {"permitted;URI:firma.pl", "URI:https://a.firma.pl/x", false},
        {"excluded;URI:firma.pl", "URI:https://firma.pl./x", false},
        {"excluded;URI:firma.pl", "URI:urn:x", false},
        {"permitted;email:Jan@firma.pl", "email:Jan@x.firma.pl", false},
        {"permitted;email:firma.pl", "DNS:inna.pl", true},
        {"excluded;email:.firma.pl", "email:a@firma.pl", true},
        {"excluded;email:Jan@firma.pl", "email:Jan@firma.pl", false},
        {"excluded;email:Jan@firma.pl", "email:Ewa@firma.pl", true},
        {"permitted;DNS:a.firma.pl", "DNS:firma.pl", false},
        {"permitted;DNS:firma.pl", "DNS:firma.pl.zla.pl", false},
        {"permitted;DNS:firma.pl", "DNS:a.firma.pl,DNS:b.firma.pl", true},
        {"permitted;DNS:firma.pl", "DNS:a.firma.pl,DNS:inna.pl", false},
        {"permitted;DNS:firma.pl", "DNS:*.firma.pl", true},
        {"permitted;DNS:a.pl,permitted;DNS:b.pl", "DNS:x.b.pl", true},
        {"permitted;DNS:a.pl,permitted;DNS:b.pl", "DNS:c.pl", false},
        {"permitted;DNS:a.pl,excluded;DNS:x.a.pl", "DNS:y.a.pl", true},
        {"permitted;DNS:a.pl,excluded;DNS:x.a.pl", "DNS:y.x.a.pl", false},
        {"permitted;IP:10.0.0.0/255.255.255.255", "IP:10.0.0.0", true},
        {"permitted;IP:10.0.0.0/255.255.255.255", "IP:10.0.0.1", false},
        {"permitted;IP:0.0.0.0/0.0.0.0", "IP:1.2.3.4", true},
        {"excluded;IP:0.0.0.0/0.0.0.0", "IP:1.2.3.4", false},
        {"excluded;IP:0.0.0.0/0.0.0.0", "IP:fe80::1", true},
        {"excluded;IP:fe80::/ffff::", "IP:fe80::1", false},
        {"permitted;IP:fe80::/ffff::", "IP:fe81::1", false},
        {"permitted;URI:.firma.pl", "URI:https://firma.pl/x", false},
        {"permitted;URI:firma.pl", "URI:https://FIRMA.pl/x", true},
        {"permitted;URI:firma.pl", "URI:https://firma.pl@zla.pl/x", false},
        {"permitted;URI:firma.pl", "URI:https://10.0.0.1/x", false},
        {"permitted;URI:firma.pl", "URI:ldap://firma.pl:389/x?y", true},
        {"excluded;URI:.zla.pl", "URI:https://a.zla.pl", false},
        {"excluded;URI:.zla.pl", "URI:https://zla.pl", true},
        {"permitted;RID:1.2.3", "RID:1.2.3", false},
        {"excluded;RID:1.2.3", "DNS:a.pl", true},
        {"permitted;email:firma.pl", "DNS:a.pl", false, "a@zla.pl"},
        {"permitted;email:firma.pl", "email:a@firma.pl", true, "b@firma.pl"},
        {"excluded;email:zla.pl", "email:a@firma.pl", false, "bez-malpy"},
        {"permitted;URI:firma.pl", "URI:urn:x?y://firma.pl", false},
        {"permitted;URI:firma.pl", "URI:javascript:alert(1)//://firma.pl/", false},
        {"permitted;URI:firma.pl", "URI:http:zla.pl/x://firma.pl", false},
        {"permitted;URI:firma.pl", "URI:http://zla.pl\\@firma.pl/", false},
        {"permitted;URI:firma.pl", "URI:http://a@zla.pl@firma.pl/", false},
        {"permitted;URI:firma.pl", "URI:http://a b@firma.pl/", false},
        {"excluded;URI:zla.pl", "URI:http://zla%2epl/", false},
        {"excluded;email:@zla.pl", "email:a@firma.pl", false},
        {"excluded;email:zla.pl", "email:a@zla..pl", false},
        {"excluded;DNS:.", "DNS:firma.pl", false},
        {"excluded;DNS:zla.pl", "DNS:zla.pl..", false},
        {"excluded;DNS:zla.pl", "DNS:zla .pl", false},
        {"excluded;DNS:www.zla.pl", "DNS:w*.zla.pl", false},
        {"permitted;DNS:firma.pl", "DNS:a.*.firma.pl", false},
    };
    for (const Row& row : rows) {
        fresh();
        const std::string name = std::string(row.constraints) + " " + row.names;
        const MadeCert ca = issue(caPlan(name, {{"nameConstraints", row.constraints}}), root);
        CertPlan plan{.subject = {{"CN", "Jan"}}, .extensions = {{"subjectAltName", row.names}}};
        if (row.email) plan.subject.push_back({"emailAddress", row.email, kIa5String});
        const PathVerdict found = path(issue(plan, ca));
        EXPECT_EQ(found.good(), row.good) << name << ": " << found.clause << " " << found.reason;
    }
    // The trust point's own constraints bind only where that is asked for.
    const MadeCert bound = test::makeCert(caPlan("Wiążący", {{"nameConstraints", "permitted;DNS:firma.pl"}}));
    trust.push_back(crv::makeCert(bound.der));
    const MadeCert stranger =
        issue({.subject = {{"CN", "a"}}, .extensions = {{"subjectAltName", "DNS:inna.pl"}}}, bound);
    EXPECT_TRUE(path(stranger).good());
    EXPECT_EQ(path(stranger, {.constrainedTrustPoint = true}).clause, "6.1.3 (b)");
}

TEST_F(PathCasesTest, NamesAreEqualAsPeopleRead) {
    const struct {
        const char* issuer;
        const char* meant;
        bool equal;
    } rows[] = {{"Urząd ŁÓDŹ", "urząd  łódź ", true},
                {"STRASSE", "straße", true},
                {"Urz\u00ADąd", "URZĄD", true},
                {"e\u0301", "É", true},
                {"a\u00A0b", "A b", true},
                {"ﬁrma", "FIRMA", true},
                {"Urząd", "Urzad", false},
                {"ab", "a b", false}};
    for (const auto& row : rows) {
        fresh();
        const MadeCert ca = issue(caPlan(row.issuer), root);
        MadeCert renamed = ca;
        renamed.subject = {{"CN", row.meant}};
        EXPECT_EQ(path(issue({.subject = {{"CN", "Jan"}}}, renamed)).good(), row.equal)
            << row.issuer << "=" << row.meant;
    }
    DistinguishedName one, other;  // values that are no UTF-8
    ASSERT_TRUE(one.readExactly(fromHex("300D310B300906035504030C02FFFF").value()));
    ASSERT_TRUE(other.readExactly(fromHex("300D310B300906035504030C02FFFE").value()));
    EXPECT_NE(nameKey(one), nameKey(other));
}

TEST_F(PathCasesTest, ChainsAndTheirCounters) {
    const auto ca = [](const char* name, const char* basic = "critical,CA:TRUE", Texts more = {}) {
        more.emplace_back("basicConstraints", basic);
        return caPlan(name, std::move(more));
    };
    const auto leaf = [](Texts extensions = {}) {
        return CertPlan{.subject = {{"CN", "Jan"}}, .extensions = extensions};
    };
    const auto within = [](CertPlan plan, int64_t from, int64_t to) {
        plan.notBefore = from;
        plan.notAfter = to;
        return plan;
    };
    const auto old = [](CertPlan plan) {
        plan.extensions.clear();
        plan.version1 = true;
        return plan;
    };
    const char* zero = "critical,CA:TRUE,pathlen:0";
    const char* one = "critical,CA:TRUE,pathlen:1";
    const char* plain = "CA:TRUE";
    const Texts p1{{"2.5.29.32", policyList(3, 3)}}, p2{{"2.5.29.32", policyList(4, 4)}};
    const Texts any{{"2.5.29.32", "DER:300830060604551D2000"}};
    const auto limits = [&](const Texts& policies, const char* text) {
        Texts all = policies;
        all.emplace_back("policyConstraints", text);
        return all;
    };
    const auto mapped = [&](const char* map, Texts policies) {
        policies.emplace_back("policyMappings", map);
        return policies;
    };
    const auto noAny = [](Texts policies, const char* skip) {
        policies.emplace_back("inhibitAnyPolicy", skip);
        return policies;
    };
    const uint32_t sign = 1U << KeyUsage::kDigitalSignature;
    const PathOptions strict{.explicitPolicy = true}, unmapped{.explicitPolicy = true, .inhibitMapping = true},
        unwild{.explicitPolicy = true, .inhibitAnyPolicy = true}, signing{.keyUsage = sign};
    const struct {
        const char* what;
        std::vector<CertPlan> chain;  // below the trust point
        const char* clause = "";      // empty: good
        PathOptions options{};
    } rows[] = {
        {"alone under the trust point", {leaf()}},
        {"length 0", {ca("A", zero), leaf()}},
        {"length 0 and one below", {ca("A", zero), ca("B"), leaf()}, "6.1.4 (l)"},
        {"length 0 and a self-issued one below", {ca("A", zero), ca("A"), leaf()}},
        {"length 0, self-issued, then another", {ca("A", zero), ca("A"), ca("B"), leaf()}, "6.1.4 (l)"},
        {"length 0 below a self-issued one", {ca("A"), ca("A", zero), ca("B"), leaf()}, "6.1.4 (l)"},
        {"length 1 and one below", {ca("A", one), ca("B"), leaf()}},
        {"length 1 and two below", {ca("A", one), ca("B"), ca("C"), leaf()}, "6.1.4 (l)"},
        {"a lower length that is larger", {ca("A", one), ca("B", "CA:TRUE,pathlen:9"), ca("C"), leaf()}, "6.1.4 (l)"},
        {"a lower length that is smaller", {ca("A", one), ca("B", zero), leaf()}},
        {"length 0 and an authority at the end", {ca("A", zero), ca("B")}},
        {"length without end", {ca("A", "CA:TRUE,pathlen:4294967296"), ca("B"), leaf()}},
        {"constraints that are not critical", {ca("A", plain), leaf()}},
        {"authority without key usage", {caPlan("A", {{"keyUsage", ""}}), leaf()}},
        {"authority without constraints", {caPlan("A", {{"basicConstraints", ""}}), leaf()}, "6.1.4 (k)"},
        {"authority of version 1", {old(ca("A")), leaf()}, "6.1.4 (k)"},
        {"end of version 1", {old(leaf())}},
        {"an end certificate issues", {leaf(), leaf()}, "6.1.4 (k)"},
        {"unknown extensions", {caPlan("A", {{"1.2.3.4", "DER:0500"}}), leaf({{"1.2.3.5", "DER:0500"}})}},
        {"expired end", {within(leaf(), -9 * kDay, -kDay)}, "6.1.3 (a)(2)"},
        {"end of tomorrow", {within(leaf(), kDay, 9 * kDay)}, "6.1.3 (a)(2)"},
        {"expired authority", {within(ca("A"), -9 * kDay, -kDay), leaf()}, "6.1.3 (a)(2)"},
        {"authority of tomorrow", {within(ca("A"), kDay, 9 * kDay), leaf()}, "6.1.3 (a)(2)"},
        {"an end that outlives its authority", {within(ca("A"), -kDay, kDay), within(leaf(), -9 * kDay, 999 * kDay)}},
        {"long since valid", {within(leaf(), -18'000 * kDay, kDay)}},
        {"beyond 2050", {within(ca("A"), -kDay, 36'500 * kDay), within(leaf(), -kDay, 18'250 * kDay)}},
        {"usage that was not asked", {leaf({{"keyUsage", "keyEncipherment"}})}},
        {"usage that is not there", {leaf({{"keyUsage", "keyEncipherment"}})}, "4.2.1.3", signing},
        {"no usage allows every one", {leaf()}, "", signing},
        {"one usage of two", {leaf({{"keyUsage", "nonRepudiation"}})}, "", {.anyKeyUsage = 3}},
        {"none of two", {leaf({{"keyUsage", "keyEncipherment"}})}, "4.2.1.3", {.anyKeyUsage = 3}},
        {"several usages", {leaf({{"keyUsage", "critical,digitalSignature,nonRepudiation"}})}, "", signing},
        {"purposes of the authority bind nobody", {caPlan("A", {{"extendedKeyUsage", "serverAuth"}}), leaf()}},
        {"one purpose of two",
         {leaf({{"extendedKeyUsage", "critical,emailProtection"}})},
         "4.2.1.12",
         {.extendedUsages = {ASNobjectId(OID_KP_EMAIL_PROTECTION), ASNobjectId(OID_KP_CODE_SIGNING)}}},
        {"both purposes",
         {leaf({{"extendedKeyUsage", "emailProtection,codeSigning"}})},
         "",
         {.extendedUsages = {ASNobjectId(OID_KP_EMAIL_PROTECTION), ASNobjectId(OID_KP_CODE_SIGNING)}}},
        {"no purposes allow every one", {leaf()}, "", {.extendedUsages = {ASNobjectId(OID_KP_CODE_SIGNING)}}},
        {"as deep as asked", {ca("A"), leaf()}, "", {.depth = 3}},
        {"deeper than asked", {ca("A"), ca("B"), leaf()}, "6.1", {.depth = 3}},
        {"no name, but alternative ones", {{.subject = {}, .extensions = {{"subjectAltName", "critical,DNS:a.pl"}}}}},
        {"one policy all along", {caPlan("A", p1), leaf(p1)}, "", strict},
        {"policies that differ", {caPlan("A", p1), leaf(p2)}, "6.1.3 (f)", strict},
        {"policies that differ, unasked", {caPlan("A", p1), leaf(p2)}},
        {"a gap", {caPlan("A", p1), ca("B"), leaf(p1)}, "6.1.3 (f)", strict},
        {"any policy above", {caPlan("A", any), leaf(p1)}, "", strict},
        {"any policy below", {caPlan("A", p1), leaf(any)}, "", strict},
        {"any policy forbidden from the start", {caPlan("A", p1), leaf(any)}, "6.1.3 (f)", unwild},
        {"any policy forbidden by the authority", {caPlan("A", noAny(p1, "0")), leaf(any)}, "6.1.3 (f)", strict},
        {"any policy forbidden one later", {caPlan("A", noAny(p1, "1")), leaf(any)}, "", strict},
        {"any policy, forbidden, in a self-issued one",
         {caPlan("A", noAny(p1, "0")), caPlan("A", any), leaf(p1)},
         "",
         strict},
        {"a policy mapped", {caPlan("A", mapped("1.2.3.3:1.2.3.4", p1)), leaf(p2)}, "", strict},
        {"a policy mapped away", {caPlan("A", mapped("1.2.3.3:1.2.3.4", p1)), leaf(p1)}, "6.1.3 (f)", strict},
        {"mapping forbidden from the start",
         {caPlan("A", mapped("1.2.3.3:1.2.3.4", p1)), leaf(p2)},
         "6.1.3 (f)",
         unmapped},
        {"mapping forbidden above",
         {caPlan("A", limits(p1, "inhibitPolicyMapping:0")), caPlan("B", mapped("1.2.3.3:1.2.3.4", p1)), leaf(p2)},
         "6.1.3 (f)",
         strict},
        {"mapping forbidden later",
         {caPlan("A", limits(p1, "inhibitPolicyMapping:1")), caPlan("B", mapped("1.2.3.3:1.2.3.4", p1)), leaf(p2)},
         "",
         strict},
        {"mapping to any", {caPlan("A", mapped("1.2.3.3:2.5.29.32.0", p1)), leaf(p2)}, "6.1.4 (a)"},
        {"the authority demands a policy", {caPlan("A", limits({}, "requireExplicitPolicy:0")), leaf()}, "6.1.3 (f)"},
        {"the demand is met", {caPlan("A", limits(p1, "requireExplicitPolicy:0")), leaf(p1)}},
        {"the demand begins later", {caPlan("A", limits({}, "requireExplicitPolicy:9")), ca("B"), leaf()}},
        {"self-issued ones do not count down",
         {caPlan("A", limits({}, "requireExplicitPolicy:2")), ca("A"), ca("A"), leaf()}},
        {"others do", {caPlan("A", limits({}, "requireExplicitPolicy:1")), ca("B"), leaf()}, "6.1.3 (f)"},
        {"the end demands it of itself", {caPlan("A"), leaf(limits({}, "requireExplicitPolicy:0"))}, "6.1.5 (g)"},
    };
    for (const auto& row : rows) {
        fresh();
        MadeCert last = root;
        for (const CertPlan& plan : row.chain) last = issue(plan, last, test::makeKey());
        const PathVerdict found = path(last, row.options);
        EXPECT_EQ(found.clause, row.clause) << row.what << ": " << found.reason;
        EXPECT_EQ(found.good(), *row.clause == '\0') << row.what;
    }
}

TEST_F(PathCasesTest, ParametersOfTheQuestion) {
    MadeCert last = root;
    for (int i = 0; i < 30; ++i) last = issue(caPlan("Ogniwo " + std::to_string(i)), last);
    const MadeCert deep = issue({.subject = {{"CN", "A"}}}, last);
    EXPECT_TRUE(path(deep).good()) << "thirty authorities are no loop";
    EXPECT_EQ(path(deep, {.depth = 20}).reason, "more certificates than the depth allows");
    const MadeCert mail =
        issue({.subject = {{"CN", "B"}}, .extensions = {{"extendedKeyUsage", "emailProtection"}}}, root);
    EXPECT_TRUE(path(mail, {.extendedUsages = {ASNobjectId(OID_KP_EMAIL_PROTECTION)}}).good());
    EXPECT_EQ(path(mail, {.extendedUsages = {ASNobjectId(OID_KP_CODE_SIGNING)}}).clause, "4.2.1.12");
    const MadeCert any =
        issue({.subject = {{"CN", "C"}}, .extensions = {{"extendedKeyUsage", "anyExtendedKeyUsage"}}}, root);
    EXPECT_TRUE(path(any, {.extendedUsages = {ASNobjectId(OID_KP_CODE_SIGNING)}}).good());
    const ASNobjectId wanted = *ASNobjectId::fromText("1.2.3.1");
    const MadeCert under = issue({.subject = {{"CN", "D"}}, .extensions = {{"2.5.29.32", policyList(1, 1)}}}, root);
    EXPECT_EQ(path(under, {.policies = {wanted}, .explicitPolicy = true}).policies, std::vector{wanted});
    EXPECT_EQ(path(mail, {.explicitPolicy = true}).clause, "6.1.3 (f)");
    EXPECT_EQ(path(under, {.policies = {*ASNobjectId::fromText("1.2.3.2")}, .explicitPolicy = true}).clause,
              "6.1.5 (g)");
}

TEST_F(PathCasesTest, AlgorithmsThatThePolicyRefuses) {
    const struct {
        const char* policy;
        bool good;
    } rows[] = {{"", true},
                {"sha256 never", false},
                {"sha256 2000-01-01; ec<100 never", false},
                {"sha256 2999-12-31", true},
                {"ec<257 never", false},
                {"ec<256 never; sha256 always", true},
                {"md5 kiedys", false},
                {"sha256 2000-13-01", false},
                {"sha256", false}};
    const MadeCert leaf = issue({.subject = {{"CN", "A"}}}, root);
    for (const auto& row : rows) {
        policy = row.policy;
        EXPECT_EQ(path(leaf).good(), row.good) << row.policy;
    }
    policy = "ec<257 never";
    for (const MadeCert* one : {&leaf, &root}) EXPECT_EQ(path(*one).reason, "algorithm policy: ec<257 never");
    policy = "sha256 2999-12-31";
    EXPECT_EQ(path(leaf).steps[0].weakness, "sha256 2999-12-31") << "what will end is shown before";
    policy.reset();
    const TestKey old(EVP_RSA_gen(1024), EVP_PKEY_free);
    EXPECT_EQ(path(issue({.subject = {{"CN", "B"}}}, root, old)).code, ECRV_CRTALG);
    EXPECT_EQ(path(issue({.subject = {{"CN", "C"}}}, issue(caPlan("Stary"), root, old))).code, ECRV_CRTALG);
}

TEST_F(PathCasesTest, MappingsOfHostileAuthoritiesDoNotExplode) {
    // Every policy of a level becomes every policy of the next: a tree would have 20^12 leaves.
    constexpr int kPolicies = 20, kLevels = 12;
    const std::string policies = policyList(0, kPolicies - 1);
    std::string mappings;
    for (int i = 0; i < kPolicies; ++i) {
        for (int j = 0; j < kPolicies; ++j)
            mappings += (mappings.empty() ? "" : ",") + ("1.2.3." + std::to_string(i) + ":1.2.3." + std::to_string(j));
    }
    MadeCert last = root;
    for (int i = 0; i < kLevels; ++i)
        last = issue(caPlan("Mnożący " + std::to_string(i), {{"2.5.29.32", policies}, {"policyMappings", mappings}}),
                     last);
    const PathVerdict found = path(issue({.subject = {{"CN", "A"}}, .extensions = {{"2.5.29.32", policies}}}, last),
                                   {.explicitPolicy = true});
    EXPECT_EQ(found.policies.size(), size_t{kPolicies});
}

TEST_F(PathCasesTest, WebsEndWithinTheirLimit) {
    std::vector<MadeCert> web;
    for (int i = 0; i < 12; ++i) web.push_back(issue(caPlan("Sieć " + std::to_string(i)), root, test::makeKey()));
    for (const MadeCert& one : web)
        for (const MadeCert& other : web)
            if (&one != &other) issue(caPlan(one.subject[0].value), other, one.key);
    const MadeCert leaf = issue({.subject = {{"CN", "A"}}}, web[0]);
    EXPECT_TRUE(path(leaf).good());
    const PathVerdict bad = path(leaf, {.explicitPolicy = true});
    EXPECT_EQ(bad.clause, "6.1.3 (f)");
    EXPECT_TRUE(bad.exhausted) << "more paths than anybody walks";
    const PathVerdict none = path(leaf, {.limits = {.candidates = 1}});
    EXPECT_EQ(none.reason, "more work than is allowed");
    EXPECT_TRUE(none.exhausted);
}

}  // namespace
