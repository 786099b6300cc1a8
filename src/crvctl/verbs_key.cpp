// Verbs on the keys of the user.
#include <algorithm>

#include "asn/x509/signed_certificate.h"
#include "crvctl/secrets.h"
#include "crvctl/show.h"
#include "crvctl/statuses.h"
#include "crvctl/texts.h"
#include "crvctl/verbs.h"
#include "crypto/sign_algo_map.h"
#include "keystore/crt_request.h"
#include "keystore/key_pairing.h"
#include "misc/ascii.h"
#include "misc/hex.h"
#include "ops/key_plan.h"
#include "ops/key_transfer.h"

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

void generate(const Run& run, Session& session, RequestPlan& plan) {
    if (run.mode.dryRun) return;
    // A long generation does not keep others from the store.
    session.unlock();
    const KeyStoreAccess access = session.access();
    plan.key.forcedPss = plan.request.forcedPss;
    demandKeys(generateKey(access, plan.key, [] { return !processEnding(); }));
    warnOfHistory(run, session);
}

/// Of the use that the call names, as a whole.
KeyType useInStore(const Run& run, Session& session) {
    const auto whole = wholeUse(session.keys(), rowOf(kUses, run.call.value("use").value_or("sign")).use);
    if (!whole) demandKeys(kKmKeyNotFound);
    return *whole;
}

/// Those that are to go into the database; none where the profile has no database.
CertList authoritiesToStore(Session& session, const KeysOfFile& found) {
    CertList authorities = authoritiesOf(found);
    if (authorities.empty() || session.context().dbManager.isDbCreated() == DbState::Missing) return {};
    session.demandDatabase();
    return authorities;
}

void storeAuthorities(Run& run, Session& session, const CertList& list) {
    for (const CertPtr& one : list) {
        if (!run.mode.dryRun && !session.context().certificateManager.db().insert(*one)) session.failDatabase();
        run.out.change("add", "certificate", one->subject().rfc4514());
    }
}

/// The keys that the call means, and what else is said before they are taken.
std::string chooseKeys(const Run& run, KeysOfFile& found, const CertList& authorities) {
    const std::string wanted = run.call.value("key-id").value_or("");
    const auto other = [&](const PrivateKey& key) {
        return !equalIgnoreCase(toHex(key.keyId()).substr(0, wanted.size()), wanted);
    };
    std::erase_if(found.keys, other);
    if (found.keys.empty()) throw OpError(OpFault::ObjectMissing, wanted);
    std::string names;
    for (const PrivateKey& key : found.keys) names += (names.empty() ? "" : ", ") + hexOf(key.keyId());
    for (const CertPtr& one : authorities) names += "; " + one->subject().rfc4514();
    return names;
}

}  // namespace

void keyList(Run& run) {
    Session session = openReading(run);
    for (const StoredKey& stored : session.keys().keys()) {
        const PublicKey key = stored.key->publicKey();
        const auto* use = std::ranges::find(kUses, stored.role, &UseRow::role);
        const CertPtr certificate = session.keys().certificateOf(stored);
        const auto waitsFor = successorTo(stored);
        Fields fields{{"use", use->name},
                      {"algorithm", signAlgoName(session.keys().schemeOf(stored), KcHashAlgo::None)},
                      {"bits", static_cast<long>(key.bits())},
                      {"keyId", hexOf(key.keyId())},
                      {"replaces", waitsFor ? Value(hexOf(*waitsFor)) : Value()},
                      {"subject", certificate ? Value(certificate->subject().rfc4514()) : Value()},
                      {"notAfter", certificate ? timeOf(certificate->tbs.validity.notAfter) : Value()}};
        run.out.item(std::move(fields));
    }
}

void keyGenerate(Run& run) {
    RequestPlan plan = planOf(run.call, KeyScheme::Rsa);
    if (!canServe(plan.key)) demandKeys(kKmAlgorithmNotSupported);
    Session session = openChanging(run);
    if (session.configuration().keyMedium() != KeyMedium::File && !session.keys().keyLimits(plan.key.use))
        throw OpError(OpFault::WrongKind, session.profile().name());
    if (session.keys().hasKey(plan.key.use))
        throw OpError(OpFault::ObjectExists, run.call.value("use").value_or("sign"));
    const auto path = run.call.value("request");
    if (path) checkTarget(run, session, *path);
    run.out.change("add", "key", run.call.value("use").value_or("sign"));
    generate(run, session, plan);
    if (path) writeRequest(run, session, plan, *path);
}

void keyRequest(Run& run) {
    Session session = openChanging(run);
    const bool successor = run.call.has("successor");
    const KeyType use = successor ? useInStore(run, session) : rowOf(kUses, run.call.value("use").value_or("sign")).use;
    const StoredKey* waiting = successor ? session.keys().successorOf(use) : nullptr;
    const Signer* key = successor                    ? (waiting ? waiting->key.get() : nullptr)
                        : use == KeyType::Encryption ? session.keys().encryptionKey()
                                                     : session.keys().signingKey();
    if (!key) demandKeys(kKmKeyNotFound);
    const bool own = successor || use == KeyType::Encryption;
    RequestPlan plan = planOf(run.call, own ? key->publicKey().scheme() : session.keys().signingKeyType());
    plan.key.use = use;
    plan.request.successor = successor;
    plan.request.signedByKeyInUse = run.call.has("signed");
    writeRequest(run, session, plan, run.call.operand(0));
}

void keyReplace(Run& run) {
    RequestPlan plan = planOf(run.call, KeyScheme::Rsa);
    Session session = openChanging(run);
    if (session.configuration().keyMedium() != KeyMedium::File)
        throw OpError(OpFault::WrongKind, session.profile().name());
    plan.key.use = useInStore(run, session);
    plan.key.successor = plan.request.successor = true;
    if (!canServe(plan.key)) demandKeys(kKmAlgorithmNotSupported);
    plan.request.signedByKeyInUse = run.call.has("signed");
    if (const StoredKey* waiting = session.keys().successorOf(plan.key.use))
        throw OpError(OpFault::ObjectExists, hexOf(waiting->key->keyId()));
    checkTarget(run, session, run.call.operand(0));
    run.out.change("add", "key", "successor");
    generate(run, session, plan);
    if (run.mode.dryRun) return run.out.change("write", "request", run.call.operand(0));
    writeRequest(run, session, plan, run.call.operand(0));
}

void keyDelete(Run& run) {
    Session session = openChanging(run);
    const StoredKey& key = keyNamed(session, run.call.operand(0));
    const std::string id = hexOf(key.key->keyId());
    if (key.role != KeyRole::Further && !run.call.has("in-use")) throw OpError(OpFault::KeyInUse, id);
    run.confirm("Delete the key and its certificates? What was enciphered for it can then be read by nobody.", id);
    const std::string again = run.call.value("again").value_or("");
    if (!run.mode.dryRun && again.empty()) {
        if (!askYesNo(run.call, tr("The key is deleted for good. Are you sure?")))
            throw OpError(OpFault::NotConfirmed, id);
    } else if (!run.mode.dryRun && !equalIgnoreCase(again, id)) {
        throw OpError(OpFault::NotConfirmed, "--again " + again);
    }
    const KeyId gone = key.key->keyId();
    const StoredKey* successor = session.keys().waitingFor(gone);
    const std::string next = successor ? hexOf(successor->key->keyId()) : "";
    const KeyManagerResult result = run.mode.dryRun ? kKmOk : session.keys().deleteKey(gone);
    if (result == kKmHistoryFailed) throw OpError(OpFault::FileUnwritable, session.keys().historyFailure().text());
    demandKeys(result);
    run.out.change("remove", "key", id);
    if (!next.empty()) run.out.warn("the key that waited for its place takes it and needs its certificate", next);
}

void keyExport(Run& run) {
    Session session = openReading(run);
    const auto named = run.call.value("key-id");
    const KeyType use = named ? KeyType::Both : useInStore(run, session);
    const auto inUse = [&](const StoredKey& one) { return one.role == roleOf(use); };
    const StoredKey& key = named ? keyNamed(session, *named) : *std::ranges::find_if(session.keys().keys(), inUse);
    checkTarget(run, session, run.call.operand(0));
    run.confirm("Write the private key into a file of its own?", run.call.operand(0));
    const bool pem = run.call.value("format").value_or("p12") == "pem";
    const SecretBytes octets =
        exportedKey(key, chainOf(session.context().certificateManager, session.keys(), key),
                    pem ? KeyFileFormat::Pem : KeyFileFormat::Pkcs12, readSecret(run.call, "new-password", true));
    exportFile(targetOf(run, run.call.operand(0)), session.profile(), octets, WriteMode::Private);
    run.out.change("write", "key", run.call.operand(0));
}

void keyImport(Run& run) {
    KeysOfFile found = keysOfFile(importSecretFile(run.call.operand(0)), readSecret(run.call, "import-password"),
                                  [] { return !processEnding(); });
    Session session = openChanging(run);
    const auto use = run.call.value("use");
    const CertList authorities = authoritiesToStore(session, found);
    const std::string names = chooseKeys(run, found, authorities);
    if (authorities.empty()) {
        run.confirm("Take these private keys of the file into the profile?", names);
    } else {
        run.confirm("Take these private keys into the profile, and the certificates of authorities into its database?",
                    names);
    }
    bool taken = false;
    for (const PrivateKey& key : found.keys) {
        const auto role = use ? std::optional(rowOf(kUses, *use).role) : std::nullopt;
        const auto result = importKeyInto(session.keys(), key, found.certificates, role, !run.mode.dryRun);
        if (result == kKmKeyExists) {
            run.out.warn(faultText(OpFault::ObjectExists), hexOf(key.keyId()));
            continue;
        }
        demandKeys(result);
        run.out.change("add", "key", hexOf(key.keyId()));
        taken = true;
    }
    if (!taken) demandKeys(kKmKeyExists);
    storeAuthorities(run, session, authorities);
    warnOfHistory(run, session);
}

}  // namespace crv::ctl
