/* Result codes of the Corvane library: numbers, names and Polish texts (UTF-8) in one list. Usable from C and C++.
 *
 * Codes below 20 are successes: 0 plain, 1 to 3 with a note on where the keys are, 10 with warnings. 20 and above are
 * failures. The numbers have gaps and the list is not sorted; crvErrorTextAPI gives the text of any number. */
#ifndef CORVANE_CRVERRORS_H
#define CORVANE_CRVERRORS_H

/* The list. ROW(number, name, text) is a code. SAME(number, constant, name, text) is a code whose name repeats the name
 * of another row: 133 (the attribute holds its default) is named like 134 (the attribute has no value), so its constant
 * differs from its name. */
/* clang-format off */
#define CRV_ERROR_LIST(ROW, SAME) \
    ROW(0, CRV_OK, "OK") \
    ROW(1, CRV_OK_NEED_CARD, "OK, klucze na karcie procesorowej") \
    ROW(2, CRV_OK_NEED_CRYPTO_CARD, "OK, klucze na karcie kryptoptocesorowej") \
    ROW(3, CRV_OK_NEED_TARVO, "OK, klucze na Ardent Tarvo") \
    ROW(10, WCRV_GENERIC_WARNING, "Wystąpiły ostrzeżenia: użyj crvGetWarnings aby je pobrać !!!") \
    ROW(20, ECRV_API_INV_PAR, "Błędny parametr wywołania funkcji API !!!") \
    ROW(21, ECRV_API_INV_CTX, "Błędny kontekst podany funkcji API !!!") \
    ROW(22, ECRV_API_NOT_INITED, "API nie zainicjowane !!!") \
    ROW(24, ECRV_INV_REG, "Brak poprawnej konfiguracji w rejestrze !!!") \
    ROW(25, ECRV_KEYS_NOT_PRES, "Klucze lub certyfikaty użytkownika nie zainstalowane !!!") \
    ROW(27, ECRV_WSOCK, "Błąd inicjowania biblioteki Windows Socket !!!") \
    ROW(28, ECRV_NO_SKEY_PATH, "Brak możliwości zbudowania ścieżki certyfikacji dla klucza podpisującego !!!") \
    ROW(29, ECRV_EKEYS_NOT_PRES, "Klucz lub certyfikat do szyfrowania niezainstalowany !!!") \
    ROW(30, ECRV_SKEYS_NOT_PRES, "Klucz lub certyfikat do podpisywania niezainstalowany !!!") \
    ROW(31, ECRV_SEED_NOT_PRES, "Brak ziarna !!!") \
    ROW(32, ECRV_CONF_NOT_PRES, "Brak konfiguracji !!!") \
    ROW(33, ECRV_TOO_MANY_KEYS, "Zbyt wiele kluczy pasujących do profilu użytkownika !!!") \
    ROW(34, ECRV_TOO_MANY_EKDS, "Zbyt wiele kart EKD pasujących do profilu użytkownika !!!") \
    ROW(35, ECRV_SGN_PIN_NOT_PRES, "Brak PINu tokena zawierającego klucz do podpisywania !!!") \
    ROW(36, ECRV_DEC_PIN_NOT_PRES, "Brak PINu tokena zawierającego klucz do deszyfrowania !!!") \
    ROW(37, ECRV_TRV_LIB, "Nieznaleziona biblioteka urządzenia Ardent Tarvo !!!") \
    ROW(38, ECRV_TRV_NOT_FOUND, "Nieznaleziono zainicjowanego urządzenia Ardent Tarvo !!!") \
    ROW(39, ECRV_TRV, "Urządzenie Ardent Tarvo zwróciło błąd nr %X !!!") \
    ROW(40, ECRV_EKD_NOT_FOUND, "Karta EKD nie została znaleziona !!!") \
    ROW(41, ECRV_NO_PKCS_LIB, "Nie zdefiniowano biblioteki PKCS#11 !!!") \
    ROW(42, ECRV_PKCS_LIB_INIT, "Błąd inicjowania biblioteki PKCS#11 !!!") \
    ROW(43, ECRV_CRD_NOT_FOUND, "Karta nie została znaleziona !!!") \
    ROW(44, ECRV_CRD_COM, "Błąd komunikacji z kartą !!!") \
    ROW(45, ECRV_CRD_BLOCKED, "Karta zablokowana !!!") \
    ROW(46, ECRV_PASSWORD, "Błędne hasło/PIN lub naruszona integralność pliku bezpieczeństwa !!!") \
    ROW(56, ECRV_OP_INFILE, "Błąd otwarcia pliku wejściowego !!!") \
    ROW(57, ECRV_OP_OUTFILE, "Błąd otwarcia pliku wyjściowego !!!") \
    ROW(58, ECRV_OP_TMPFILE, "Błąd otwarcia pliku tymczasowego !!!") \
    ROW(59, ECRV_RD_INFILE, "Błąd odczytu pliku wejściowego !!!") \
    ROW(60, ECRV_RD_TMPFILE, "Błąd odczytu pliku tymczasowego !!!") \
    ROW(61, ECRV_WR_TMPFILE, "Błąd zapisu pliku tymczasowego !!!") \
    ROW(62, ECRV_WR_OUTFILE, "Błąd zapisu pliku wyjściowego !!!") \
    ROW(63, ECRV_NO_CA_AUTO_CRT, "Certyfikat nie jest autocertyfikatem CCK") \
    ROW(64, ECRV_CRTAFTER, "Przeterminowany certyfikat !!!") \
    ROW(65, ECRV_CRTBEFORE, "Certyfikat przed okresem ważności !!!") \
    ROW(66, ECRV_CRTALG, "Nieznany algorytm wewnątrz certyfikatu !!!") \
    ROW(67, ECRV_CRTNOTFOUND, "Nie mogę znaleźć certyfikatu do weryfikacji scieżki !!!") \
    ROW(68, ECRV_CRTREV, "Unieważniony certyfikat !!!") \
    ROW(69, ECRV_CRTHANG, "Zawieszony certyfikat !!!") \
    ROW(70, ECRV_CRTSIGN, "Błędny podpis pod certyfikatem !!!") \
    ROW(71, ECRV_CRTPOL, "Certyfikat na ścieżce nie zawiera akceptowanych polityk") \
    ROW(72, ECRV_USERCRT, "Nie mogę znaleźć certyfikatu użytkownika !!!") \
    ROW(73, ECRV_INV_CRT_FMT, "Błędny format certyfikatu") \
    ROW(74, ECRV_INV_CRT_PROF, "Profil wskazanego certyfikatu jest niezgodny z wymaganiami pakietu !!!") \
    ROW(75, ECRV_NOT_MY_CA, "Wskazany certyfikat nie jest podpisany przez urząd ds. certyfikatów, którego klucz użytkownik posiada !!!") \
    ROW(76, ECRV_UNP_KEY_CRT, "Użytkownik nie posiada klucza prywatnego, który jest do pary ze wskazanym certyfikatem !!!") \
    ROW(77, ECRV_DEKKEY, "Błędny format klucza sesyjnego !!!") \
    ROW(78, ECRV_DESPAD, "Błąd dopełnienia DES !!!") \
    ROW(79, ECRV_DESMOD8, "Długość zaszyfrowanego DES-em pliku nie jest wielokrotnością 8 bajtów !!!") \
    ROW(80, ECRV_RSA, "Błąd szyfrowania RSA !!!") \
    ROW(81, ECRV_PUBKEY, "Błędny klucz publiczny w przekształceniu RSA !!!") \
    ROW(82, ECRV_SECKEY, "Błędny klucz prywatny w przekształceniu RSA !!!") \
    ROW(83, ECRV_SFT_OPEN, "Błąd otwarcia pliku bezpieczeństwa !!!") \
    ROW(84, ECRV_SFT_FMT, "Błędny format pliku bezpieczeństwa !!!") \
    ROW(85, ECRV_SFT_READ, "Błąd odczytu pliku bezpieczeństwa !!!") \
    ROW(86, ECRV_SFT_WRITE, "Błąd zapisu pliku bezpieczeństwa !!!") \
    ROW(87, ECRV_OLD_CRL, "Próba odbioru przeterminowanej wiadomości CRL !!!") \
    ROW(88, ECRV_INV_CRL_FMT, "Błędny format listy CRL !!!") \
    ROW(89, ECRV_INV_CRV_MSG, "Błędny format wiadomości CORVANE !!!") \
    ROW(90, ECRV_NO_CRV_MSG, "Plik wejściowy nie jest w formacie CORVANE !!!") \
    ROW(91, ECRV_CANT_FIND_DN, "Nie mogę znaleźć ważnego certyfikatu odbiorcy wiadomości !!!") \
    ROW(92, ECRV_DIGALG, "Nieznany algorytm skrótu !!!") \
    ROW(93, ECRV_SYMALG, "Nieznany algorytm szyfrowania !!!") \
    ROW(94, ECRV_MSGSIGN, "Błędny podpis pod wiadomością !!!") \
    ROW(95, ECRV_NOTADDR, "Wiadomość nie jest adresowana do danego użytkownika !!!") \
    ROW(96, ECRV_RECCRT, "Nie mogę znaleźć certyfikatu odbiorcy !!!") \
    ROW(97, ECRV_WRIMSG, "Błąd podczas zapisu wiadomości PEM !!!") \
    ROW(98, ECRV_FILE, "Błąd operacji plikowej !!!") \
    ROW(99, ECRV_LOCK, "Błąd blokady pliku !!!") \
    ROW(100, ECRV_MEM, "Brak pamięci !!!") \
    ROW(101, ECRV_CRL_EXPIRED, "Brak aktualnej wiadomości CRL !!!") \
    ROW(102, ECRV_CRL_NOT_FOUND, "Lista CRL nie znaleziona !!!") \
    ROW(103, ECRV_TCP_CON, "Błąd nawiązywania połączenia TCP/IP z serwerem certyfikatów i CRL !!!") \
    ROW(104, ECRV_TCP_SOCK, "Błąd gniazdka TCP/IP !!!") \
    ROW(105, ECRV_TCP_CLOSED, "Serwer certyfikatów i list CRL zamknął połączenie TCP/IP !!!") \
    ROW(106, ECRV_TCP_TIMEOUT, "Wystąpił timeout w komunikacji TCP/IP !!!") \
    ROW(107, ECRV_TCP_PROT, "Odebrano niepoprawne dane z serwera !!!") \
    ROW(108, ECRV_TCP_NO_SRV, "Brak skonfigurowanego serwera !!!") \
    ROW(109, ECRV_SRV_BAD_CA, "Serwer CRL nalezy do niewlasciwego urzedu !!!") \
    ROW(110, ECRV_SRV_NO_CRL, "Brak listy CRL na serwerze !!!") \
    ROW(111, ECRV_DC_CRL_FMT, "Niepoprawny format listy CRL otrzymanej z harrow DC !!!") \
    ROW(112, ECRV_DC_CRL_ISS, "Lista nie może zostać odbezpieczona przy pomocy posiadanego klucza urzędu !!!") \
    ROW(113, ECRV_INV_WRK_MODE, "Niewłaściwy tryb pracy !!!") \
    ROW(118, ECRV_LOG, "Usługa logu nie została uruchomiona !!!") \
    ROW(119, ECRV_MSGSIGN_STR, "Niepoprawna struktura podpisu pod wiadomością !!!") \
    ROW(114, ECRV_KEY_IMP_DEV, "Nośnik klucza nie umożliwia jego importu !!!") \
    ROW(115, ECRV_INV_KEY_FMT, "Niepoprawny format importowanego klucza !!!") \
    ROW(116, ECRV_INV_KEY_PASS, "Niepoprawne hasło chroniące importowany klucz !!!") \
    ROW(117, ECRV_INV_KEY_PROT, "Nieznany algorytm ochrony importowanego klucza !!!") \
    ROW(120, ECRV_BUFF_TO_SHORT, "Zbyt krótki bufor !!!") \
    ROW(122, ECRV_NO_SENDR_CRT, "Brak certyfikatu autora podpisu !!!") \
    ROW(123, ECRV_DN_NOT_PRESENT, "Identyfikator wyróżniający jest nieobecny !!!") \
    ROW(124, ECRV_TS_REQ_SIGN, "Błąd przy podpisywaniu żądania znacznika czasu !!!") \
    ROW(125, ECRV_TS_NO_SERVER_DEF, "Brak zdefiniowanego serwera znakowania czasu !!!") \
    ROW(126, ECRV_TS_NETWORK_FAIL, "Błąd przy pobieraniu znacznika czasu z sieci !!!") \
    ROW(127, ECRV_TS_VERIF, "Weryfikacja znacznika czasu nie powiodła sie !!!") \
    ROW(128, ECRV_TS_ALL_SERVERS_FAIL, "Z żadnego serwera nie udało się pobrać znacznika czasu !!!") \
    ROW(129, ECRV_PROFILE_NOT_LOADED, "Nie załadowano profilu !!!") \
    ROW(130, ECRV_PKCS_NOT_INIT, "Błąd podczas inicjowania biblioteki PKCS#11 !!!") \
    ROW(131, ECRV_KEY_NOT_FOUND, "Brak klucza odpowiadającego profilowi !!!") \
    ROW(132, ECRV_TRUSTED_CA_DIFFERENT_GROUP, "Punkt zaufania istnieje w innej grupie !!!") \
    SAME(133, ECRV_ATTR_HAS_DEFAULT_VALUE, ECRV_ATTR_HAS_NO_VALUE, "Atrybut profilu ma wartość domyślną") \
    ROW(134, ECRV_ATTR_HAS_NO_VALUE, "Atrybut profilu nie ma wartości") \
    ROW(135, ECRV_KEYLEN_NOT_TARVOS, "Długość klucza nie jest wspierana przez Tarvo !!!") \
    ROW(136, ECRV_VALUE_OUTOF_RANGE, "Wartość poza zakresem stosowanych typów danych !!!") \
    ROW(137, ECRV_NOT_IMPL, "Funkcjonalność niedostępna dla aktualnego nośnika !!!") \
    ROW(138, ECRV_XML_INV_POINTER, "Błędny wskaźnik XPointer lub wyrażenie zwraca więcej niż 1 węzeł !!!") \
    ROW(139, ECRV_XML_EMPTY_TRANSFORM, "Transformacja XML zwróciła puste dane !!!") \
    ROW(140, ECRV_XML_TRANSFORM_FAILED, "Transformacja XML nie powiodła się !!!") \
    ROW(141, ECRV_INTERNAL_ERROR, "Wewnętrzny błąd Corvane !!!") \
    ROW(144, ECRV_ROOTS_PIN_NOT_PRES, "Brak PINu do nośnika punktów zaufania !!!") \
    ROW(145, ECRV_TRV_DLL_FNC_LOAD_ERR, "Błąd podczas ładowania funkcji z biblioteki urządzenia Ardent Tarvo !!!") \
    ROW(146, ECRV_ROOTS_PASSWORD, "Błędne hasło lub naruszona integralność nośnika punktów zaufania !!!") \
    ROW(147, ECRV_TOO_MANY_TOKENS, "Zbyt wiele tokenów pasujących do profilu użytkownika !!!") \
    ROW(148, ECRV_CRT_WITH_SUCH_USAGE_EXISTS, "Certyfikat do tego zastosowania już istnieje !!!") \
    ROW(149, ECRV_KEY_WITH_SUCH_USAGE_EXISTS, "Klucz do tego zastosowania już istnieje !!!") \
    ROW(150, ECRV_SGN_KEY_PIN_NOT_PRES, "Brak PINu klucza do podpisywania !!!") \
    ROW(151, ECRV_SGN_KEY_PASSWORD, "Błędny PIN klucza do podpisywania !!!") \
    ROW(152, ECRV_SRV_EXIST, "Serwer o takiej nazwie jest już skonfigurowany !!!") \
    ROW(153, ECRV_TOO_MANY_CONTEXTS, "Próba utworzenia zbyt dużej liczby kontekstów kryptograficznych !!!") \
    ROW(154, ECRV_RECERTIFICATION_WITH_DIFF_DN, "Wykryto klucz recertyfikowany dla różnych identyfikatorów wyróżniających !!!") \
    ROW(155, ECRV_PATH_VER_ERR, "Błąd weryfikacji ścieżki !!!") \
    ROW(156, ECRV_ADD_ARCHIVE_ERROR, "Błąd tworzenia archiwalnej formy podpisu !!!") \
    ROW(158, ECRV_DB, "Błąd bazy danych !!!") \
    ROW(159, ECRV_SIG_WITH_DIG_NOT_SUPPORTED, "Skonfigurowana funkcja skrótu nie jest wspierana z aktualnym algorytmem klucza asymetrycznego !!!") \
    ROW(160, ECRV_DB_VER, "Niepoprawna wersja bazy danych") \
    ROW(161, ECRV_UNKNOWN_EXCEPTION, "Nieznany wyjątek") \
    ROW(163, ECRV_PROFILE_LOAD_ERROR, "Błąd przy ładowaniu profilu profilu CORVANE") \
    ROW(164, ECRV_TEXT_CONVERT, "Błąd konwersji znaków z jednego systemu na inny") \
    ROW(165, ECRV_ACTION_CANCELLED, "Użytkownik anulował akcję") \
    ROW(167, ECRV_DB_ACCESS, "Brak uprawnień do bazy danych") \
    ROW(168, ECRV_SRV_NOT_FND, "Serwer nie znaleziony") \
    ROW(169, ECRV_CRL_HTTPS_RECURENCE, "Rekurencja : żeby pobrać CRL po https trzeba zweryfikować certyfikat serwera, żeby zweryfikować certyfikat serwera trzeba pobrać CRL") \
    ROW(170, ECRV_INV_TSL_FORMAT, "Błędny format listy TSL") \
    ROW(171, ECRV_NO_ROOTS, "Nie zdefiniowano dodatkowego nośnika punktów zaufania") \
    ROW(172, ECRV_FILE_NOT_SGN_FOR_COUNTERSGN, "Kontrasygnatę można dodawać do dokumentów wyłącznie podpisanych. Dokument nie może być zaszyfrowany.") \
    ROW(173, ECRV_TS_REJECTED, "Żądanie wystawienia znacznika czasu zostało odrzucone przez serwer") \
    ROW(174, ECRV_LIBCORVPP_TEST_FAILED, "Błąd testów poprawności biblioteki kryptograficznej libcorvpp") \
    ROW(177, ECRV_NO_PROFILE_NAME, "Nie podano nazwy profilu Corvane") \
    ROW(178, ECRV_PDF_APP_INV_PAGE_NUM, "Numer strony w dokumencie PDF, na której należy umieścić wizualizację podpisu jest poza zakresem stron") \
    ROW(179, ECRV_PDF_APP_INV_RECT, "Prostokąt wyznaczający miejsce na wizualizację podpisu leży poza obrębem strony") \
    ROW(180, ECRV_PDF_IS_ENCRYPTED, "Nie można podpisac dokumentu PDF ponieważ jest on zaszyfrowany") \
    ROW(181, ECRV_UNSUPPORTED_ALGO_CERT_VERSION, "Algorytm jest niedostępny w certyfikowanej wersji biblioteki") \
    ROW(182, ECRV_UNSUPPORTED_KEY_LEN_CERT_VERSION, "Klucze do podpisów i szyfrowania o długości mniejszej niż 2048 bitów nie są wspierane w certyfikowanej wersji pakietu CORVANE") \
    ROW(183, ECRV_XML_INV_FMT, "Nieprawidłowy format dokumentu xml") \
    ROW(184, ECRV_CSP_ACQUIRE_CONTEXT, "Błąd pobierania kontekstu CSP") \
    ROW(185, ECRV_CSP_KEYSET, "Nie znaleziono zestawu kluczy użytkownika") \
    ROW(186, ECRV_PKCS11_ERR, "Błąd biblioteki PKCS#11") \
    ROW(187, ECRV_ECIES_SECRET_GEN, "Błąd generowania sekretu z wykorzystaniem schematu ECIES") \
    ROW(188, ECRV_UNSUPPORTED_KEY_ALGO, "Nie można wykonać żądanej operacji ze względu na niewłaściwy algorytm klucza użytkownika") \
    ROW(189, ECRV_EU_TSL_NOT_LOADED, "Europejska lista TSL (lista list TSL) nie została załadowana") \
    ROW(190, ECRV_DETACHED_FILE_MISSING, "Błąd otwarcia odłączonego pliku") \
    ROW(191, ECRV_PL_TSL_NOT_LOADED, "Polska lista TSL nie została załadowana") \
    ROW(192, ECRV_UNSUPPORTED_CURVE_CERT_VERSION, "Klucze do podpisów i szyfrowania o rzędzie ciała krzywej mniejszym niż 160 bitów nie są wspierane w certyfikowanej wersji biblioteki") \
    ROW(193, ECRV_UNSUPPORTED_KEY_ALGO_CERT_VERSION, "Klucze DSA nie są wspierane w certyfikowanej wersji biblioteki") \
    ROW(194, ECRV_SGN_TOKEN_NOT_FOUND, "Brak tokenu z kluczem do podpisu") \
    ROW(195, ECRV_RSIGN_IS_UNSUPPORTED, "Podpisy RSign nie są wspierane w bieżącej bibliotece PKCS#11. Aby skorzystać z podpisów RSign pobierz najnowszą wersję oprogramowania karty ze strony jej producenta") \
    ROW(196, ECRV_RSIGN_SIGN_CANCELLED, "Transakcja podpisu nie została potwierdzona w aplikacji rSign.") \
    ROW(197, ECRV_KEY_AND_DIGEST_LEN_NOT_MATCHING, "Długość klucza nie zgadza się z długością skrótu do podpisania.") \
    ROW(198, ECRV_CRL_NOT_VALID_YET, "Czas utworzenia listy CRL jest późniejszy niż aktualny czas.") \
    ROW(199, ECRV_CRL_INV_SIGN, "Błąd weryfikacji podpisu pod listą CRL.") \
    ROW(200, ECRV_CRL_PATH_BUILD_ERROR, "Błąd budowy ścieżki certyfikatów dla listy CRL.") \
    ROW(201, ECRV_CRL_VERIF_ERR, "Wystąpił błąd weryfikacji listy CRL.")
/* clang-format on */

#define CRV_ERROR_ROW(number, name, text) name = (number),
#define CRV_ERROR_SAME(number, constant, name, text) constant = (number),
enum CrvError { CRV_ERROR_LIST(CRV_ERROR_ROW, CRV_ERROR_SAME) CRV_ERROR_LIST_END = -1 };
#undef CRV_ERROR_ROW
#undef CRV_ERROR_SAME

#endif
