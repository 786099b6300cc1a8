// The text of a code.
#include <cstdio>
#include <cstring>

#include "api/api_frame.h"
#include "context/error_table.h"
#include "context/vtest_text_buffer.h"
#include "misc/logger.h"
#include "misc/utf8.h"
#include "pkcs11/ckr_name.h"

namespace crv {
namespace {

const char* put(TextBuffer& buffer, std::string_view text) {
    putText(buffer, text);
    return buffer.data();
}

/// A message with one place for a value, which is no format of the C library's for any other input than the own texts.
std::string filled(std::string_view message, std::string_view place, std::string_view value) {
    std::string text(message);
    const size_t at = text.find(place);
    return at == std::string::npos ? text : text.replace(at, place.size(), value);
}

std::string hexadecimal(unsigned number) {
    char text[16];
    std::snprintf(text, sizeof text, "%X", number);
    return text;
}

const char* withDiagnosis(CRVctx* ctx, TextBuffer& buffer, const char* message) {
    const std::string diagnosis = VtestTextBuffer::getVtestTxt(ctx);
    return diagnosis.empty() ? message : put(buffer, std::string(message) + ": " + diagnosis);
}

const char* errorText(CRVctx* ctx, int code, TextBuffer& buffer) {
    const ErrorRow* row = findErrorRow(code);
    if (!row) return put(buffer, filled("Nieznany kod błędu %d !!!", "%d", std::to_string(code)));
    if (code == ECRV_TRV && !ctx) return "Urządzenie Ardent Tarvo zwróciło błąd";
    if (code == ECRV_TRV) return put(buffer, filled(row->text, "%X", hexadecimal(ctx->state.lastDeviceError)));
    if (code == ECRV_CRD_COM && ctx && ctx->configurationManager.keyMedium() == KeyMedium::Token) {
        constexpr const char* kText = "Błąd komunikacji z kartą, biblioteka PKCS#11 zwróciła błąd: %s !!!";
        return put(buffer, filled(kText, "%s", ckrName(ctx->state.lastPkcs11Rv)));
    }
    const bool ofLoader = code == ECRV_TRV_LIB || code == ECRV_TRV_DLL_FNC_LOAD_ERR;
    return ctx || ofLoader ? withDiagnosis(ctx, buffer, row->text) : row->text;
}

}  // namespace
}  // namespace crv

using namespace crv;

const char* crvErrorTextAPI(CRVctx* ctx, int code) {
    thread_local TextBuffer threadText;
    const CallGuard call(ctx);
    CRVctx* valid = call.code() ? nullptr : ctx;
    try {
        return errorText(valid, code, valid ? valid->errorText : threadText);
    } catch (...) {
        const ErrorRow* row = findErrorRow(code);
        return row ? row->text : nullptr;
    }
}

const char* crvErrorText(CRVctx* ctx, int code) {
    char begin[64];
    std::snprintf(begin, sizeof begin, "crvErrorText: BEGIN. kod: %d", code);
    logLine(LogLevel::Info, begin);
    const char* text = crvErrorTextAPI(ctx, code);
    if (text) {
        logLine(LogLevel::Info, "crvErrorText: END. Wynik: != NULL");
    } else {
        logLine(LogLevel::Error, "crvErrorText: END. Wynik: NULL");
    }
    return text;
}
