// The toolkit's primitives on a terminal, through the program toolkit_demo.
#include <gtest/gtest.h>

#include <csignal>
#include <sstream>

#include "crvconfd/toolkit/toolkit.h"
#include "support/screen/screen_program.h"

namespace crv::test {
namespace {

/// The demo with one scene and its arguments, on a terminal of its own.
class Demo : public ScreenProgram {
  public:
    Demo(int mode, const std::string& scene, const std::map<std::string, std::string>& environment = {})
        : ScreenProgram({.arguments = arguments(mode, scene), .environment = environment}) {}

    /// The scene's result, once it shows.
    std::string result() {
        waitFor("= ");
        return row(20).substr(2);
    }
    /// Types after the prompt is there, which empties nothing that was typed too early.
    std::string resultOf(const std::string& prompt, const std::string& keys) {
        waitFor(prompt);
        send(keys);
        return result();
    }

    static std::vector<std::string> arguments(int mode, const std::string& scene) {
        std::vector<std::string> words{CRV_BIN_DIR "/toolkit_demo", std::to_string(mode)};
        std::istringstream in(scene);
        for (std::string word; in >> word;) words.push_back(word);
        return words;
    }
};

std::string spaces(size_t count) {
    return std::string(count, ' ');
}

TEST(ToolkitOutput, TextsStandWhereTheyBelongAndStayInTheirRow) {
    Demo demo(2, "output Nagłówek");
    EXPECT_EQ(demo.result(), "drawn");
    // 10 bytes are centred from column 35 although they take 8 columns; the bar reaches both edges.
    const std::pair<int, std::string> rows[] = {{0, spaces(35) + "Nagłówek"},
                                                {1, spaces(70) + "za prawą k"},
                                                {2, ""},
                                                {3, spaces(33) + "wyśrodkowany"},
                                                {4, "  3) Bazy danych, klucze, Półka, koniec"},
                                                {6, spaces(39) + "ab"},
                                                {8, "znak ?[31m??? i ?"},
                                                {10, ""},
                                                {11, std::string(80, '0')},
                                                {12, ""}};
    for (const auto& [row, text] : rows) EXPECT_EQ(demo.row(row), text);
    EXPECT_TRUE(demo.cell(0, 0).reverse && demo.cell(0, 79).reverse && demo.cell(9, 0).bold);
    for (const int column : {2, 3, 18, 27}) EXPECT_EQ(demo.cell(4, column).underline, column != 3);
    EXPECT_FALSE(demo.cursorVisible());
    demo.send("x");
    EXPECT_EQ(demo.waitExit(), 0);
}

TEST(ToolkitOutput, DumbModeShowsMnemonicsAsCapitals) {
    Demo demo(0, "output x");
    demo.result();
    EXPECT_EQ(demo.row(4), "  3) Bazy danych, Klucze, PÓłka, koniec");
    EXPECT_FALSE(demo.cell(4, 2).underline || demo.cell(0, 0).reverse || demo.cell(9, 0).bold);
}

TEST(ToolkitOutput, HeaderIsCutAt80Bytes) {
    const std::string full(80, 'a'), most(76, 'a');
    for (const auto& [text, bar] :
         {std::pair{full, full}, {full + "b", most + "a..."}, {most + "żxyz", most + "..."}}) {
        Demo demo(1, "output " + text);
        demo.result();
        EXPECT_EQ(demo.row(0), bar);
        EXPECT_TRUE(demo.cell(0, 79).reverse);
    }
}

/// What getKey answers for a sequence that it does not know.
constexpr int kUnknown = 0;

TEST(ToolkitKeys, SequencesAreDecodedAndUnknownOnesTakenInWhole) {
    const std::pair<const char*, std::vector<int>> cases[] = {
        {"a", {'a'}},
        {"\033[A", {kKeyUp}},
        {"\033[B", {kKeyDown}},
        {"\033[5~", {kKeyPageUp}},
        {"\033[6~", {kKeyPageDown}},
        {"\033D", {kKeyPageDown}},
        {"\033M", {kKeyPageUp}},
        {"\002", {kKeyPageUp}},
        {"\006", {kKeyPageDown}},
        {"\177", {kKeyBackspace}},
        {"\r", {kKeyEnter}},
        {"\033\033", {kKeyEscape}},
        {"\033[1;5C", {kUnknown}},
        {"\033[[A", {kUnknown}},
        {"\033OP", {kUnknown}},
        {"\033[200~", {kUnknown}},
        {"\033x", {kUnknown}},
        {"ł", {0xC5, 0x82}},
    };
    Demo demo(2, "keys");
    std::string expected;
    for (const auto& [bytes, codes] : cases) {
        demo.send(bytes);
        for (const int code : codes) expected += " " + std::to_string(code);
        demo.waitUntil("the codes are" + expected, [&] { return demo.row(2) + demo.row(3) == expected.substr(0, 80); });
    }
}

TEST(ToolkitKeys, LoneEscapeCountsAfterSilenceAndItsRepetitionDoesNot) {
    Demo demo(2, "keys");
    demo.send("a");
    demo.waitFor("97");
    demo.send("\033");
    demo.waitFor("97 27");
    demo.send("\033");
    demo.send("\033");  // together with the one before: a double press is Escape
    demo.waitFor("97 27 27");
    demo.send("b");
    demo.waitFor("97 27 27 98");
}

struct Case {
    std::string scene, prompt, keys, result;
};

TEST(ToolkitInput, EditsAndEnds) {
    const std::string nines(45, '9');
    const Case cases[] = {
        {"line 0 20 0", "Plik:", "ab c\r", "4 [ab c]"},
        {"line 0 20 0 stary", "Plik:", "\177\177X\r", "4 [staX]"},
        {"line 0 4 0", "Plik:", "abcdef\r", "3 [abc]"},
        {"line 0 20 0", "Plik:", "ab\033\033", "-1 [ab]"},
        {"line 0 20 0", "Plik:", "\177\033[Ała\r", "3 [ła]"},
        {"line 0 20 0", "Plik:", "łą\177b\r", "3 [łb]"},
        {"line 0 4 0", "Plik:", "abł\r", "2 [ab]"},
        {"line 0 20 0", "Plik:", "acd\033[D\033[D\033[Db\033[C\033[3~x\r", "4 [baxd]"},
        {"line 0 20 0", "Plik:", "żb\033[Ha\033[Fc\r", "5 [ażbc]"},
        {"line 0 20 0", "Plik:", "ab cd\027e\001\005f\r", "5 [ab ef]"},
        {"line 0 20 0", "Plik:", "ab cd\033[D\025\r", "1 [d]"},
        {"line 0 20 0", "Plik:", "a\033[200~b\tc\033[Hd\nq\033[201~e\r", "7 [abc[Hde]"},
        {"line 0 20 0", "Plik:", "\xC5z\xFF\r", "1 [z]"},
        {"word", "Słowo:", "a b\r", "2 [ab]"},
        {"number", "Liczba:", "12x3\r", "123"},
        {"number", "Liczba:", "\r", "-2"},
        {"number", "Liczba:", "5\033\033", "-1"},
        {"number", "Liczba:", nines + "\r", "2147483647"},
        {"yesno", "(t/n) ?", "x\r\033[At", "1"},
        {"yesno", "(t/n) ?", "qT", "1"},
        {"yesno", "(t/n) ?", "\033[200~n\r\033[201~t", "1"},
        {"yesno", "(t/n) ?", "\033\033N", "0"},
        {"question", "Tak, Powrót", "tWw", "119"},
        {"question", "Tak, Powrót", "T", "84"},
        {"question", "Tak, Powrót", "x\033\033", "-1"},
    };
    for (const Case& c : cases) {
        Demo demo(2, c.scene);
        EXPECT_EQ(demo.resultOf(c.prompt, c.keys), c.result) << c.scene << " " << c.keys;
        EXPECT_EQ(demo.row(5), "") << "the prompt stays";
        EXPECT_FALSE(demo.cursorVisible());
    }
}

TEST(ToolkitInput, LongTextShowsItsTailBehindAMark) {
    Demo demo(2, "line 10 100 12");
    demo.waitFor("Plik:");
    demo.send("abcdefghijk");
    demo.waitFor("Plik: abcdefghijk");
    EXPECT_EQ(demo.cursor(), std::pair(5, 27));
    EXPECT_TRUE(demo.cursorVisible());
    demo.send("l");
    demo.waitFor("Plik: <cdefghijkl");
    EXPECT_TRUE(demo.cell(5, 16).reverse && !demo.cell(5, 17).reverse);
    demo.send("\033[H");
    demo.waitFor("Plik: abcdefghij>");
    EXPECT_EQ(demo.cursor(), std::pair(5, 16));
    demo.send("\033[F\177");
    demo.waitFor("Plik: abcdefghijk");
    EXPECT_FALSE(demo.cell(5, 16).reverse);
}

TEST(ToolkitPassword, TakesBytesAsTypedAndShowsEchoesOnly) {
    const std::string hundred(100, 'a');
    const std::array<std::string, 4> cases[] = {
        {"255 *", "ał \r", "4 [61C58220]", "****"},
        {"255", "abc\r", "3 [616263]", ""},
        {"4 *", "abcdef\r", "3 [616263]", "***"},
        {"255 *", "ab\177\177\177c\r", "1 [63]", "*"},
        {"255 * ab", "c\r", "3 [616263]", "***"},
        {"255 *", "a\033[Ab\033[3~\r", "2 [6162]", "**"},
        {"255 *", "ab\033", "-1 []", "**"},
        {"255 *", "\033[200~ab\n\033[201~c\r", "3 [616263]", "***"},
        {"255 *", hundred + "\r", "100 [", std::string(73, '*')},
    };
    for (const auto& [arguments, keys, result, shown] : cases) {
        Demo demo(2, "password " + arguments);
        EXPECT_EQ(demo.resultOf("Hasło:", keys).substr(0, result.size()), result) << keys;
        EXPECT_EQ(demo.row(5), "Hasło:" + shown);
        EXPECT_EQ(demo.row(6), "");
    }
}

TEST(ToolkitMessages, GoAwayByAKeyOrByTime) {
    Demo keyed(2, "error"), timed(2, "wait 1"), pressed(2, "wait 100");
    keyed.waitFor("Błąd: zły plik");
    EXPECT_EQ(keyed.row(23), spaces(31) + "Błąd: zły plik");
    EXPECT_EQ(keyed.bells(), 1);
    keyed.send("\033[A");
    EXPECT_EQ(keyed.result(), "gone");
    EXPECT_EQ(keyed.row(23), "");
    EXPECT_EQ(timed.result(), "-1");
    pressed.send("y");
    EXPECT_EQ(pressed.result(), "121");
}

TEST(ToolkitRandom, CountsKeysUpToTheBufferAndIgnoresTheRest) {
    const std::array<const char*, 5> cases[] = {
        {"random", "abc", " - 3", "\r", "3 filled"}, {"random", "a\033[Abcdef", " - 4", "\n", "4 filled"},
        {"random", "ab", " - 2", "\033", "-1"},      {"digest", "abcdef", " - 6", "\r", "6 filled"},
        {"digest", "", "", "\r", "0 filled"},        {"digest", "a", " - 1", "\033", "-1"}};
    for (const auto& [scene, typed, counter, end, result] : cases) {
        Demo demo(2, scene);
        demo.waitFor("Klawisze:");
        demo.send(typed);
        EXPECT_EQ(demo.resultOf(std::string("Klawisze:") + counter, end), result);
        EXPECT_EQ(demo.row(23), "");
    }
}

// Arguments of the list scene: count, selected, rows, framed, at a fixed column, extra length of item 1.
TEST(ToolkitList, MovesWrapsAndChooses) {
    using namespace keys;
    const std::array<std::string, 3> cases[] = {
        {"5 2 0 1", "\r", "2"},
        {"5 4 0 1", kDown + "\r", "0"},
        {"5 0 0 1", kUp + "\r", "4"},
        {"5 9 0 1", "\r" + kUp + "\r", "4"},
        {"5 9 0 1", "\r" + kDown + "\r", "0"},
        {"5 0 0 0", " += _-\177+\n", "2"},
        {"30 0 5 1", kPageDown + kPageDown + kPageUp + kDown + "\r", "6"},
        {"30 28 5 1", kPageDown + "\r", "29"},
        {"30 3 5 1", kPageUp + "\r", "0"},
        {"30 3 5 1", kEnd + "\r", "29"},
        {"30 3 5 1", kHome + "\r", "0"},
        {"30 3 5 1", "\033[1;5C" + kDown + "\r", "4"},
        {"5 2 0 1", "\033", "-1"},
        {"5 2 0 1", "xc", "-1"},
        {"5 2 0 1", "ks", "2"},
        {"5 9 0 1", "sc", "-1"},
        {"0 0 0 1", kUp + kDown + "\r" + kEnd + "\033", "-1"},
    };
    for (const auto& [scene, typed, result] : cases) {
        Demo demo(2, "list " + scene);
        EXPECT_EQ(demo.resultOf(scene[0] == '0' ? "+--+" : "pozycja", typed), result) << scene << typed;
    }
}

TEST(ToolkitList, FrameAndLinesHaveTheirPlaces) {
    Demo demo(2, "list 30 25 0 1 1");
    const std::string edge = spaces(10) + "+------------+";
    for (const char* before : {"", "callback 114@25"}) {
        demo.waitFor(before);
        demo.waitUntil("the frame is closed", [&] { return demo.row(23) == edge; });
        EXPECT_EQ(demo.row(2), edge);
        EXPECT_EQ(demo.row(3), spaces(10) + "| pozycja 6  |");
        EXPECT_EQ(demo.row(22), spaces(10) + "|>pozycja 25 |") << "twenty rows fit, the current one last";
        for (const int column : {10, 11, 22, 23})
            EXPECT_EQ(demo.cell(22, column).reverse, column == 11 || column == 22);
        EXPECT_FALSE(demo.cursorVisible());
        demo.send("r");  // which draws the list again
    }
}

TEST(ToolkitList, DumbModeBracketsAndUnframedLinesFillTheRest) {
    Demo framed(0, "list 3 0 0 1 1"), plain(0, "list 30 0 0 0 1");
    framed.waitFor("pozycja 2");
    EXPECT_EQ(framed.row(3), spaces(10) + "|[pozycja 0]|");
    plain.waitFor("pozycja 21");
    EXPECT_EQ(plain.row(2), spaces(10) + "[pozycja 0 ]");
    EXPECT_EQ(plain.row(23), spaces(10) + " pozycja 21");
    plain.send(keys::kEnd);
    plain.waitFor("[pozycja 29]");
    plain.send(keys::kUp);
    plain.waitFor("[pozycja 28]");
    EXPECT_EQ(plain.row(23), spaces(10) + " pozycja 29");
}

TEST(ToolkitList, LongItemsAreCutWithDots) {
    Demo framed(2, "list 3 0 0 1 0 100"), plain(2, "list 3 0 0 0 0 100");
    framed.waitFor("pozycja 2");
    EXPECT_EQ(framed.row(2), "+" + std::string(78, '-') + "+");
    EXPECT_EQ(framed.row(4), "| pozycja 1" + std::string(64, 'x') + "... |");
    plain.waitFor("pozycja 2");
    EXPECT_EQ(plain.row(3), " pozycja 1" + std::string(66, 'x') + "...");
}

TEST(ToolkitTerminal, ShrinkingAndGrowingLosesNothing) {
    Demo demo(2, "list 15 3 0 1 1");
    demo.waitFor("pozycja 14");
    demo.resize(10, 40);
    demo.send(keys::kDown);
    const auto fourth = [&] { return demo.row(7) == spaces(10) + "|>pozycja 4  |"; };
    demo.waitUntil("the small screen shows the next item", fourth);
    demo.resize(30, 100);
    demo.waitFor("pozycja 14");
    demo.waitUntil("all is back", [&] { return fourth() && demo.row(18) == spaces(10) + "+------------+"; });
    demo.send("\r");
    EXPECT_EQ(demo.result(), "4");
}

TEST(ToolkitTerminal, SuspendsAndResumes) {
    Demo demo(2, "suspend");
    EXPECT_EQ(demo.resultOf("na zewnatrz", "\n"), "resumed");
    EXPECT_EQ(demo.row(0), "");
}

TEST(ToolkitTerminal, SignalsAndHangUpEndTheProgram) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
        Demo demo(2, "password 20 *");
        demo.waitFor("Hasło:");
        demo.signal(number);
        EXPECT_EQ(demo.waitExit(), 128 + number);
        EXPECT_TRUE(demo.cursorVisible());
        EXPECT_EQ(demo.row(5), "") << "the screen is left as it was found";
    }
    Demo gone(2, "list 5 0 0 1");
    gone.waitFor("pozycja 4");
    gone.hangUp();
    EXPECT_EQ(gone.waitExit(), 128 + SIGHUP);
}

TEST(ToolkitTerminal, WithoutAFitTerminalSaysSo) {
    const std::tuple<const char*, int, int, const char*> cases[] = {
        {"no-such-terminal", 24, 80, "Nieznany rodzaj terminala (TERM=no-such-terminal).\n"},
        {"", 24, 80, "Nieznany rodzaj terminala (TERM=).\n"},
        {"dumb", 24, 80, "Terminal nie umie ustawić kursora (TERM=dumb).\n"},
        {"xterm", 7, 80, "Terminal jest za mały: 80x7, potrzeba co najmniej 40x8.\n"},
        {"xterm", 24, 39, "Terminal jest za mały: 39x24, potrzeba co najmniej 40x8.\n"}};
    for (const auto& [term, rows, columns, error] : cases) {
        // Curses itself leaks when it knows no such terminal.
        ScreenProgram demo({.arguments = Demo::arguments(2, "keys"),
                            .environment = {{"TERM", term}, {"ASAN_OPTIONS", "detect_leaks=0"}},
                            .rows = rows,
                            .columns = columns});
        EXPECT_EQ(demo.waitExit(), 1);
        EXPECT_EQ(demo.errors(), error);
    }
}

TEST(ToolkitTerminal, GetsWhatItsLocaleReads) {
    for (const char* locale : {"C.UTF-8", "pl_PL"}) Demo(2, "error", {{"LANG", locale}}).waitFor("Błąd: zły plik");
}

}  // namespace
}  // namespace crv::test
