/* A program of somebody else's: plain C against the installed library. Works on the list that its argument names and says
 * what it saw; exits with the number of its failed checks. */
#include <corvane/crvapi.h>
#include <stddef.h>
#include <stdio.h>
#include <string.h>

static CRVctx *ctx;
static int failed;

#define CHECK(condition) check(condition, #condition, __LINE__)

static void check(int held, const char *condition, int line) {
    if (held) return;
    ++failed;
    printf("line %d: %s\n", line, condition);
}

static const char *attribute(const CrvProfile *profile, long id) {
    static char value[256];
    long len = sizeof value - 1;
    int code = crvGetProfileAttrAPI(ctx, profile, id, value, &len);
    value[code ? 0 : len] = '\0';
    return value;
}

static void setText(CrvProfile *profile, long id, const char *value) {
    CHECK(crvSetProfileAttrAPI(ctx, profile, id, value, (long)strlen(value)) == CRV_OK);
}

static void createProfile(const char *list, const char *name, long type) {
    CrvProfile *profile = crvCreateProfileAPI(ctx, type);
    const CrvSrvParams crl = {sizeof(CrvSrvParams), "Ldap", CRVSRV_USAGE_CRL, CRVSRV_TYPE_LDAP, "ldap.pl", 389, "o=CA", NULL, "tajne", NULL, 0, NULL, 0, 0, CRVSRV_TLS_START};
    CHECK(profile != NULL);
    CHECK(crvWriteProfileAPI(ctx, profile, CRVPROFILE_MEDIA_FILE, list) == ECRV_NO_PROFILE_NAME);
    setText(profile, CRVPROFILE_ATTR_NAME, name);
    setText(profile, CRVPROFILE_ATTR_DB_TYPE, "corvane");
    CHECK(crvAddSrvAPI(ctx, profile, &crl) == CRV_OK);
    CHECK(crvAddSrvAPI(ctx, profile, &crl) == ECRV_SRV_EXIST);
    CHECK(crvInsertProxyAPI(ctx, profile, "proxy.pl", 8080, NULL, NULL) == CRV_OK);
    CHECK(crvAddAcceptedExtKeyUsageAPI(ctx, profile, "1.2.3", "moje") == CRV_OK);
    CHECK(crvAddAcceptedExtKeyUsageAPI(ctx, profile, "1..3", "x") == ECRV_INV_REG);
    CHECK(strcmp(crvErrorTextAPI(ctx, ECRV_INV_REG),
                 "Brak poprawnej konfiguracji w rejestrze !!!: Niepoprawny identyfikator rozszerzenia") == 0);
    CHECK(crvWriteProfileAPI(ctx, profile, CRVPROFILE_MEDIA_FILE, list) == CRV_OK);
    CHECK(crvFreeProfileAPI(ctx, profile) == CRV_OK);
}

static void listProfiles(const char *list) {
    CrvProfileIterator *iterator = NULL;
    CrvProfile *profile;
    long count = 0;
    CHECK(crvGetProfileIteratorAPI(ctx, CRVPROFILE_MEDIA_FILE, list, &count, &iterator) == CRV_OK);
    printf("%ld:", count);
    while ((profile = crvGetNextProfileAPI(ctx, iterator)) != NULL) {
        printf(" %s", attribute(profile, CRVPROFILE_ATTR_NAME));
        printf("/%s", attribute(profile, CRVPROFILE_ATTR_TYPE_TEXT));
        CHECK(crvFreeProfileAPI(ctx, profile) == CRV_OK);
    }
    printf("\n");
    CHECK(crvFreeProfileIteratorAPI(ctx, iterator) == CRV_OK);
}

static void changeAttributes(const char *list) {
    CrvProfile *profile = crvReadProfileAPI(ctx, CRVPROFILE_MEDIA_FILE, list, "Karta");
    char label[33];
    char small[4];
    long len = sizeof small;
    CHECK(profile != NULL);
    CHECK(crvGetProfileAttrAPI(ctx, profile, CRVPROFILE_ATTR_SKEY_TOK, label, &len) == ECRV_ATTR_HAS_NO_VALUE);
    CHECK(crvSetProfileAttrAPI(ctx, profile, CRVPROFILE_ATTR_SKEY_TOK, NULL, 0) == CRV_OK);
    CHECK(crvGetProfileAttrAPI(ctx, profile, CRVPROFILE_ATTR_SKEY_TOK, label, &len) == ECRV_ATTR_HAS_DEFAULT_VALUE);
    setText(profile, CRVPROFILE_ATTR_SKEY_TOK, "Token");
    len = sizeof small;
    CHECK(crvGetProfileAttrAPI(ctx, profile, CRVPROFILE_ATTR_SKEY_TOK, small, &len) == ECRV_BUFF_TO_SHORT && len == 32);
    CHECK(crvSetProfileAttrAPI(ctx, profile, CRVPROFILE_ATTR_PKCS12_FILE, "x", 1) == ECRV_API_INV_PAR);
    CHECK(crvSetProfileAttrAPI(ctx, profile, CRVPROFILE_ATTR_READER_NAME, "x", -1) == ECRV_API_INV_PAR);
    CHECK(crvSetProfileAttrAPI(ctx, profile, CRVPROFILE_ATTR_DB_TYPE, "inna", 4) == ECRV_API_INV_PAR);
    CHECK(crvWriteProfileAPI(ctx, profile, CRVPROFILE_MEDIA_FILE, list) == CRV_OK);
    CHECK(crvFreeProfileAPI(ctx, profile) == CRV_OK);
    profile = crvReadProfileAPI(ctx, CRVPROFILE_MEDIA_FILE, list, "KARTA");
    printf("[%s]\n", attribute(profile, CRVPROFILE_ATTR_SKEY_TOK));
    CHECK(crvLoadProfileAPI(ctx, profile) == CRV_OK);
    CHECK(crvFreeProfileAPI(ctx, profile) == CRV_OK);
}

static void readServers(const char *list) {
    CrvProfile *profile = crvReadProfileAPI(ctx, CRVPROFILE_MEDIA_FILE, list, "Plik");
    CrvServerIterator *iterator = NULL;
    CrvSrvParams server;
    CrvProxy proxy;
    char oid[16], description[16];
    long count = 0, oidLen = sizeof oid, descriptionLen = sizeof description;
    int use = 0;
    server.size = sizeof server;
    proxy.size = sizeof proxy;
    CHECK(crvGetServerIteratorAPI(ctx, profile, CRVSRV_USAGE_CRL, NULL, 0, &count, &iterator) == CRV_OK && count == 1);
    CHECK(crvGetNextServerAPI(ctx, iterator, &server) == CRV_OK);
    printf("%s %s:%ld/%s %s\n", server.name, server.addr, server.port, server.path, server.pass);
    CHECK(crvGetNextServerAPI(ctx, iterator, &server) == ECRV_SRV_NOT_FND);
    CHECK(crvFreeServerIteratorAPI(ctx, iterator) == CRV_OK);
    CHECK(crvDelSrvAPI(ctx, profile, NULL) == ECRV_API_INV_PAR);
    CHECK(crvGetServerAPI(ctx, profile, CRVSRV_USAGE_OCSP, NULL, 0, 0, &server) == ECRV_SRV_NOT_FND);
    CHECK(crvGetSrvListForCaAPI(ctx, profile, CRVSRV_USAGE_CRL, NULL, 0, &count, &iterator) == CRV_OK && count == 1);
    CHECK(crvFreeServerIteratorAPI(ctx, iterator) == CRV_OK);
    CHECK(crvFindSrvAPI(ctx, profile, "LDAP", &server) == CRV_OK);
    server.port = 636;
    server.tls = CRVSRV_TLS_NONE;
    server.size = (long)offsetof(CrvSrvParams, tls); /* a program of before: it knows of no TLS */
    CHECK(crvUpdateSrvAPI(ctx, profile, &server) == CRV_OK);
    server.size = sizeof server;
    CHECK(crvFindSrvAPI(ctx, profile, "LDAP", &server) == CRV_OK && server.tls == CRVSRV_TLS_START && server.port == 636);
    CHECK(crvMoveSrvFirstAPI(ctx, profile, "ldap") == CRV_OK);
    CHECK(crvMoveSrvLastAPI(ctx, profile, "brak") == ECRV_SRV_NOT_FND);
    CHECK(crvDelSrvAPI(ctx, profile, "ldap") == CRV_OK);
    CHECK(crvGetProxyAPI(ctx, profile, &proxy) == CRV_OK && strcmp(proxy.addr, "proxy.pl") == 0 && proxy.port == 8080);
    CHECK(crvGetProxyForUrlAPI(ctx, profile, "ldap://a", &proxy) == CRV_OK && proxy.addr[0] == '\0');
    CHECK(crvUseProxyForSpecifiedUrlAPI(ctx, profile, "http://a", &use) == CRV_OK && use == 1);
    CHECK(crvSetUseProxyFromSystemSettingsAPI(ctx, profile, 0) == CRV_OK);
    CHECK(crvDeleteProxyAPI(ctx, profile) == CRV_OK);
    CHECK(crvGetAcceptedExtKeyUsagesCountAPI(ctx, profile, &count) == CRV_OK && count == 1);
    CHECK(crvGetAcceptedExtKeyUsageAPI(ctx, profile, 0, oid, &oidLen, description, &descriptionLen) == CRV_OK);
    CHECK(oidLen == 5 && memcmp(oid, "1.2.3", 5) == 0 && descriptionLen == 4 && memcmp(description, "moje", 4) == 0);
    CHECK(crvGetAcceptedExtKeyUsageAPI(ctx, profile, 1, oid, &oidLen, description, &descriptionLen) == ECRV_API_INV_PAR);
    CHECK(crvDelAcceptedExtKeyUsageAPI(ctx, profile, "1.2.3") == CRV_OK);
    CHECK(crvDelAcceptedExtKeyUsageAPI(ctx, profile, "1.2.3") == ECRV_API_INV_PAR);
    CHECK(crvFreeProfileAPI(ctx, profile) == CRV_OK);
}

static void useOptions(void) {
    long value = 0;
    CHECK(crvGetOptionAPI(ctx, 17, &value) == CRV_OK && value == 30);
    CHECK(crvSetOptionAPI(ctx, 17, 5) == CRV_OK && crvGetOptionAPI(ctx, 17, &value) == CRV_OK && value == 5);
    CHECK(crvSetTextOptionAPI(ctx, 36, "tekst") == CRV_OK && strcmp(crvGetTextOptionAPI(ctx, 36), "tekst") == 0);
    CHECK(crvSetGlobalOption(44, 1) == CRV_OK && crvGetGlobalOption(44, &value) == CRV_OK && value == 1);
    CHECK(crvStorePINUtf8API(ctx, 1, "1234") == CRV_OK && crvCleanPINAPI(ctx, 1) == CRV_OK);
    CHECK(crvGetPINInfo(ctx, 2, &value) == CRV_OK && value == 1);
}

static void meetErrors(const char *list) {
    CRVctx *other = (CRVctx *)(void *)"no context at all, whatever it says here";
    CrvProfileIterator *iterator = NULL;
    CHECK(crvGetOptionAPI(other, 17, NULL) == ECRV_API_INV_CTX);
    CHECK(crvGetOptionAPI(NULL, 17, NULL) == ECRV_API_INV_PAR);
    CHECK(crvReadProfileAPI(ctx, CRVPROFILE_MEDIA_FILE, list, "Brak") == NULL && crvGetLastCodeAPI(ctx) == ECRV_PROFILE_NOT_LOADED);
    CHECK(crvReadProfileAPI(ctx, 3, list, "Plik") == NULL);
    CHECK(crvGetProfileIteratorAPI(ctx, CRVPROFILE_MEDIA_FILE, "/brak", NULL, &iterator) == ECRV_PROFILE_LOAD_ERROR);
    printf("%s\n", crvErrorTextAPI(ctx, ECRV_PROFILE_LOAD_ERROR));
    printf("%s\n", crvErrorText(NULL, 9999));
    CHECK(crvInitExAPI(&other, CRVPROFILE_MEDIA_FILE, list, "Brak") == ECRV_PROFILE_NOT_LOADED && other == NULL);
    CHECK(crvInitExAPI(&other, CRVPROFILE_MEDIA_FILE, list, "Plik") == CRV_OK);
    CHECK(crvDeinitExAPI(other) == CRV_OK);
}

int main(int argc, char **argv) {
    if (argc != 2) return 99;
    CHECK(crvVersionAPI() == CRV_VERSION_NUMBER && strcmp(crvVersionTextAPI(), CRV_VERSION_TEXT) == 0);
    CHECK(crvInitExAPI(&ctx, 0, NULL, NULL) == CRV_OK);
    createProfile(argv[1], "Plik", CRVPROFILE_TYPE_PKCS12);
    createProfile(argv[1], "Karta", CRVPROFILE_TYPE_PKCS11);
    listProfiles(argv[1]);
    changeAttributes(argv[1]);
    readServers(argv[1]);
    useOptions();
    meetErrors(argv[1]);
    CHECK(crvRemoveProfileAPI(ctx, CRVPROFILE_MEDIA_FILE, argv[1], "plik") == CRV_OK);
    CHECK(crvRemoveProfileAPI(ctx, CRVPROFILE_MEDIA_FILE, argv[1], "a\\b") == ECRV_API_INV_PAR);
    listProfiles(argv[1]);
    CHECK(crvDeinitExAPI(ctx) == CRV_OK);
    return failed;
}
