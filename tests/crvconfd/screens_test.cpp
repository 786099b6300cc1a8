// The screens behind the menus: keys, trust points, servers, settings, the browsers of the database.
#include "session_screen.h"
#include "support/cert_maker.h"

namespace crv::test {
namespace {

const std::string kKeys = "3) Generuj klucz", kConfiguration = "9) Rozszerzone", kDataBases = "6) Usuń";
const std::string kChoose = "Wybierz parametry";
const std::string kSaved = "Plik został zapisany";

using MenuScreen = SessionScreen;

// Key generation.

using Command = std::tuple<std::string, int, std::string>;  ///< what is typed, and the row that shows the text then

const Command kCommands[] = {
    {"", 20, std::string(31, ' ') + "Generuj   Wyjście"},
    {"?", 3, "  D" + std::string(31, ' ') + "Długość klucza w bitach:"},
    {" xbruF", 9, " Format pliku tworzonego zgłoszenia certyfikacyjnego:  binarny (DER)"},
    {"", 10, ""},
    {"f", 9, " Format pliku tworzonego zgłoszenia certyfikacyjnego:  tekstowy (PEM)"},
    {"A", 20, "  Wybór: klawisze nawigacyjne, spacja, +, -; Esc,W: koniec, Enter: zatwierdź"},
    {"w", 20, std::string(31, ' ') + "Generuj   Wyjście"},
    {"p+\r", 6, " Algorytm podpisu:          sha384withRSAEncryption"},
    {"d" + keys::kDown + "\r", 4, " Długość klucza w bitach:   3072"},
    {"a" + keys::kDown + keys::kDown + "\r", 3, " Algorytm klucza:           ecdsa"},
    {"", 4, " Dziedzina dla ECDSA:       prime256v1"},
    {"b", 10, " Zapisz parametry domeny krzywej eliptycznej bezpośrednio:                TAK"},
    {"B", 10, " Zapisz parametry domeny krzywej eliptycznej bezpośrednio:                NIE"},
    {"a" + keys::kDown + "\r", 6, " Algorytm podpisu:          rsaPSS, SHA-256"},
    {"", 4, " Długość klucza w bitach:   3072"},
    {"r", 10, " Do podpisu zgłoszenia użyj algorytmu SHA-1 RSA-PKCS#1 (niezalecane):     TAK"},
    {"U", 11, " Wymuś używanie podanego algorytmu do podpisu:                            TAK"},
    {"p" + keys::kDown + "\r", 6, " Algorytm podpisu:          rsaPSS, SHA-384"},
    {"a" + keys::kDown + "\r", 6, " Algorytm podpisu:          sha256withRSAEncryption"},
    {"a" + keys::kDown + "\r", 3, " Algorytm klucza:           dsa"},
    {"", 6, " Algorytm podpisu:          dsaWithSha1"},
    {"", 4, " Długość klucza w bitach:   1024"},
    {"a" + keys::kUp + "\r", 3, " Algorytm klucza:           rsaEncryption"},
    {"", 4, " Długość klucza w bitach:   1024"},
};

TEST_F(MenuScreen, KeyGenerationObeysItsCommandsAndStops) {
    prepare();
    open("1");
    const std::string back = "W) Wyjście";
    play({{back, "?"}, {"ta pomoc", " "}, {back, "\033OP"}, {"ta pomoc", " "}, {back, "1"}, {kChoose, ""}});
    EXPECT_EQ(screen->row(0), std::string(24, ' ') + "Generowanie klucza do podpisów");
    for (const auto& [typed, row, text] : kCommands) expectRow(typed, row, text);
    screen->send("g");
    play({{"Klucze o długości mniejszej niż 2048 bitów nie są wspierane !!!", " "}, {kKeys, "3"}, {kChoose, "a"}});
    expectRow("d" + keys::kEnd + "\r", 4, " Długość klucza w bitach:   16384");
    play({{"", "g"}, {"trwa generowanie klucza rsaEncryption (16384 bitów)...", ""}});
    screen->send(keys::kEscape);
    screen->waitFor(kKeys, std::chrono::seconds(60));
    play({{kKeys, "1"}, {kChoose, "W"}});
    EXPECT_EQ(leave(kKeys), 0);
    EXPECT_EQ(secrets(), "seed 20\n");
}

TEST_F(MenuScreen, RequestsAreWrittenInBothFormsButNotOverTheProfile) {
    prepare();
    const std::string ask = "Podaj nazwę pliku zgłoszenia certyfikacyjnego:";
    const std::string saved = "Klucz został poprawnie wygenerowany i zapisany.";
    open("1");
    play({{kKeys, "1"}, {kChoose, "a" + keys::kDown + keys::kDown + "\r"}, {"prime256v1", "g"}});
    message("Klucz ecdsa został poprawnie wygenerowany.");
    for (const auto& [name, text] :
         {std::pair{"~/praca.p12", kOfTheProfile}, {"~/nie/ma", "Nie mogę otworzyć pliku: "}})
        play({{ask, name + std::string("\r")}, {text + std::string(name), " "}});
    play({{ask, "~/zgloszenie.pem\r"}, {saved, " "}});
    const std::string pem = readFile(file("zgloszenie.pem")), begin = "-----BEGIN NEW CERTIFICATE REQUEST-----\r\n";
    EXPECT_EQ(pem.substr(0, begin.size()), begin);
    EXPECT_NE(pem.find("\r\n-----END NEW CERTIFICATE REQUEST-----\r\n"), std::string::npos);
    for (size_t at = pem.find('\n'); at != std::string::npos; at = pem.find('\n', at + 1)) ASSERT_EQ(pem[at - 1], '\r');
    EXPECT_NE(run("openssl req -in zgloszenie.pem -noout -verify 2>&1").find("OK"), std::string::npos);
    for (const char* entry : {"1", "3"}) {
        play({{kKeys, entry}, {"Klucz dla danego zastosowania już istnieje i nie może zostać nadpisany", " "}});
        play({{"Zapisać zgłoszenie dla istniejącego klucza (t/n)?", "t"}});
        play({{ask, "~/znowu" + std::string(entry) + "\r"}, {"Zgłoszenie certyfikacyjne zostało zapisane.", " "}});
        EXPECT_EQ(run("openssl req -in znowu" + std::string(entry) + " -noout -pubkey"),
                  run("openssl req -in zgloszenie.pem -noout -pubkey"));
    }
    play({{kKeys, "2"}, {"Generowanie klucza do szyfrowania", "af"}, {"binarny (DER)", "g"}});
    screen->waitFor("Klucz rsaEncryption został poprawnie", std::chrono::seconds(60));
    play({{"", " "}, {ask, "~/zgloszenie.der\r"}, {saved, " "}, {kKeys, "w"}});
    EXPECT_NE(run("openssl req -inform DER -in zgloszenie.der -noout -verify 2>&1").find("OK"), std::string::npos);
    EXPECT_EQ(leave(), 0);
    EXPECT_EQ(secrets().substr(0, 8), "key\nkey\n");
}

// Trust points.

TEST_F(MenuScreen, TrustPointsAreAddedShownSavedAndDeleted) {
    prepareKey(false);
    // With its colon the identifier leaves no column for the value.
    const std::string longId = "1.3.6.1.4.1.32473.123456789.123456789.123456789.123456789.123456789.12345678";
    auto extensions = caExtensions();
    extensions.emplace_back(longId, "ASN1:UTF8String:abc");
    save("dawny.crt",
         makeCert({.subject = {{"CN", "Dawny"}}, .notBefore = -9 * kDay, .notAfter = -kDay, .extensions = extensions})
             .der);
    const MadeCert root = makeCert({.subject = {{"CN", "Główny"}}, .extensions = caExtensions()});
    save("posredni.crt", makeCert({.subject = {{"CN", "Pośredni"}}, .extensions = caExtensions()}, &root).der);
    run("openssl req -x509 -newkey ed25519 -nodes -subj /CN=Ed -keyout ed.key -out ed.crt 2>&1");
    open("2");
    play({{kConfiguration, "1"}, {"Brak punktów zaufania", "nPcsUd"}});
    message("Do zmiany konfiguracji wymagany jest certyfikat i klucz do podpisywania");
    EXPECT_EQ(screen->row(22), std::string(32, ' ') + "Dodaj   Powrót");
    std::filesystem::rename(file("both.p12"), file("praca.p12"));
    open("2");
    play({{kConfiguration, "1"}, {"Brak punktów zaufania", ""}});
    const auto add = [&](const std::string& name, const std::string& text) {
        play({{"Dodaj", "d"}, {"Podaj nazwę pliku z certyfikatem:", name + "\r"}, {text, " "}});
    };
    add("~/user.crt", "Wskazany certyfikat nie jest certyfikatem urzędu");
    add("~/posredni.crt", "To urząd pośredni");
    add("~/ed.crt", "Nieobsługiwany algorytm podpisu lub klucza certyfikatu");
    add("~/nie_ma", "Błąd otwarcia pliku ~/nie_ma !!!");
    add("~/ca.crt", "Punkt zaufania poprawnie dodany");
    play({{"Dodany punkt zaufania", "w"}});
    add("~/ca/ca.pem", "certyfikacyjne punktu zaufania już istnieje.");
    expectRow("", 22, std::string(17, ' ') + "Dodaj   Usuń   Szczegóły   Zapisz   Powrót");
    EXPECT_EQ(screen->cells(0, 76, 80), " 1/1");
    EXPECT_EQ(screen->row(2), "Rodzaj: Zwykły");
    EXPECT_TRUE(screen->cell(7, 1).bold || screen->cell(7, 1).underline || screen->cell(7, 1).reverse);
    const std::string old = "Zaświadczenie certyfikacyjne jest przeterminowane, czy chcesz kontynuować (t/n)?";
    play({{"Dodaj", "d"}, {"Podaj nazwę", "~/dawny.crt\r"}, {old, "n"}, {"1/1", "D"}, {"Podaj", "~/dawny.crt\r"}});
    play({{old, "t"}, {"Punkt zaufania poprawnie dodany", " "}, {"CN=Dawny", "w"}, {"1/2", "p"}});
    EXPECT_EQ(screen->row(22).find("Poprzedni"), std::string::npos);
    expectIn("N", 22, "Poprzedni");
    EXPECT_EQ(screen->row(22).find("Następny"), std::string::npos);
    play({{"2/2", "c"}, {"punktu zaufania 2/2", "r"}, {longId + ":", ""}, {"0C 03 61 62 63", "w"}});
    play({{"2/2", "nP"}, {"1/2", "c"}, {"Szczegóły certyfikatu punktu zaufania 1/2", ""}});
    expectIn("", 2, "Numer seryjny:");
    expectIn("r", 2, "Wersja:");
    expectIn("D", 2, "Numer seryjny:");
    play({{"Dane", "w"}, {"1/2", "s"}, {"Podaj nazwę pliku certyfikatu:", "~/praca.p12\r"}});
    message(kOfTheProfile + "~/praca.p12");
    play({{"1/2", "s"}, {"Podaj nazwę pliku certyfikatu:", "~/zapis.crt\r"}, {kSaved, " "}, {"1/2", "u"}});
    const std::string question = "Czy na pewno chcesz usunąć punkt zaufania (t/n)?";
    play({{question, "n"}, {"1/2", "U"}, {question, "t"}, {"Punkt zaufania usunięty", " "}, {"CN=Dawny", ""}});
    EXPECT_EQ(readFile(file("zapis.crt")), readFile(file("ca.crt")));
    play({{"1/1", "W"}});
    EXPECT_EQ(leave(kConfiguration), 0);
    const std::string left = secrets();
    EXPECT_NE(left.find("trusted " + run("sha1sum dawny.crt | cut -c1-40")), std::string::npos) << left;
    EXPECT_EQ(left.find("trusted " + run("sha1sum ca.crt | cut -c1-40")), std::string::npos) << left;
}

// Servers, proxy, settings.

TEST_F(MenuScreen, ServersAreAddedOrderedEditedAndDeletedInTheListOfProfiles) {
    prepare();
    open("2");
    play({{kConfiguration, "2"}});
    // Names come out of a list in upper case.
    for (const auto& [typed, name] : {std::pair{"zegar", "ZEGAR"}, {"budzik", "BUDZIK"}}) {
        play({{"Powrót", "d"}, {"nowy serwer", "\r" + std::string(typed) + "\r"}});
        expectIn("", 2, typed);
        expectIn(keys::kDown + keys::kDown + "\rtsp.example\r", 4, "tsp.example");
        expectIn(keys::kDown + "\r70000\r", 23, "Dopuszczalne wartości: od 0 do 65535");
        expectIn(" \r318\r", 5, "318");
        expectIn(keys::kDown + keys::kDown + keys::kDown + "\rtajne\r", 8, "********");
        EXPECT_FALSE(screen->shows("tajne"));
        screen->send("s");
        message(kChanged);
        screen->waitFor(name + std::string("  HTTP  tsp.example:318"));
    }
    expectIn(keys::kEnd + "p", 2, "BUDZIK");
    play({{"BUDZIK", keys::kHome + "e"},
          {"- BUDZIK", keys::kEnd + keys::kUp + keys::kUp + "\rZa\xc5\x82" + keys::kBackspace + "\r"}});
    play({{"Hasło zawiera niepełny znak, wpisz je jeszcze raz", " "}, {"Hasło: ", keys::kEscape}, {"Powrót", "w"}});
    play({{"BUDZIK", keys::kHome + "e"}, {"Serwery datowania - BUDZIK", keys::kDown + "\r2\r"}});
    expectIn("w", 23, "Zapisać zmiany (t/n)?");
    expectIn("n", 2, "BUDZIK  HTTP  tsp.example:318");
    // Enter alone keeps the port.
    play({{"Edytuj", "e"},
          {"- BUDZIK", "\r" + keys::kDown + keys::kDown + "\r"},
          {"Port: 318", "\rs"},
          {kChanged, " "}});
    expectIn("", 2, "BUDZIK  FTP   tsp.example:318");
    expectIn(keys::kHome + "k", 3, ">BUDZIK");
    expectIn("p", 2, ">BUDZIK");
    expectIn("k", 3, ">BUDZIK");
    play({{"Edytuj", "d"}, {"nowy serwer", "\r  \rs"}, {"Nazwa serwera nie może być pusta", " "}, {"Zapisz", "w"}});
    play({{"Zapisać zmiany (t/n)?", "n"},
          {"Edytuj", "w"},
          {kConfiguration, "6"},
          {"Ustawienia proxy", keys::kDown + "\rproxy.example\r"}});
    screen->send(keys::kDown + "\r8080\rs");
    message(kChanged);
    EXPECT_EQ(leave(kConfiguration), 0);
    open("4");
    play({{"proxy.example:8080", "w"}, {kMainMenu, "2"}, {kConfiguration, "2"}, {"Serwery datowania", ""}});
    expectIn("", 2, "ZEGAR   HTTP  tsp.example:318");
    expectIn("", 3, "BUDZIK  FTP");
    const std::string question = "Czy na pewno chcesz usunąć serwer (t/n)?";
    play({{"Edytuj", "u"}, {question, "n"}, {"ZEGAR", "u"}, {question, "t"}});
    screen->waitGone("ZEGAR");
    EXPECT_EQ(readFile(file("lista.conf")).find("ZEGAR"), std::string::npos);
    EXPECT_NE(readFile(file("lista.conf")).find("BUDZIK"), std::string::npos);
}

TEST_F(MenuScreen, CryptographicSettingsAreShownAgainAfterReopening) {
    prepareKey(true);
    const std::string rows[] = {">Algorytm podpisu:     rsaPSS", " Funkcja skrótu:       sha512",
                                " Algorytm szyfrowania: AES-192 CBC"};
    open("2");
    play({{kConfiguration, "7"}, {"Ustawienia kryptograficzne", "\r" + keys::kDown + "\r\r" + keys::kDown + "\r"}});
    expectRow(keys::kHome, 2, rows[0]);
    play({{"AES-192", "s"}, {kChanged, " "}});
    EXPECT_EQ(leave(kConfiguration), 0);
    open("2");
    play({{kConfiguration, "7"}, {"Ustawienia kryptograficzne", ""}});
    for (int i = 0; i < 3; ++i) expectRow("", 2 + i, rows[i]);
}

TEST_F(MenuScreen, KeysLeaveComeAndGoAndFormerFilesComeBack) {
    prepareKey(true);
    open("14");
    const std::string keysList = "Klucze w pliku bezpieczeństwa",
                      name = "Podaj nazwę pliku z kluczem:", other = "Inne-haslo1";
    play({{"Certyfikat klucza podpisującego", "o"},
          {keysList, "e"},
          {"w osobnym pliku (t/n)?", "t"},
          {"czy PEM?", "e"}});
    play({{name, "~/brak/żółty.pem\r"}, {"Hasło nowego pliku:", other + "\r"}, {kRepeat, other + "\r"}});
    play({{"Nie mogę otworzyć pliku: ~/brak/żółty.pem (nie ma takiego pliku)", " "}, {keysList, "e"}, {"(t/n)?", "t"}});
    play({{"czy PEM?", "P"},
          {name, "~/klucz żółty.p12\r"},
          {"Hasło nowego pliku:", other + "\r"},
          {kRepeat, other + "\r"}});
    play({{"Klucz został zapisany", " "}, {keysList, "u"}, {"UŻYCIU", "n"}, {keysList, "u"}, {"UŻYCIU", "t"}});
    play({{"na dobre", "n"}, {keysList, "u"}, {"UŻYCIU", "t"}, {"na dobre", "t"}, {"Klucz usunięty", " "}});
    play({{"Brak kluczy", "i"},
          {name, "~/klucz żółty.p12\r"},
          {"Hasło tego pliku:", kPassword + "\r"},
          {"Błędne hasło", " "}});
    play({{"Brak kluczy", "i"},
          {name, keys::kUp + "\r"},
          {"Hasło tego pliku:", other + "\r"},
          {"profilu: 1 (t/n)?", "t"}});
    play({{"Wczytano kluczy: 1", " "}, {"Użytkownik", "i"}, {name, keys::kUp + "\r"}, {"Hasło tego", other + "\r"}});
    play({{"(t/n)?", "t"},
          {"Ten klucz już jest w profilu", " "},
          {"Użytkownik", "u"},
          {"(t/n)?", "t"},
          {"na dobre", "t"}});
    play({{"usunięty", " "}, {"Brak kluczy", "h"}, {"Poprzednie pliki", "p"}, {"Wrócić do pliku z", "t"}});
    play({{"Hasło, które plik miał wtedy:", kPassword + "\r"}, {"Otwórz profil jeszcze raz", " "}});
    logIn();
    EXPECT_NE(screen->row(3).find("Użytkown"), std::string::npos) << screen->picture();
    EXPECT_EQ(leave(), 0);
    const std::string read = run("openssl pkcs12 -in 'klucz żółty.p12' -nodes -passin pass:" + other);
    EXPECT_NE(read.find("BEGIN PRIVATE KEY"), std::string::npos);

    save("praca.p12", toBytes(asBytes("damaged")));
    start();
    play(
        {{kSelection, "\r"}, {"Wprowadź hasło", kPassword + "\r"}, {"Błędny format", " "}, {"Pokazać je (t/n)?", "t"}});
    play({{"Poprzednie pliki", "p"},
          {"Wrócić do pliku z", "t"},
          {"Hasło, które", kPassword + "\r"},
          {"nowsze klucze", "t"}});
    play({{"Wprowadź hasło", kPassword + "\r"}});
    EXPECT_EQ(leave(), 0);

    std::filesystem::remove(file("praca.p12"));
    start();
    const Steps creation = fileCreation();
    play({{kSelection, "\r"}, {"Są poprzednie pliki", "n"}, {"M: utwórz z mocną ochroną", "xm"}});
    play({creation.begin() + 1, creation.end()});
    EXPECT_EQ(leave(), 0);
    EXPECT_NE(run("openssl pkcs12 -in praca.p12 -info -noout -passin pass:" + kPassword + " 2>&1").find("PBKDF2"),
              std::string::npos);
}

// Browsers.

TEST_F(MenuScreen, CertificatesArePagedSearchedAndDeleted) {
    prepare();
    const MadeCert ca = makeCert({.subject = {{"CN", "Urząd"}}, .extensions = caExtensions()});
    Bytes all;
    for (int i = 1; i <= 300; ++i) {
        const MadeCert made = makeCert({.subject = {{"CN", "Osoba " + std::to_string(i)}},
                                        .serial = std::to_string(1000 + i),
                                        .notBefore = -9 * kDay,
                                        .notAfter = i == 1 ? -kDay : (i == 2 ? 9 : 90) * kDay},
                                       &ca, ca.key);
        all.insert(all.end(), made.der.begin(), made.der.end());
    }
    save("wiele.der", all);
    save("ca.crl", makeCrl({.entries = {{"1001", 1}, {"1002"}}, .number = 77}, ca));
    open("3");
    play({{kDataBases, "1"}, {"Brak certyfikatów", "dusw"}, {kDataBases, "2"}, {"Brak list CRL", "w"}});
    play({{kDataBases, "3"}, {"Podaj nazwę", "~/wiele.der\r"}, {"Wczytano 300 certyfikatów.", " "}});
    play({{kDataBases, "4"}, {"Podaj nazwe", "~/ca.crl\r"}, {"(t/n)", "t"}, {"poprawnie wczytana", " "}});
    play({{kDataBases, "1"}});
    for (const auto& [typed, row, text] : {Command{"", 2, ">! Osoba 1 "},
                                           {"", 3, " * Osoba 2 "},
                                           {"", 4, "   Osoba 3 "},
                                           {keys::kPageDown, 2, ">  Osoba 20 "},
                                           {keys::kPageDown, 20, "   Osoba 57 "},
                                           {keys::kUp, 2, ">  Osoba 38 "},
                                           {"k", 20, ">  Osoba 300 "},
                                           {keys::kDown, 20, ">  Osoba 300 "},
                                           {keys::kPageUp, 2, "   Osoba 263 "},
                                           {keys::kHome + keys::kPageUp, 2, ">! Osoba 1 "},
                                           {keys::kEnd, 20, ">  Osoba 300 "},
                                           {"P", 2, ">! Osoba 1 "}})
        expectIn(typed, row, text);
    play({{"Osoba 1", "d"}, {"PRZETERMINOWANY od ", "w"}});
    screen->resize(43, 132);
    for (const auto& [typed, row, text] : {Command{"", 39, "   Osoba 38 "},
                                           {keys::kPageDown, 2, ">  Osoba 39 "},
                                           {"k", 39, ">  Osoba 300 "},
                                           {"o", 2, ">! Osoba 1 "},
                                           {"", 4, "   Osoba 100 "},
                                           {keys::kPageDown, 2, ">  Osoba 133 "},
                                           {"o", 1, "Wystawca v"},
                                           {"o", 1, "Ważny do v"},
                                           {"", 3, " * Osoba 2 "}})
        expectIn(typed, row, text);
    screen->resize(15, 60);
    expectIn(keys::kEnd, 11, ">  Osoba 300");
    screen->resize(24, 80);
    expectIn("o", 2, ">! Osoba 1 ");
    const auto search = [&](const std::string& name, const std::string& found) {
        play({{"Szukaj", "z"}, {"Szukanie certyfikatów", "\r" + name + "\r"}});
        expectIn("", 2, name);
        expectIn("s", 0, "Baza certyfikatów - znaleziono: " + found);
    };
    search("oSOBA 29", "11");
    const std::string question = "Czy na pewno chcesz usunąć certyfikat (t/n)?";
    play({{"Osoba 299", keys::kDown + "u"}, {question, "n"}, {"11", "u"}, {question, "t"}});
    play({{"Certyfikat usunięty", " "}, {"znaleziono: 10", ""}});
    expectIn("", 3, "Osoba 291 ");
    play({{"Osoba 291", "d"}, {"CN=Osoba 291", "r"}, {"Ścieżka:", ""}, {"RFC 5280 6.1.1", ""}});
    play({{"no path to a trust point", "w"}, {"Cała baza", "s"}, {"Podaj nazwę", "~/jeden.crt\r"}});
    message(kSaved);
    search("Osoba 290", "0");
    EXPECT_EQ(screen->row(22).find("Dane"), std::string::npos);
    play({{"Brak certyfikatów", "b"}, {"Osoba 19 ", "w"}});
    EXPECT_NE(run("openssl x509 -inform DER -in jeden.crt -noout -subject").find("Osoba 291"), std::string::npos);
    play({{kDataBases, "2"}, {"Baza list CRL", ""}});
    expectIn("", 2, "> ? Urząd ");
    EXPECT_EQ(screen->row(2).substr(screen->row(2).size() - 2), " 2");
    play({{"77", "d"}, {"NIEZWERYFIKOWANA", ""}, {"10 01", ""}, {"10 02", "w"}, {"Zapisz", "s"}});
    play({{"Podaj nazwę pliku listy CRL:", "~/zapis.crl\r"}, {kSaved, " "}, {"Usuń", "u"}});
    play({{"Czy na pewno chcesz usunąć listę CRL (t/n)?", "n"}, {"77", "u"}, {"(t/n)?", "t"}});
    play({{"Lista CRL usunięta", " "}, {"Brak list CRL", "w"}});
    EXPECT_EQ(leave(kDataBases), 0);
    EXPECT_EQ(readFile(file("zapis.crl")), readFile(file("ca.crl")));
}

}  // namespace
}  // namespace crv::test
