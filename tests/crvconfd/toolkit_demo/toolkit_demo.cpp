// Runs one primitive of the toolkit for the screen tests: toolkit_demo <mode 0-2> <scene> [arguments]. The scene's
// result is shown on row 20 as "= result", then a key ends the program. An end by signal leaves with 128 + its number.
#include <algorithm>
#include <array>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>

#include "crvconfd/toolkit/encoding.h"
#include "crvconfd/toolkit/toolkit.h"
#include "misc/hex.h"

namespace {

using namespace crv;  // NOLINT: a program of calls into it

std::vector<std::string> arguments;

int number(size_t index) {
    return index < arguments.size() ? std::atoi(arguments[index].c_str()) : 0;
}

const char* text(size_t index) {
    return index < arguments.size() ? arguments[index].c_str() : "";
}

/// Marks when a typed buffer lost its end: what stands in it is shown up to its size.
std::string typed(int result, const char* buffer) {
    return std::to_string(result) + " [" + buffer + "]";
}

std::string line() {
    std::array<char, 256> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%s", text(3));
    return typed(input_yx(5, number(0), "Plik: ", buffer.data(), number(1), 32, static_cast<int>(std::strlen(text(3))),
                          number(2)),
                 buffer.data());
}

std::string word() {
    std::array<char, 16> buffer{};
    return typed(inputWord(5, 0, "Słowo: ", buffer.data(), buffer.size()), buffer.data());
}

std::string password() {
    std::array<char, 256> buffer{};
    std::snprintf(buffer.data(), buffer.size(), "%s", text(2));
    const int result = inputPassword(5, 0, "Hasło:", buffer.data(), number(0), *text(1), arguments.size() > 2);
    const std::string_view bytes(buffer.data(), static_cast<size_t>(std::max(result, 0)));
    return typed(result, toHex(asBytes(bytes)).c_str());
}

std::string list() {
    std::vector<std::string> items;
    for (int i = 0; i < number(0); ++i) {
        items.push_back("pozycja " + std::to_string(i) +
                        (i == 1 ? std::string(static_cast<size_t>(number(5)), 'x') : ""));
    }
    std::string log;
    using enum ShowMenuListCallbackRet;
    const std::map<int, ShowMenuListCallbackRet> wishes{
        {'k', NextKey}, {'r', Redraw}, {'c', LeaveCancel}, {'s', LeaveSelected}};
    const auto callback = [&](int key, int index) {
        if (key == 'r') clrScr();
        log += " " + std::to_string(key) + "@" + std::to_string(index);
        displText(1, 0, "callback%s", log.c_str());
        const auto wish = wishes.find(key);
        return wish == wishes.end() ? Continue : wish->second;
    };
    const bool framed = number(3) != 0;
    return std::to_string(number(4) != 0 ? showMenuList(2, 10, items, number(1), number(2), framed, callback)
                                         : showCentMenuList(2, items, number(1), number(2), framed, callback));
}

template <class Buffer>
std::string randomKeys() {
    Buffer buffer{};
    const int count = inputRandomText(23, 0, "Klawisze:", buffer);
    const bool filled = std::any_of(buffer.begin(), buffer.end(), [](uint8_t octet) { return octet != 0; });
    return std::to_string(count) + (filled && count >= 0 ? " filled" : "");
}

std::string output() {
    displHeader(0, "%s", text(0));
    displText(1, 70, "%s", "za prawą krawędzią");
    displCentText(3, "%s", "wyśrodkowany");
    displColText(4, 2, "%s", "~3) Bazy danych, ~klucze, P~ółka, koniec~");
    displCentColText(6, "%s", "~a~b");
    displCentColText(7, "%s", "");
    displText(8, 0, "%s", "znak \x1b[31m\t\x7f\xc2\x9b i \xff");
    attrOn(kAttrEmphasis);
    displText(9, 0, "ważne");
    attrOff(kAttrEmphasis);
    displText(24, 0, "poza ekranem");
    displText(10, -1, "poza ekranem");
    displText(11, 0, "%0300d", 7);
    return "drawn";
}

std::string suspended() {
    displText(0, 0, "przed");
    suspendScr();
    std::puts("na zewnatrz");
    std::fflush(stdout);
    std::getchar();
    resumeScr();
    return "resumed";
}

const std::map<std::string, std::function<std::string()>> kScenes{
    {"output", output},
    {"keys",
     [] {
         std::string seen;
         for (int key = getKey(); key != 'q'; key = getKey())
             displText(2, 0, "%s", (seen += " " + std::to_string(key)).c_str());
         return seen;
     }},
    {"line", line},
    {"word", word},
    {"number", [] { return std::to_string(input_positive_number_yx(5, 3, "Liczba: ")); }},
    {"password", password},
    {"list", list},
    {"random", randomKeys<std::array<uint8_t, 4>>},
    {"digest", randomKeys<SecretArray<20>>},
    {"suspend", suspended},
    {"yesno", [] { return std::to_string(displCentQuestion(23, "Czy na pewno (t/n) ?")); }},
    {"question", [] { return std::to_string(displCentQuestion(23, "~Tak, Po~wrót", "Tw")); }},
    {"error",
     [] {
         errInfo(23, "Błąd: %s", "zły plik");
         return std::string("gone");
     }},
    {"wait", [] { return std::to_string(waitForKeyOrTimeout(number(0))); }},
};

}  // namespace

int main(int argc, char** argv) {
    std::setlocale(LC_ALL, "");
    plStandard();
    arguments.assign(argv + 3, argv + argc);
    constexpr std::array<std::array<int, 4>, 3> kModes{{{0, 0, 0, 0}, {1, 1, 1, 1}, {8, 2, 2, 4}}};
    try {
        initScr();
        const auto& mode = kModes[static_cast<size_t>(std::atoi(argv[1]))];
        setShortcutAttr(mode[0]);
        setSelectedAttr(mode[1]);
        setHeaderAttr(mode[2]);
        setEmphasisAttr(mode[3]);
        showCursor(false);
        const std::string result = kScenes.at(argv[2])();
        displText(20, 0, "= %s", result.c_str());
        static_cast<void>(getKey());
    } catch (const ScreenClosed& closed) {
        downScr();
        return 128 + closed.signal();
    } catch (const std::exception& error) {
        downScr();
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    downScr();
    return 0;
}
