#include "crvconfd/screens/user_settings.h"

#include <vector>

#include "asn/known_oids.h"
#include "asn/x509/sign_algo.h"
#include "config/configuration_manager.h"
#include "crvconfd/engines/form.h"
#include "crvconfd/session/context.h"
#include "crvconfd/session/prot_cfg.h"
#include "crvconfd/toolkit/toolkit.h"
#include "crypto/sign_algo_map.h"
#include "keystore/key_manager.h"

namespace crv {

namespace {

struct SymAlgo {
    const KnownOid& oid;
    const char* name;
};

const SymAlgo kSymAlgos[] = {
    {OID_AES256_CBC, "AES-256 CBC"},
    {OID_AES192_CBC, "AES-192 CBC"},
    {OID_AES128_CBC, "AES-128 CBC"},
    {OID_DES_EDE3_CBC, "3DES CBC"},
};

/// The hashes that go with a scheme and a key; without a key all that sign.
std::vector<FormChoice> hashChoices(KeyScheme scheme, unsigned bits) {
    std::vector<FormChoice> choices;
    for (const SignAlgo& row : signAlgoMap()) {
        if (row.scheme == scheme && row.hash != KcHashAlgo::None && row.hash != KcHashAlgo::Md5 &&
            isSignAlgoValidForKeyLength(scheme, row.hash, bits))
            choices.push_back({static_cast<long>(row.hash), signAlgoName(KeyScheme::None, row.hash)});
    }
    return choices;
}

/// The schemes that the signing key can sign by: both of RSA for an RSA key.
std::vector<FormChoice> schemeChoices(KeyScheme scheme) {
    std::vector<FormChoice> choices;
    const auto add = [&](KeyScheme one) {
        choices.push_back({static_cast<long>(one), signAlgoName(one, KcHashAlgo::None)});
    };
    if (isRsa(scheme)) {
        add(KeyScheme::Rsa);
        add(KeyScheme::RsaPss);
    } else {
        add(scheme);
    }
    return choices;
}

std::vector<FormChoice> symChoices() {
    std::vector<FormChoice> choices;
    for (const SymAlgo& algo : kSymAlgos) choices.push_back({static_cast<long>(choices.size()), algo.name});
    return choices;
}

long currentSymAlgo(const CRVCfgFile& record) {
    const ASNobjectId current = record.getSymAlgo();
    for (size_t i = 0; i < std::size(kSymAlgos); ++i)
        if (current == kSymAlgos[i].oid) return static_cast<long>(i);
    return -1;
}

struct Settings {
    long scheme;
    long hash;
    long symmetric;
    long protection;
};

constexpr FormChoice kProtections[] = {{0, "zgodna"}, {1, "mocna"}};

/// Takes the settings into the record; false, after a message, for a hash that the scheme and the key do not allow.
bool take(const Settings& settings, unsigned bits) {
    const auto scheme = static_cast<KeyScheme>(settings.scheme);
    const auto hash = static_cast<KcHashAlgo>(settings.hash);
    const auto algorithm = signAlgorithm(scheme, hash);
    if (!algorithm || !isSignAlgoValidForKeyLength(scheme, hash, bits)) {
        errInfo(kMessageRow, "Funkcja skrótu nie jest wspierana z wybranym algorytmem podpisu");
        return false;
    }
    CRVCfgFile& record = cfgManager->editRecord();
    record.setHashAlgo(hash);
    record.setSignaturaAlgorithmIdentifier(*algorithm);
    if (settings.symmetric >= 0) record.setSymAlgo(ASNobjectId(kSymAlgos[static_cast<size_t>(settings.symmetric)].oid));
    return true;
}

}  // namespace

void OnUserSettings() {
    const Signer* key = keyManager->signingKey();
    const KeyScheme scheme = key ? keyManager->signingKeyType() : KeyScheme::Rsa;
    const unsigned bits = key ? key->publicKey().bits() : 0;
    const CRVCfgFile& record = cfgManager->record();
    Settings settings{static_cast<long>(scheme), static_cast<long>(record.getHashAlgo(scheme)), currentSymAlgo(record),
                      keyManager->isStronglyProtected() ? 1L : 0L};
    const auto schemes = schemeChoices(scheme);
    const auto hashes = hashChoices(isRsa(scheme) ? KeyScheme::Rsa : scheme, bits);
    const auto symmetric = symChoices();
    std::vector<FormField> fields{
        choiceField("Algorytm podpisu", settings.scheme, schemes),
        choiceField("Funkcja skrótu", settings.hash, hashes),
        choiceField("Algorytm szyfrowania", settings.symmetric, symmetric),
    };
    if (cfgManager->keyMedium() == KeyMedium::File)
        fields.push_back(choiceField("Ochrona pliku", settings.protection, kProtections));
    runForm("Ustawienia kryptograficzne", fields, [&] {
        const auto before = cfgManager->sharedRecord();
        const bool changed = cfgManager->isRecordChanged();
        const bool strong = keyManager->isStronglyProtected();
        if (!take(settings, bits)) return false;
        keyManager->protectStrongly(settings.protection == 1);
        if (writeProtCfg()) {
            if (strong != keyManager->isStronglyProtected()) tellOfCopies("Kopie w historii mają dawną ochronę");
            return true;
        }
        keyManager->protectStrongly(strong);
        cfgManager->setRecord(before);
        cfgManager->setRecordChanged(changed);
        return false;
    });
}

}  // namespace crv
