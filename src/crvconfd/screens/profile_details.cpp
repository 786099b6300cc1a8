#include "crvconfd/screens/profile_details.h"

#include <algorithm>
#include <array>
#include <string>
#include <vector>

#include "asn/asn_object_id.h"
#include "config/configuration_manager.h"
#include "corvane/crvprofile.h"
#include "crvconfd/engines/text_view.h"
#include "crvconfd/screens/key_store_view.h"
#include "crvconfd/session/context.h"
#include "keystore/key_manager.h"
#include "misc/hex.h"
#include "profiles/crv_profile.h"

namespace crv {

namespace {

enum class Shown { Text, Number, Flag, Octets, Hidden };

struct DetailRow {
    long attr;
    const char* label;
    Shown shown;
};

/// Every attribute that some kind of profile has; a kind shows those that it answers.
constexpr std::array kDetailRows{
    DetailRow{CRVPROFILE_ATTR_PKCS12_FILE, "Plik bezpieczeństwa:", Shown::Text},
    DetailRow{CRVPROFILE_ATTR_READER_NAME, "Czytnik kart:", Shown::Text},
    DetailRow{CRVPROFILE_ATTR_PKCS11_LIBRARY, "Biblioteka PKCS#11:", Shown::Text},
    DetailRow{CRVPROFILE_ATTR_PKCS11_SYNC_BY_LIB, "Dostęp szereguje bibl.:", Shown::Flag},
    DetailRow{CRVPROFILE_ATTR_PKCS11_KEEP_SESSION_OPEN, "Sesja stale otwarta:", Shown::Flag},
    DetailRow{CRVPROFILE_ATTR_SKEY_TOK, "Token klucza podpisu:", Shown::Text},
    DetailRow{CRVPROFILE_ATTR_DKEY_TOK, "Token klucza deszyfr.:", Shown::Text},
    DetailRow{CRVPROFILE_ATTR_SKEY_ID, "Id. klucza podpisu:", Shown::Octets},
    DetailRow{CRVPROFILE_ATTR_DKEY_ID, "Id. klucza deszyfr.:", Shown::Octets},
    DetailRow{CRVPROFILE_ATTR_CERT_FILTER, "Filtr certyfikatów:", Shown::Text},
    DetailRow{CRVPROFILE_ATTR_EXTERN_SPIN, "PIN podpisu na czytniku:", Shown::Flag},
    DetailRow{CRVPROFILE_ATTR_EXTERN_DPIN, "PIN deszyfr. na czytniku:", Shown::Flag},
    DetailRow{CRVPROFILE_ATTR_TRV_LIB_PATH, "Biblioteka Tarvo:", Shown::Text},
    DetailRow{CRVPROFILE_ATTR_T23_CARD_ID, "Karta Tarvo:", Shown::Octets},
    DetailRow{CRVPROFILE_ATTR_T23_TYPE_TEXT, "Typ urządzenia Tarvo:", Shown::Text},
    DetailRow{CRVPROFILE_ATTR_ROOTS_FILE, "Plik punktów zaufania:", Shown::Text},
    DetailRow{CRVPROFILE_ATTR_DB_TYPE, "Rodzaj bazy danych:", Shown::Text},
    DetailRow{CRVPROFILE_ATTR_DB, "Katalog bazy danych:", Shown::Text},
    DetailRow{CRVPROFILE_ATTR_DB_NAME, "Nazwa bazy danych:", Shown::Text},
    DetailRow{CRVPROFILE_ATTR_DB_LOGIN, "Użytkownik bazy danych:", Shown::Text},
    DetailRow{CRVPROFILE_ATTR_DB_PASS, "Hasło bazy danych:", Shown::Hidden},
};

const char* kindText(ProfileKind kind) {
    switch (kind) {
        case ProfileKind::Pkcs12:
            return "plik bezpieczeństwa (PKCS#12)";
        case ProfileKind::Tarvo23:
            return "urządzenie Tarvo";
        case ProfileKind::Pkcs11:
            return "karta (PKCS#11)";
        case ProfileKind::Memory:
            return "w pamięci";
        case ProfileKind::Csp:
            return "dostawca usług kryptograficznych";
    }
    return "";
}

std::string valueText(Shown shown, const std::vector<char>& value) {
    const bool set = std::any_of(value.begin(), value.end(), [](char octet) { return octet != 0; });
    switch (shown) {
        case Shown::Flag:
            return set ? "tak" : "nie";
        case Shown::Octets:
            return toHex(asBytes({value.data(), value.size()}), " ");
        case Shown::Hidden:
            return value.empty() ? "" : "********";
        default:
            return {value.begin(), value.end()};
    }
}

std::vector<std::string> detailLines(const CrvProfile& profile) {
    std::vector<std::string> lines;
    addField(lines, "Nazwa profilu:", profile.name().empty() ? "<bez nazwy>" : profile.name());
    addField(lines, "Rodzaj profilu:", kindText(profile.kind()));
    for (const DetailRow& row : kDetailRows) {
        std::vector<char> value;
        const int result = profile.getAttr(row.attr, value);
        if (result == kAttrDefault) addField(lines, row.label, "<wartość domyślna>");
        if (result != kAttrOk) continue;
        const std::string text = valueText(row.shown, value);
        if (!text.empty()) addField(lines, row.label, text);
    }
    addField(lines, "Serwery:", std::to_string(profile.servers().size()));
    Proxy proxy;
    addField(lines, "Proxy:", profile.getProxy(proxy) ? proxy.addr + ":" + std::to_string(proxy.port) : "brak");
    for (long i = 0; i < profile.getAcceptedExtKeyUsagesCount(); ++i) {
        std::string name;
        ASNobjectId oid;
        if (profile.getAcceptedExtKeyUsage(i, name, oid))
            addField(lines, i == 0 ? "Akceptowane zastosowania:" : "", oid.text() + " " + name);
    }
    return lines;
}

}  // namespace

void OnProfileDetails(const CrvProfile* profile) {
    std::vector<std::string> lines = detailLines(profile ? *profile : *cfgManager->profile());
    // What the tokens at work say of themselves.
    if (!profile)
        for (const auto& [name, value] : keyManager->mediumDetails()) addField(lines, name, value);
    TextView view{"Szczegóły profilu", std::move(lines)};
    if (!profile && cfgManager->keyMedium() == KeyMedium::File)
        view.actions = {{'o', "~Obsługa kluczy", false, [](size_t) { OnKeyStore(); }}};
    runTextView(view);
}

}  // namespace crv
