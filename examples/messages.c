/* What a program does with a profile: signs a file, verifies the signature, encrypts the file and decrypts it again.
 *
 * usage: messages <profile list> <profile> <file>     with the password of the key store in CORVANE_PASSWORD
 * It writes <file>.p7s (the signature beside the file) and <file>.p7m (the file, encrypted for the profile itself).
 *
 * cc messages.c $(pkg-config --cflags --libs corvane) -o messages */
#include <corvane/crvapi.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

static CRVctx *ctx;

/* Ends the program when a call failed, with what the library knows of it. 10 is a success with warnings. */
static void demand(int code, const char *what) {
    if (code < 20) return;
    fprintf(stderr, "%s: %d %s\n", what, code, crvErrorTextAPI(ctx, code));
    crvDeinitExAPI(ctx);
    exit(1);
}

/* Feeds a stream with a file, however long that is. */
static void feed(FILE *from, CrvStream *stream, int (*update)(CRVctx *, CrvStream *, const unsigned char *, long)) {
    static unsigned char piece[1 << 16];
    size_t count;
    rewind(from);
    while ((count = fread(piece, 1, sizeof piece, from)) > 0) demand(update(ctx, stream, piece, (long)count), "read");
}

static int put(void *user, const unsigned char *octets, long len) {
    return fwrite(octets, 1, (size_t)len, (FILE *)user) == (size_t)len ? 0 : 1;
}

static FILE *besideOf(const char *path, const char *ending) {
    char name[4096];
    FILE *file;
    snprintf(name, sizeof name, "%s%s", path, ending);
    file = fopen(name, "w+b");
    if (file == NULL) perror(name), exit(1);
    return file;
}

static void sign(FILE *content, FILE *signature) {
    CrvSignParams params = {0};
    CrvStream *stream;
    params.size = sizeof params;
    params.content = CRVSIGN_CONTENT_BESIDE;
    params.form = CRVMSG_FORM_DER;
    demand(crvSignInitAPI(ctx, &params, put, signature, &stream), "sign");
    feed(content, stream, crvSignUpdateAPI);
    demand(crvSignFinalAPI(ctx, stream), "sign");
}

static void verify(FILE *content, FILE *signature) {
    static unsigned char message[1 << 20];
    CrvMessageParams params = {sizeof params, CRVMOMENT_SIGNING, 0, message, 0, NULL};
    CrvMessageVerdict *verdict;
    CrvSignerInfo signer;
    char name[256];
    long len = sizeof name - 1;
    CrvStream *stream;
    signer.size = sizeof signer;
    rewind(signature);
    params.message_len = (long)fread(message, 1, sizeof message, signature);
    demand(crvVerifyInitAPI(ctx, &params, NULL, NULL, &stream), "verify");
    feed(content, stream, crvVerifyUpdateAPI);
    demand(crvVerifyFinalAPI(ctx, stream, &verdict), "verify");
    demand(crvGetSignerInfoAPI(ctx, verdict, 0, &signer), "verify");
    demand(crvGetCertAttrAPI(ctx, signer.cert, CRVCERT_ATTR_SUBJECT, name, &len), "verify");
    printf("signed by %.*s\n", (int)len, name);
    crvFreeMessageVerdictAPI(ctx, verdict);
}

static void encrypt(FILE *content, FILE *message) {
    CrvCert *own;
    const CrvCert *recipients[1];
    CrvEncryptParams params = {sizeof params, recipients, 1, 0, NULL, CRVMSG_FORM_PEM};
    CrvStream *stream;
    demand(crvGetUserCertAPI(ctx, CRVKEY_USE_DECRYPT, &own), "certificate");
    recipients[0] = own;
    demand(crvEncryptInitAPI(ctx, &params, put, message, &stream), "encrypt");
    crvFreeCertAPI(ctx, own);
    feed(content, stream, crvEncryptUpdateAPI);
    demand(crvEncryptFinalAPI(ctx, stream), "encrypt");
}

static void decrypt(FILE *message, FILE *plain) {
    CrvDecryptInfo info;
    CrvStream *stream;
    info.size = sizeof info;
    demand(crvDecryptInitAPI(ctx, put, plain, &stream), "decrypt");
    feed(message, stream, crvDecryptUpdateAPI);
    demand(crvDecryptFinalAPI(ctx, stream, &info), "decrypt");
    printf("decrypted %ld octets\n", info.content_len);
}

int main(int argc, char **argv) {
    const char *password = getenv("CORVANE_PASSWORD");
    FILE *content, *signature, *message, *plain;
    if (argc != 4 || password == NULL) return fprintf(stderr, "usage: messages list profile file\n"), 2;
    content = fopen(argv[3], "rb");
    if (content == NULL) return perror(argv[3]), 1;
    signature = besideOf(argv[3], ".p7s");
    message = besideOf(argv[3], ".p7m");
    plain = tmpfile(); /* it becomes a file of the user's when crvDecryptFinalAPI succeeded, not before */
    demand(crvInitExAPI(&ctx, CRVPROFILE_MEDIA_FILE, argv[1], argv[2]), "profile");
    demand(crvStorePINUtf8API(ctx, CRVPIN_SIGNING_TOKEN, password), "password");
    demand(crvAuthenticateExAPI(ctx, 0), "log-in");
    sign(content, signature);
    verify(content, signature);
    encrypt(content, message);
    decrypt(message, plain);
    crvDeinitExAPI(ctx);
    return fclose(signature) || fclose(message) || fclose(plain) || fclose(content);
}
