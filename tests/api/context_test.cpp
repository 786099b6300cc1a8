// Contexts: the frame, texts of codes, options, PINs, reports.
#include <gmock/gmock.h>

#include <clocale>

#include "api/api_frame.h"
#include "config/warning_codes.h"
#include "context/context_options.h"
#include "context/error_table.h"
#include "context/vtest_text_buffer.h"
#include "misc/exceptions.h"
#include "profiles/profile_kinds.h"

namespace crv {
namespace {

using testing::HasSubstr;

constexpr int kBadValue = ECRV_API_INV_PAR;
constexpr int kUnfit = ECRV_SIG_WITH_DIG_NOT_SUPPORTED;
/// Options.
constexpr long kFixed = 1, kSignerMode = 2, kDigest = 15, kTimeout = 17, kScheme = 21, kSignature = 25;
constexpr long kIgnored = 31, kText = 36, kOnlyText = 35, kDownloader = 44;

class Context : public testing::Test {
  protected:
    [[nodiscard]] long option(long id) {
        long value = 0;
        EXPECT_EQ(crvGetOptionAPI(&ctx, id, &value), 0) << id;
        return value;
    }
    [[nodiscard]] std::string_view pin(long id) const { return ctx.state.pins.slot(PinCache::slotOf(id)).pin.view(); }

    CRVctx ctx;
    char foreign[64] = "Corvane";
    CRVctx* noContext = reinterpret_cast<CRVctx*>(foreign);
};

std::string text(CRVctx* ctx, int code) {
    return crvErrorTextAPI(ctx, code);
}

std::string taken(CRVctx* ctx, int (*call)(CRVctx*, char*, long*)) {
    long len = 0;
    EXPECT_EQ(call(ctx, nullptr, &len), 0);
    std::string value(static_cast<size_t>(len), '\0');
    EXPECT_EQ(call(ctx, value.data(), &len), 0);
    return value;
}

TEST_F(Context, ErrorTextsOfWhatHasNone) {
    const std::pair<int, const char*> cases[] = {{0, "OK"},
                                                 {2, "OK, klucze na karcie kryptoptocesorowej"},
                                                 {9999, "Nieznany kod błędu 9999 !!!"},
                                                 {26, "Nieznany kod błędu 26 !!!"},
                                                 {-1, "Nieznany kod błędu -1 !!!"},
                                                 {39, "Urządzenie Ardent Tarvo zwróciło błąd"},
                                                 {44, "Błąd komunikacji z kartą !!!"},
                                                 {134, "Atrybut profilu nie ma wartości"}};
    for (const auto& [code, expected] : cases) {
        EXPECT_EQ(text(nullptr, code), expected);
        EXPECT_EQ(text(noContext, code), expected);
        EXPECT_STREQ(crvErrorText(nullptr, code), expected);
    }
    EXPECT_STREQ(findErrorRow(ECRV_ATTR_HAS_DEFAULT_VALUE)->name, findErrorRow(ECRV_ATTR_HAS_NO_VALUE)->name);
    VtestTextBuffer::setVtestTxt(nullptr, "brak libtrv.so");
    const std::string tail = " urządzenia Ardent Tarvo !!!: brak libtrv.so";
    EXPECT_EQ(text(nullptr, ECRV_TRV_LIB), "Nieznaleziona biblioteka" + tail);
    EXPECT_EQ(text(nullptr, ECRV_TRV_DLL_FNC_LOAD_ERR), "Błąd podczas ładowania funkcji z biblioteki" + tail);
    EXPECT_EQ(text(nullptr, ECRV_MEM), "Brak pamięci !!!");
    VtestTextBuffer::forget(nullptr);
}

TEST_F(Context, ErrorTextsTellWhatItKnows) {
    ctx.state.setLastDeviceError(0x1A2B);
    EXPECT_EQ(text(&ctx, ECRV_TRV), "Urządzenie Ardent Tarvo zwróciło błąd nr 1A2B !!!");
    EXPECT_EQ(text(&ctx, ECRV_CRD_COM), "Błąd komunikacji z kartą !!!");
    ctx.setProfile(std::make_unique<Pkcs11Profile>());
    ctx.state.setLastPkcs11Rv(0x30);
    EXPECT_EQ(text(&ctx, ECRV_CRD_COM),
              "Błąd komunikacji z kartą, biblioteka PKCS#11 zwróciła błąd: CKR_DEVICE_ERROR !!!");
    ctx.state.setLastPkcs11Rv(0x80001234);
    EXPECT_THAT(text(&ctx, ECRV_CRD_COM), HasSubstr(": 0x80001234 !!!"));
    ctx.state.setDiagnosticText("szczegóły");
    EXPECT_EQ(text(&ctx, ECRV_DB), "Błąd bazy danych !!!: szczegóły");
    std::string longer = "x";
    for (int i = 0; i < 300; ++i) longer += "ż";
    ctx.state.setDiagnosticText(longer);
    EXPECT_EQ(text(&ctx, CRV_OK), "OK: " + longer.substr(0, 507)) << "511 octets fit";
    ctx.state.setDiagnosticText(longer.substr(1));
    EXPECT_EQ(text(&ctx, CRV_OK).size(), 510u) << "no half of a letter";
}

TEST_F(Context, EveryEndOfACallBecomesACode) {
    EXPECT_EQ(apiFrame(nullptr, [] { return 0; }), ECRV_API_INV_PAR);
    EXPECT_EQ(apiFrame(noContext, [] { return 0; }), ECRV_API_INV_CTX);
    const std::tuple<std::function<int()>, int, std::string> cases[] = {
        {[]() -> int { failAssertion("1 > 2", "src/api/x", 1); }, ECRV_INTERNAL_ERROR,
         ": Assertion 1 > 2 failed in src/api/x"},
        {[]() -> int { throw CrvApiException(ECRV_NO_PROFILE_NAME, "bez nazwy"); }, ECRV_NO_PROFILE_NAME,
         ": bez nazwy"},
        {[]() -> int { throw std::runtime_error("oj"); }, ECRV_UNKNOWN_EXCEPTION, ": oj"},
        {[]() -> int { throw 5; }, ECRV_UNKNOWN_EXCEPTION, ""},
        {[]() -> int { throw std::bad_alloc(); }, ECRV_MEM, ""},
        {[] { return CRV_OK_NEED_TARVO; }, CRV_OK_NEED_TARVO, ""}};
    for (const auto& [inner, code, said] : cases) {
        EXPECT_EQ(apiFrame(&ctx, inner), code);
        EXPECT_EQ(text(&ctx, code), findErrorRow(code)->text + said);
        EXPECT_EQ(apiPointerFrame(&ctx, [&]() -> const char* { return inner() ? nullptr : ""; }), nullptr);
    }
}

TEST_F(Context, EachCallBeginsWithAnEmptyReportAndNoWarnings) {
    const auto warn = [&](int code) {
        return apiFrame(&ctx, [&] {
            ctx.state.report("krok " + std::to_string(code));
            ctx.state.addWarning(WARN_USER_CRT_NOT_VALID);
            return code;
        });
    };
    const auto warnings = [&] {
        long codes[3] = {}, count = 3;
        EXPECT_EQ(crvGetWarnings(&ctx, codes, &count), CRV_OK);
        return std::vector<long>(codes, codes + count);
    };
    // Failures keep their code, successes tell of the warning.
    for (int code : {CRV_OK, CRV_OK_NEED_CARD}) EXPECT_EQ(warn(code), WCRV_GENERIC_WARNING);
    EXPECT_EQ(warn(ECRV_PASSWORD), ECRV_PASSWORD);
    EXPECT_EQ(warnings(), std::vector<long>{WARN_USER_CRT_NOT_VALID});
    long count = 0;
    EXPECT_EQ(crvGetWarnings(&ctx, &count, &count), ECRV_BUFF_TO_SHORT);
    EXPECT_EQ(count, 1);
    EXPECT_STREQ(crvWarningTextAPI(WARN_USER_CRT_NOT_VALID),
                 "WARN_USER_CRT_NOT_VALID: Certyfikat użytkownika jest poza okresem ważności");
    EXPECT_EQ(crvWarningTextAPI(99), nullptr);
    EXPECT_EQ(taken(&ctx, crvGetReportAPI), "krok 46\n") << "the last operation's alone";
    EXPECT_EQ(apiFrame(&ctx, [] { return 0; }), 0);
    EXPECT_TRUE(warnings().empty());
    EXPECT_EQ(taken(&ctx, crvGetReportAPI), "");
    EXPECT_EQ(taken(&ctx, crvGetRunReportAPI), "krok 0\nkrok 1\nkrok 46\n");
    EXPECT_EQ(warn(CRV_OK), WCRV_GENERIC_WARNING);
    long len = 3;
    char small[3];
    EXPECT_EQ(crvGetReportAPI(&ctx, small, &len), ECRV_BUFF_TO_SHORT);
    EXPECT_EQ(len, 7);
    EXPECT_EQ(crvGetReportAPI(&ctx, small, nullptr), kBadValue);
    for (size_t i = 0; i < 100; ++i) apiFrame(&ctx, [&] { return ctx.state.report(std::string(5000, 'x')), 0; });
    const std::string whole = taken(&ctx, crvGetRunReportAPI);
    EXPECT_LE(whole.size(), ContextState::kMaxRunReport);
    EXPECT_EQ(whole.size() % 5001, 0u) << "whole lines";
}

TEST_F(Context, OptionsTakeTheCodesOfEachNumber) {
    struct Case {
        long id, value;
        int set, get;
        long got;
    };
    const Case cases[] = {{kScheme, 3, kBadValue, CRV_OK, 0},
                          {kScheme, 4, CRV_OK, CRV_OK, 4},
                          {kDigest, 2, kBadValue, CRV_OK, 1},
                          {kScheme, 2, CRV_OK, CRV_OK, 2},
                          {kFixed, 1, kBadValue, kBadValue, 0},
                          {kSignerMode, 1, kBadValue, CRV_OK, 1},
                          {kSignerMode, 3, CRV_OK, CRV_OK, 0},
                          {kSignerMode, 4, CRV_OK, CRV_OK, 1},
                          {kDigest, 2, kBadValue, CRV_OK, 4},
                          {kDigest, 9, CRV_OK, CRV_OK, 9},
                          {kDigest, 8, CRV_OK, CRV_OK, 8},
                          {kDigest, 7, kBadValue, CRV_OK, 8},
                          {kDigest, 13, kBadValue, CRV_OK, 8},
                          {kScheme, 2, CRV_OK, CRV_OK, 2},
                          {kDigest, 4, CRV_OK, CRV_OK, 4},
                          {kScheme, 6, CRV_OK, CRV_OK, 6},
                          {kSignature, 0x504, CRV_OK, CRV_OK, 0x504},
                          {kDigest, 8, kUnfit, CRV_OK, 4},
                          {kSignature, 0x603, CRV_OK, CRV_OK, 0x603},
                          {kSignature, 0x404, kUnfit, CRV_OK, 0x603},
                          {kSignature, -1, kBadValue, CRV_OK, 0x603},
                          {kSignature, 0x304, kBadValue, CRV_OK, 0x603},
                          {kIgnored, 7, CRV_OK, kBadValue, 0},
                          {kTimeout, -5, CRV_OK, CRV_OK, -5},
                          {kText, 1, kBadValue, kBadValue, 0},
                          {kDownloader, 1, CRV_OK, CRV_OK, 1},
                          {48, 1, kBadValue, kBadValue, 0},
                          {-1, 1, kBadValue, kBadValue, 0}};
    for (const Case& c : cases) {
        long got = 0;
        EXPECT_EQ(crvSetOptionAPI(&ctx, c.id, c.value), c.set) << c.id << ' ' << c.value;
        EXPECT_EQ(crvGetOptionAPI(&ctx, c.id, &got), c.get) << c.id << ' ' << c.value;
        EXPECT_EQ(got, c.got) << c.id << ' ' << c.value;
    }
    EXPECT_EQ(ctx.configurationManager.record().getHashAlgo(), KcHashAlgo::Sha224);
    EXPECT_THAT(
        taken(&ctx, crvGetRunReportAPI),
        HasSubstr("Funkcja skrótu ripemd160 nie jest wspierana z aktualnym schematem klucza do podpisywania\n"));
    EXPECT_EQ(crvGetOptionAPI(&ctx, kTimeout, nullptr), kBadValue);
    EXPECT_EQ(crvSetOptionAPI(nullptr, kTimeout, 1), kBadValue);
}

TEST_F(Context, OptionsOfTextAndOfTheWholeProcess) {
    EXPECT_EQ(crvGetTextOptionAPI(&ctx, kText), nullptr);
    for (long id : {kText, 42L, 43L}) {
        for (const char* value : {"wartość", "", static_cast<const char*>(nullptr)}) {
            EXPECT_EQ(crvSetTextOptionAPI(&ctx, id, value), 0);
            EXPECT_STREQ(crvGetTextOptionAPI(&ctx, id), value);
        }
    }
    EXPECT_EQ(crvSetTextOptionAPI(&ctx, kOnlyText, "x"), kBadValue);
    EXPECT_EQ(crvGetTextOptionAPI(&ctx, kOnlyText), nullptr);
    EXPECT_EQ(crvGetTextOptionAPI(nullptr, kText), nullptr);
    long value = -1;
    EXPECT_EQ(crvSetGlobalOption(43, 1), kBadValue);
    EXPECT_EQ(crvGetGlobalOption(43, &value), kBadValue);
    EXPECT_EQ(crvGetGlobalOption(kDownloader, nullptr), kBadValue);
    EXPECT_EQ(crvSetGlobalOption(kDownloader, 7), 0);
    EXPECT_EQ(crvGetGlobalOption(kDownloader, &value), 0);
    EXPECT_EQ(value, 1);
    crvSetGlobalOption(kDownloader, 0);
}

TEST_F(Context, OptionsComeBackWhenTheGuardEnds) {
    for (auto [id, inside, shown] : {std::tuple{kTimeout, 5L, 5L}, {kSignerMode, 3L, 0L}, {kDigest, 9L, 9L}}) {
        const long before = option(id);
        {
            CrvOptionGuard guard(&ctx, id, inside);
            EXPECT_EQ(option(id), shown);
        }
        EXPECT_EQ(option(id), before);
    }
    for (long id : {kFixed, 1000L}) EXPECT_THROW(CrvOptionGuard(&ctx, id, 0), CrvApiException) << id;
}

TEST_F(Context, PinsAreKeptCleanedAndForgotten) {
    SecretText got;
    bool cached = true;
    EXPECT_EQ(ctx.getPIN(PinSlot::Roots, got, &cached), kPinCancelled);
    EXPECT_FALSE(cached);
    for (long id : {1, 2, 8, 16}) EXPECT_EQ(crvStorePINUtf8API(&ctx, id, "tajny"), 0);
    for (long id : {0, 3, 4, 32, -1}) EXPECT_EQ(crvStorePINUtf8API(&ctx, id, "x"), ECRV_INTERNAL_ERROR) << id;
    EXPECT_EQ(crvStorePINUtf8API(&ctx, 1, nullptr), kBadValue);
    EXPECT_EQ(ctx.getPIN(PinSlot::SigningKey, got, &cached), kPinOk);
    EXPECT_TRUE(cached && got.view() == "tajny");
    for (long mask : {4, 5, 64, -1}) EXPECT_EQ(crvCleanPINAPI(&ctx, mask), kBadValue) << mask;
    EXPECT_EQ(pin(1), "tajny");
    EXPECT_EQ(crvCleanPINAPI(&ctx, 1), 0);
    EXPECT_EQ(pin(2), "tajny");
    EXPECT_EQ(crvCleanPINAPI(&ctx, 27), 0);
    for (long id : {1, 2, 8, 16}) {
        EXPECT_EQ(pin(id), std::string_view("\0\0\0\0\0", 5));
        EXPECT_TRUE(ctx.state.pins.slot(PinCache::slotOf(id)).present &&
                    ctx.state.pins.slot(PinCache::slotOf(id)).stored == 0)
            << id;
    }
    ctx.removePINs();
    EXPECT_FALSE(ctx.state.pins.slot(PinSlot::Roots).present);
    EXPECT_EQ(ctx.getPIN(PinSlot::Roots, got, nullptr, false), kPinCancelled);
}

TEST_F(Context, PinsAreAskedForOnce) {
    struct Asked {
        int times = 0, answer = kPinCancelled;
    } asked;
    const CrvPinPrompt prompt = [](void* user, long id, char* answer, long size) {
        auto& seen = *static_cast<Asked*>(user);
        ++seen.times;
        EXPECT_EQ(id, 2);
        std::snprintf(answer, static_cast<size_t>(size), "9876");
        return seen.answer;
    };
    EXPECT_EQ(crvSetPINPromptAPI(&ctx, prompt, &asked), 0);
    SecretText got;
    EXPECT_EQ(ctx.getPIN(PinSlot::DecryptionToken, got), kPinCancelled);
    EXPECT_TRUE(got.empty());
    asked.answer = 0;
    for (int time : {1, 2}) EXPECT_EQ(ctx.getPIN(PinSlot::DecryptionToken, got), 0) << time;
    EXPECT_EQ(got.view(), "9876");
    EXPECT_EQ(asked.times, 2);
}

TEST_F(Context, PinsOfTheLocalesTextBecomeUtf8) {
    ASSERT_TRUE(std::setlocale(LC_CTYPE, "C.UTF-8"));
    EXPECT_EQ(crvStorePINAPI(&ctx, 1, "aąę"), 0);
    EXPECT_EQ(pin(1), "aąę");
    std::setlocale(LC_CTYPE, "C");
    EXPECT_EQ(crvStorePINAPI(&ctx, 1, "abc"), 0);
    EXPECT_EQ(pin(1), "abc");
    EXPECT_EQ(crvStorePINAPI(&ctx, 1, "\xb1"), ECRV_TEXT_CONVERT);
}

TEST_F(Context, PinsThatAProfileNeedsAreTold) {
    long needed = -1;
    EXPECT_EQ(crvGetPINInfo(&ctx, 2, &needed), ECRV_PROFILE_NOT_LOADED);
    auto file = CrvProfile::create(1), token = CrvProfile::create(5);
    auto roots = CrvProfile::create(1);
    roots->setAttr(CRVPROFILE_ATTR_ROOTS_FILE, "roots.p12");
    auto empty = roots->clone();
    empty->setAttr(CRVPROFILE_ATTR_ROOTS_EMPTY_PASSWORD, 1L);
    token->setAttr(CRVPROFILE_ATTR_EXTERN_DPIN, 1L);
    const std::tuple<const CrvProfile&, long, long> cases[] = {{*file, 1, 1},  {*file, 2, 1},  {*file, 8, 0},
                                                               {*file, 16, 1}, {*roots, 8, 8}, {*empty, 8, 0},
                                                               {*token, 2, 0}, {*token, 1, 1}};
    for (const auto& [profile, id, mask] : cases) {
        ctx.setProfile(profile.clone());
        EXPECT_EQ(crvGetPINInfo(&ctx, id, &needed), 0);
        EXPECT_EQ(needed, mask) << id;
    }
    EXPECT_EQ(crvGetPINInfo(&ctx, 3, &needed), kBadValue);
    EXPECT_EQ(crvGetPINInfo(&ctx, 1, nullptr), kBadValue);
}

TEST(Contexts, AreCountedAndRefusedAfterTheirEnd) {
    std::vector<CRVctx*> all;
    CRVctx* one = nullptr;
    while (crvInitExAPI(&one, 0, nullptr, nullptr) == 0) all.push_back(one);
    EXPECT_EQ(all.size(), 64u);
    EXPECT_EQ(one, nullptr);
    EXPECT_EQ(crvInitExAPI(&one, 0, nullptr, nullptr), ECRV_TOO_MANY_CONTEXTS);
    EXPECT_EQ(crvDeinitExAPI(all.back()), 0);
    EXPECT_EQ(crvInitExAPI(&all.back(), 0, nullptr, nullptr), 0);
    for (CRVctx* ctx : all) EXPECT_EQ(crvDeinitExAPI(ctx), 0);
    EXPECT_EQ(crvDeinitExAPI(nullptr), kBadValue);
    EXPECT_EQ(crvInitExAPI(nullptr, 0, nullptr, nullptr), kBadValue);
    alignas(CRVctx) static char memory[sizeof(CRVctx)];
    (new (memory) CRVctx)->~CRVctx();
    EXPECT_EQ(crvSetOptionAPI(reinterpret_cast<CRVctx*>(memory), kTimeout, 1), ECRV_API_INV_CTX);
}

}  // namespace
}  // namespace crv
