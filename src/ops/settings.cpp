#include "ops/settings.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <vector>

#include "asn/known_oids.h"
#include "config/config_oids.h"
#include "context/context_options.h"
#include "misc/ascii.h"
#include "misc/exceptions.h"
#include "misc/utf8.h"
#include "ops/op_error.h"
#include "ops/session.h"
#include "pki/algorithm_policy.h"

namespace crv {
namespace {

std::string nameOf(std::string_view constant) {
    for (const std::string_view prefix : {"OID_CRV_CONFIG_", "OID_CRVOPT_", "OID_CRV_"}) {
        if (!constant.starts_with(prefix)) continue;
        constant.remove_prefix(prefix.size());
        break;
    }
    std::string name(constant);
    for (char& c : name) c = c == '_' ? '-' : asciiLower(c);
    return name;
}

const CRVCfgFile& recordOf(Session& session) {
    return session.configuration().record();
}

SettingValue getNumber(Session& session, const Setting& setting) {
    return recordOf(session).getIntOpt(setting.option);
}

long numberOf(const std::string& text, long most = std::numeric_limits<long>::max()) {
    long value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    const bool number = error == std::errc() && end == text.data() + text.size();
    if (!number || value < 0 || value > most) throw OpError(OpFault::BadValue, text);
    return value;
}

void setNumber(Session& session, const Setting& setting, const std::string& text) {
    session.configuration().editRecord().setIntOpt(setting.option, numberOf(text));
}

constexpr long kUsualHistory = 10, kMostHistory = 1000;

SettingValue getHistory(Session& session, const Setting&) {
    return recordOf(session).getStoreHistory();
}

void setHistory(Session& session, const Setting&, const std::string& text) {
    session.configuration().editRecord().setStoreHistory(numberOf(text, kMostHistory));
}

void demandText(const std::string& text) {
    if (!isUtf8(text) || text.find('\0') != std::string::npos) throw OpError(OpFault::BadValue, text);
}

SettingValue getText(Session& session, const Setting& setting) {
    const auto text = recordOf(session).getTextOpt(setting.option);
    return text ? SettingValue(*text) : SettingValue();
}

void setText(Session& session, const Setting& setting, const std::string& text) {
    demandText(text);
    session.configuration().editRecord().setTextOpt(setting.option, text);
}

SettingValue getPolicy(Session& session, const Setting&) {
    return recordOf(session).getAlgorithmPolicy().value_or(std::string(AlgorithmPolicy::kDefault));
}

void setPolicy(Session& session, const Setting&, const std::string& text) {
    if (!AlgorithmPolicy::fromText(text)) throw OpError(OpFault::BadValue, text);
    session.configuration().editRecord().setAlgorithmPolicy(text);
}

struct CipherRow {
    const char* word;
    const KnownOid* oid;
};
constexpr CipherRow kCiphers[] = {{"aes256-cbc", &OID_AES256_CBC}, {"aes192-cbc", &OID_AES192_CBC},
                                  {"aes128-cbc", &OID_AES128_CBC}, {"3des-cbc", &OID_DES_EDE3_CBC},
                                  {"aes256-gcm", &OID_AES256_GCM}, {"aes192-gcm", &OID_AES192_GCM},
                                  {"aes128-gcm", &OID_AES128_GCM}};

SettingValue getCipher(Session& session, const Setting&) {
    const ASNobjectId oid = recordOf(session).getSymAlgo();
    const auto* row = std::ranges::find_if(kCiphers, [&](const CipherRow& one) { return oid == *one.oid; });
    return row == std::end(kCiphers) ? oid.text() : row->word;
}

void setCipher(Session& session, const Setting&, const std::string& text) {
    const KnownOid* oid = cipherOf(text);
    if (!oid) throw OpError(OpFault::BadValue, text);
    session.configuration().editRecord().setSymAlgo(ASNobjectId(*oid));
}

constexpr long kDigestOption = 15, kSchemeOption = 21;

/// Values of an option that has words.
struct OptionWord {
    long option;
    long value;
    const char* word;
};
constexpr OptionWord kWords[] = {
    {kDigestOption, 1, "sha1"},      {kDigestOption, 3, "sha224"},    {kDigestOption, 4, "sha256"},
    {kDigestOption, 5, "sha384"},    {kDigestOption, 6, "sha512"},    {kDigestOption, 8, "ripemd160"},
    {kDigestOption, 9, "sha3-224"},  {kDigestOption, 10, "sha3-256"}, {kDigestOption, 11, "sha3-384"},
    {kDigestOption, 12, "sha3-512"}, {kSchemeOption, 2, "rsa"},       {kSchemeOption, 4, "dsa"},
    {kSchemeOption, 5, "ecdsa"},     {kSchemeOption, 6, "rsa-pss"},
};

SettingValue getWord(Session& session, const Setting& setting) {
    long value = 0;
    if (crvGetOptionInt(&session.context(), setting.option, &value) != CRV_OK) return {};
    const auto* row = std::ranges::find_if(
        kWords, [&](const OptionWord& one) { return one.option == setting.option && one.value == value; });
    return row == std::end(kWords) ? SettingValue() : SettingValue(row->word);
}

void setWord(Session& session, const Setting& setting, const std::string& text) {
    const auto* row = std::ranges::find_if(
        kWords, [&](const OptionWord& one) { return one.option == setting.option && text == one.word; });
    if (row == std::end(kWords)) throw OpError(OpFault::BadValue, text);
    if (crvSetOptionInt(&session.context(), setting.option, row->value) != CRV_OK) demandKeys(kKmHashNotSupported);
}

std::vector<Setting> makeSettings() {
    std::vector<Setting> rows;
#define CRV_SETTING(option, symbol, constant, tail, value) \
    rows.push_back({nameOf(#constant), option, &constant, long{value}, getNumber, setNumber});
    CRV_INT_OPTIONS(CRV_SETTING)
#undef CRV_SETTING
    const Setting others[] = {
        {"text-option-36", 36, &OID_CRV_CONFIG_TEXT_OPTION_36, {}, getText, setText},
        {"text-option-42", 42, &OID_CRV_CONFIG_TEXT_OPTION_42, {}, getText, setText},
        {"text-option-43", 43, &OID_CRV_CONFIG_TEXT_OPTION_43, {}, getText, setText},
        {"signature-scheme", kSchemeOption, &OID_CRV_CONFIG_SIGNATURE_ALGO, {}, getWord, setWord},
        {"hash-algo", kDigestOption, &OID_CRV_CONFIG_HASH_ALGO, {}, getWord, setWord},
        {"sym-algo", 0, &OID_CRV_CONFIG_SYM_ALGO, kCiphers[0].word, getCipher, setCipher},
        {"store-history", 0, &OID_CRV_CONFIG_STORE_HISTORY, kUsualHistory, getHistory, setHistory},
        {"algorithm-policy", 0, &OID_CRV_CONFIG_ALGORITHM_POLICY, std::string(AlgorithmPolicy::kDefault), getPolicy,
         setPolicy},
    };
    rows.insert(rows.end(), std::begin(others), std::end(others));
    return rows;
}

}  // namespace

std::span<const Setting> settings() {
    static const std::vector<Setting> rows = makeSettings();
    return rows;
}

const Setting& findSetting(const std::string& name) {
    const auto found = std::ranges::find(settings(), name, &Setting::name);
    if (found == settings().end()) throw OpError(OpFault::ObjectMissing, name);
    return *found;
}

void resetSetting(Session& session, const Setting& setting) {
    session.configuration().editRecord().setField(*setting.field, nullptr);
}

const KnownOid* cipherOf(const std::string& word) {
    const auto* row = std::ranges::find_if(kCiphers, [&](const CipherRow& one) { return word == one.word; });
    return row == std::end(kCiphers) ? nullptr : row->oid;
}

}  // namespace crv
