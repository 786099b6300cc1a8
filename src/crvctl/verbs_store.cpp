// Verbs on the key store: the store itself, policies, settings, keys.
#include <algorithm>

#include "asn/x509/signed_certificate.h"
#include "crvctl/secrets.h"
#include "crvctl/show.h"
#include "crvctl/verbs.h"
#include "crypto/sign_algo_map.h"
#include "keystore/crt_request.h"
#include "misc/ascii.h"
#include "misc/file_ops.h"
#include "ops/key_plan.h"
#include "ops/policies.h"
#include "ops/settings.h"

namespace crv::ctl {
namespace {

template <class Row, size_t N>
const Row& rowOf(const Row (&rows)[N], const std::string& name) {
    return *std::ranges::find(rows, name, [](const Row& row) { return std::string(row.name); });
}

struct UseRow {
    const char* name;
    KeyType use;
    KeyRole role;
};
constexpr UseRow kUses[] = {{"sign", KeyType::Signing, KeyRole::Signing},
                            {"decrypt", KeyType::Encryption, KeyRole::Encryption},
                            {"both", KeyType::Both, KeyRole::Both},
                            {"none", KeyType::Both, KeyRole::Further}};

struct SchemeRow {
    const char* name;
    KeyScheme scheme;
};
constexpr SchemeRow kSchemes[] = {
    {"rsa", KeyScheme::Rsa}, {"rsa-pss", KeyScheme::RsaPss}, {"dsa", KeyScheme::Dsa}, {"ecdsa", KeyScheme::Ecdsa}};

struct HashRow {
    const char* name;
    KcHashAlgo hash;
};
constexpr HashRow kHashes[] = {{"sha1", KcHashAlgo::Sha1},        {"sha224", KcHashAlgo::Sha224},
                               {"sha256", KcHashAlgo::Sha256},    {"sha384", KcHashAlgo::Sha384},
                               {"sha512", KcHashAlgo::Sha512},    {"sha3-256", KcHashAlgo::Sha3256},
                               {"sha3-384", KcHashAlgo::Sha3384}, {"sha3-512", KcHashAlgo::Sha3512}};

/// What the call says of a key and its request.
struct RequestPlan {
    KeyPlan key;
    CrtRequestParams request;
    std::optional<DistinguishedName> subject;
};

StdECId curveOf(const std::string& name) {
    const auto curves = ecCurves();
    const auto found = std::ranges::find(curves, name, [](const EcCurve& c) { return std::string(c.name); });
    if (found == curves.end()) throw OpError(OpFault::BadValue, "--curve " + name);
    return found->id;
}

RequestPlan planOf(const Call& call, KeyScheme standard) {
    RequestPlan plan{};
    plan.key.use = rowOf(kUses, call.value("use").value_or("sign")).use;
    const auto algo = call.value("algo");
    plan.key.scheme = algo ? rowOf(kSchemes, *algo).scheme : standard;
    plan.key.bits = static_cast<unsigned>(std::strtoul(
        call.value("bits").value_or(plan.key.scheme == KeyScheme::Dsa ? "1024" : "2048").c_str(), nullptr, 10));
    plan.key.curve = call.has("curve") ? curveOf(*call.value("curve")) : kDefaultCurve;
    plan.request.scheme = plan.key.scheme;
    plan.request.hash = plan.key.scheme == KeyScheme::Dsa ? KcHashAlgo::Sha1 : KcHashAlgo::Sha256;
    if (const auto hash = call.value("sign-algo")) plan.request.hash = rowOf(kHashes, *hash).hash;
    plan.request.format = call.has("der") ? RequestFormat::Der : RequestFormat::Pem;
    if (const auto subject = call.value("subject")) {
        const auto name = DistinguishedName::fromText(*subject);
        if (!name) throw OpError(OpFault::BadValue, *subject);
        plan.subject = name->reversed();
    }
    if (!isHashSupported(plan.key.scheme, plan.request.hash)) demandKeys(kKmHashNotSupported);
    return plan;
}

/// A key is not to be generated for a request that cannot be written.
void checkTarget(const Run& run, Session& session, const std::string& path) {
    ExportTarget look = targetOf(run, path);
    look.write = false;
    exportFile(look, session.profile(), {});
}

void writeRequest(Run& run, Session& session, RequestPlan& plan, const std::string& path) {
    if (plan.subject) plan.request.subject = &*plan.subject;
    run.out.change("write", "request", path);
    checkTarget(run, session, path);
    if (run.mode.dryRun) return;
    Bytes request;
    demandKeys(prepareCrtRequest(session.keys(), plan.key.use, plan.request, request));
    exportFile(targetOf(run, path), session.profile(), request);
}

Value valueOf(const SettingValue& value) {
    if (const auto* number = std::get_if<long>(&value)) return *number;
    if (const auto* text = std::get_if<std::string>(&value)) return *text;
    return {};
}

Fields settingFields(Session& session, const Setting& setting) {
    return {{"name", setting.name},
            {"value", valueOf(setting.get(session, setting))},
            {"default", valueOf(setting.standard)}};
}

}  // namespace

void storeInit(Run& run) {
    Session session(run.profile(), run.mode);
    session.create(readSecret(run.call, "password", true));
    run.out.change("add", "store", session.configuration().securityFileName());
}

void storePasswd(Run& run) {
    Session session = openChanging(run);
    session.changePassword(readSecret(run.call, "new-password", true));
    run.out.change("set", "password", session.configuration().securityFileName());
}

void storeCheck(Run& run) {
    Session session = openReading(run);
    run.out.field("file", session.configuration().securityFileName());
    run.out.field("keys", session.keys().keys().size());
    run.out.field("certificates", session.keys().userCerts().size());
    run.out.field("trustPoints", session.keys().trustedPoints().size());
}

void storeBackup(Run& run) {
    // Only what its password opens is worth keeping.
    Session session = openReading(run);
    const Bytes octets = importFile(session.configuration().securityFileName());
    exportFile(targetOf(run, run.call.operand(0)), session.profile(), octets, WriteMode::Secret);
    run.out.change("write", "backup", run.call.operand(0));
}

void policyList(Run& run) {
    Session session = openReading(run);
    for (const auto& policy : session.configuration().record().getPolicies())
        run.out.item({{"oid", policy.policyId.text()}, {"name", std::string(policy.noteText())}});
}

void policyAdd(Run& run) {
    Session session = openChanging(run);
    addPolicyTo(session.access(), run.call.operand(0), run.call.operand(1));
    session.save();
    run.out.change("add", "policy", run.call.operand(0));
}

void policyRemove(Run& run) {
    Session session = openChanging(run);
    removePolicyFrom(session.access(), run.call.operand(0));
    session.save();
    run.out.change("remove", "policy", run.call.operand(0));
}

void settingList(Run& run) {
    Session session = openReading(run);
    for (const Setting& setting : settings()) run.out.item(settingFields(session, setting));
}

void settingGet(Run& run) {
    const Setting& setting = findSetting(run.call.operand(0));
    Session session = openReading(run);
    for (auto& [key, value] : settingFields(session, setting)) run.out.field(key, value);
}

void settingSet(Run& run) {
    const Setting& setting = findSetting(run.call.operand(0));
    Session session = openChanging(run);
    setting.set(session, setting, run.call.operand(1));
    session.save();
    run.out.change("set", "setting", setting.name + "=" + run.call.operand(1));
}

void settingReset(Run& run) {
    const Setting& setting = findSetting(run.call.operand(0));
    Session session = openChanging(run);
    resetSetting(session, setting);
    session.save();
    run.out.change("reset", "setting", setting.name);
}

void keyList(Run& run) {
    Session session = openReading(run);
    for (const StoredKey& stored : session.keys().keys()) {
        const PublicKey key = stored.key->publicKey();
        const auto* use = std::ranges::find(kUses, stored.role, &UseRow::role);
        const CertPtr certificate = session.keys().certificateOf(stored);
        Fields fields{{"use", use->name},
                      {"algorithm", signAlgoName(session.keys().schemeOf(stored), KcHashAlgo::None)},
                      {"bits", static_cast<long>(key.bits())},
                      {"keyId", hexOf(key.keyId())},
                      {"subject", certificate ? Value(certificate->subject().rfc4514()) : Value()},
                      {"notAfter", certificate ? timeOf(certificate->tbs.validity.notAfter) : Value()}};
        run.out.item(std::move(fields));
    }
}

void keyGenerate(Run& run) {
    RequestPlan plan = planOf(run.call, KeyScheme::Rsa);
    Session session = openChanging(run);
    if (session.configuration().keyMedium() != KeyMedium::File && !session.keys().keyLimits(plan.key.use))
        throw OpError(OpFault::WrongKind, session.profile().name());
    if (session.keys().hasKey(plan.key.use))
        throw OpError(OpFault::ObjectExists, run.call.value("use").value_or("sign"));
    const auto path = run.call.value("request");
    if (path) checkTarget(run, session, *path);
    run.out.change("add", "key", run.call.value("use").value_or("sign"));
    if (!run.mode.dryRun) {
        // A long generation does not keep others from the store.
        session.unlock();
        const KeyStoreAccess access = session.access();
        plan.key.forcedPss = plan.request.forcedPss;
        demandKeys(generateKey(access, plan.key, [] { return !processEnding(); }));
    }
    if (path) writeRequest(run, session, plan, *path);
}

void keyRequest(Run& run) {
    Session session = openChanging(run);
    const KeyType use = rowOf(kUses, run.call.value("use").value_or("sign")).use;
    const Signer* key = use == KeyType::Encryption ? session.keys().encryptionKey() : session.keys().signingKey();
    if (!key) demandKeys(kKmKeyNotFound);
    const KeyScheme own = use == KeyType::Encryption ? key->publicKey().scheme() : session.keys().signingKeyType();
    RequestPlan plan = planOf(run.call, own);
    writeRequest(run, session, plan, run.call.operand(0));
}

}  // namespace crv::ctl
