// The toolkit's primitives on a terminal, through the program toolkit_demo.
#include <gtest/gtest.h>

#include <csignal>

#include "support/screen/screen_program.h"

namespace crv::test {
namespace {

/// The demo with one scene, on a terminal of its own.
class Demo : public ScreenProgram {
  public:
    Demo(int mode, const std::vector<std::string>& scene, std::map<std::string, std::string> environment = {})
        : ScreenProgram(start(mode, scene, std::move(environment))) {}

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

  private:
    static Start start(int mode, const std::vector<std::string>& scene,
                       std::map<std::string, std::string> environment) {
        Start start{.arguments = {CRV_BIN_DIR "/toolkit_demo", std::to_string(mode)},
                    .environment = std::move(environment)};
        start.arguments.insert(start.arguments.end(), scene.begin(), scene.end());
        return start;
    }
};

std::string spaces(size_t count) {
    return std::string(count, ' ');
}

TEST(ToolkitOutput, TextsStandWhereTheyBelongAndStayInTheirRow) {
    Demo demo(2, {"output", "Nagłówek"});
    EXPECT_EQ(demo.result(), "drawn");
    // 10 bytes are centred from column 35 although they take 8 columns; the bar reaches both edges.
    EXPECT_EQ(demo.cells(0, 0, 80), spaces(35) + "Nagłówek" + spaces(37));
    EXPECT_TRUE(demo.cell(0, 0).reverse && demo.cell(0, 79).reverse);
    EXPECT_EQ(demo.row(1), spaces(70) + "za prawą k");
    EXPECT_EQ(demo.row(2), "");
    EXPECT_EQ(demo.row(3), spaces(33) + "wyśrodkowany");
    EXPECT_EQ(demo.row(4), "  3) Bazy danych, klucze, Półka, koniec");
    EXPECT_TRUE(demo.cell(4, 2).underline && demo.cell(4, 18).underline && demo.cell(4, 27).underline);
    EXPECT_FALSE(demo.cell(4, 3).underline);
    EXPECT_EQ(demo.row(6), spaces(39) + "ab");
    EXPECT_EQ(demo.row(8), "znak ?[31m??? i ?") << "control bytes reach the terminal";
    EXPECT_TRUE(demo.cell(9, 0).bold);
    EXPECT_EQ(demo.row(10), "");
    EXPECT_EQ(demo.row(11), std::string(80, '0'));
    EXPECT_EQ(demo.row(12), "");
    EXPECT_FALSE(demo.cursorVisible());
    demo.send("x");
    EXPECT_EQ(demo.waitExit(), 0);
}

TEST(ToolkitOutput, DumbModeShowsMnemonicsAsCapitals) {
    Demo demo(0, {"output", "x"});
    demo.result();
    EXPECT_EQ(demo.row(4), "  3) Bazy danych, Klucze, PÓłka, koniec");
    EXPECT_FALSE(demo.cell(4, 2).underline || demo.cell(0, 0).reverse || demo.cell(9, 0).bold);
}

TEST(ToolkitOutput, HeaderIsCutAt80Bytes) {
    const std::string full(80, 'a');
    for (const auto& [text, bar] : {std::pair{full, full},
                                    {full + "b", std::string(77, 'a') + "..."},
                                    {std::string(76, 'a') + "żxyz", std::string(76, 'a') + "..."}}) {
        Demo demo(1, {"output", text});
        demo.result();
        EXPECT_EQ(demo.row(0), bar);
        EXPECT_TRUE(demo.cell(0, 79).reverse);
    }
}

TEST(ToolkitKeys, SequencesAreDecodedAndUnknownOnesTakenInWhole) {
    const std::vector<std::pair<std::string, std::string>> cases{{"a", "97"},
                                                                 {"\x1b[A", "1072"},
                                                                 {"\x1b[B", "1080"},
                                                                 {"\x1b[5~", "1073"},
                                                                 {"\x1b[6~", "1081"},
                                                                 {"\x1b"
                                                                  "D",
                                                                  "1081"},
                                                                 {"\x1bM", "1073"},
                                                                 {"\x02", "1073"},
                                                                 {"\x06", "1081"},
                                                                 {"\x7f", "8"},
                                                                 {"\r", "10"},
                                                                 {"\x1b\x1b", "27"},
                                                                 {"\x1b[1;5C", "0"},
                                                                 {"\x1b[[A", "0"},
                                                                 {"\x1bOP", "0"},
                                                                 {"\x1b[200~", "0"},
                                                                 {"\x1bx", "0"},
                                                                 {"\xc5\x82", "197 130"}};
    Demo demo(2, {"keys"});
    std::string expected;
    for (const auto& [bytes, codes] : cases) {
        demo.send(bytes);
        expected += " " + codes;
        demo.waitUntil(codes + " after" + expected,
                       [&] { return demo.row(2) + demo.row(3) == expected.substr(0, 80); });
    }
}

TEST(ToolkitKeys, LoneEscapeCountsAfterSilenceAndItsRepetitionDoesNot) {
    Demo demo(2, {"keys"});
    demo.send("a");
    demo.waitFor("97");
    demo.send(keys::kEscape);
    demo.waitFor("97 27");
    demo.send(keys::kEscape);
    demo.send("\x1b");  // together with the one before: a double press is Escape
    demo.waitFor("97 27 27");
    demo.send("b");
    demo.waitFor("97 27 27 98");
}

TEST(ToolkitLine, EditsScrollsAndEnds) {
    struct Case {
        std::vector<std::string> scene;
        std::string keys;
        std::string result;
    };
    const std::vector<Case> cases{
        {{"line", "0", "20", "0", ""}, "ab c\r", "4 [ab c]"},
        {{"line", "0", "20", "0", "stary"}, "\x7f\x7fX\r", "4 [staX]"},
        {{"line", "0", "4", "0", ""}, "abcdef\r", "3 [abc]"},
        {{"line", "0", "20", "0", ""}, "ab\x1b\x1b", "-1 [ab]"},
        {{"line", "0", "20", "0", ""},
         "\x7f\x1b[A\xc5\x82"
         "a\r",
         "1 [a]"},
        {{"word"}, "a b\r", "2 [ab]"},
        {{"number"}, "12x3\r", "123"},
        {{"number"}, "\r", "-2"},
        {{"number"}, "5\x1b\x1b", "-1"},
        {{"number"}, std::string(45, '9') + "\r", "2147483647"},
    };
    for (const Case& c : cases) {
        Demo demo(2, c.scene);
        EXPECT_EQ(demo.resultOf(":", c.keys), c.result) << c.scene[0] << " " << c.keys;
        EXPECT_EQ(demo.row(5), "") << "the prompt stays";
        EXPECT_FALSE(demo.cursorVisible());
    }
}

TEST(ToolkitLine, LongTextShowsItsTailBehindAMark) {
    Demo demo(2, {"line", "10", "100", "12", ""});
    demo.waitFor("Plik:");
    demo.send("abcdefghijk");
    demo.waitFor("Plik: abcdefghijk");
    EXPECT_EQ(demo.cursor(), std::pair(5, 27));
    EXPECT_TRUE(demo.cursorVisible());
    demo.send("l");
    demo.waitFor("Plik: <cdefghijkl");
    EXPECT_TRUE(demo.cell(5, 16).reverse);
    EXPECT_FALSE(demo.cell(5, 17).reverse);
    demo.send("\x7f");
    demo.waitFor("Plik: abcdefghijk");
    EXPECT_FALSE(demo.cell(5, 16).reverse);
}

TEST(ToolkitPassword, TakesBytesAsTypedAndShowsEchoesOnly) {
    struct Case {
        std::vector<std::string> scene;
        std::string keys;
        std::string result;
        std::string shown;
    };
    const std::vector<Case> cases{
        {{"password", "255", "*"}, "a\xc5\x82 \r", "4 [61c58220]", "Hasło:****"},
        {{"password", "255", ""}, "abc\r", "3 [616263]", "Hasło:"},
        {{"password", "4", "*"}, "abcdef\r", "3 [616263]", "Hasło:***"},
        {{"password", "255", "*"},
         "ab\x7f\x7f\x7f"
         "c\r",
         "1 [63]",
         "Hasło:*"},
        {{"password", "255", "*", "ab"}, "c\r", "3 [616263]", "Hasło:***"},
        {{"password", "255", "*"},
         "a\x1b[A"
         "b\x1b[3~\r",
         "2 [6162]",
         "Hasło:**"},
        {{"password", "255", "*"}, "ab\x1b", "-1 []", "Hasło:**"},
        {{"password", "255", "*"}, std::string(100, 'a') + "\r", "100 [", "Hasło:" + std::string(73, '*')},
    };
    for (const Case& c : cases) {
        Demo demo(2, c.scene);
        EXPECT_EQ(demo.resultOf("Hasło:", c.keys).substr(0, c.result.size()), c.result) << c.keys;
        EXPECT_EQ(demo.row(5), c.shown);
        EXPECT_EQ(demo.row(6), "");
    }
}

TEST(ToolkitQuestions, OnlyTheOfferedKeysAnswer) {
    for (const auto& [scene, typed, answer] : {std::tuple{"yesno", "x\r\x1b[At", "1"},
                                               {"yesno", "qT", "1"},
                                               {"yesno", "\x1b\x1bN", "0"},
                                               {"question", "tWw", "119"},
                                               {"question", "T", "84"},
                                               {"question", "x\x1b\x1b", "-1"}}) {
        Demo demo(2, {scene});
        EXPECT_EQ(demo.resultOf(scene == std::string("yesno") ? "(t/n) ?" : "Tak, Powrót", typed), answer)
            << scene << typed;
    }
}

TEST(ToolkitMessages, GoAwayByAKeyOrByTime) {
    Demo keyed(2, {"error"});
    keyed.waitFor("Błąd: zły plik");
    EXPECT_EQ(keyed.row(23), spaces(31) + "Błąd: zły plik");
    EXPECT_EQ(keyed.bells(), 1);
    keyed.send("\x1b[A");
    EXPECT_EQ(keyed.result(), "gone");
    EXPECT_EQ(keyed.row(23), "");
    Demo timed(2, {"wait", "1"});
    EXPECT_EQ(timed.result(), "-1");
    Demo pressed(2, {"wait", "100"});
    pressed.send("y");
    EXPECT_EQ(pressed.result(), "121");
}

TEST(ToolkitRandom, CountsKeysUpToTheBufferAndIgnoresTheRest) {
    for (const auto& [scene, typed, counter, end, result] : {std::tuple{"random", "abc", " - 3", "\r", "3 filled"},
                                                             {"random", "a\x1b[Abcdef", " - 4", "\n", "4 filled"},
                                                             {"random", "ab", " - 2", "\x1b", "-1"},
                                                             {"digest", "abcdef", " - 6", "\r", "6 filled"},
                                                             {"digest", "", "", "\r", "0 filled"},
                                                             {"digest", "a", " - 1", "\x1b", "-1"}}) {
        Demo demo(2, {scene});
        demo.waitFor("Klawisze:");
        demo.send(typed);
        demo.waitFor(std::string("Klawisze:") + counter);
        demo.send(end);
        EXPECT_EQ(demo.result(), result);
        EXPECT_EQ(demo.row(23), "");
    }
}

// Arguments of the list scene: count, selected, rows, framed, at a fixed column, extra length of item 1.
TEST(ToolkitList, MovesWrapsAndChooses) {
    struct Case {
        std::vector<std::string> scene;
        std::string keys;
        std::string result;
    };
    const std::string up = keys::kUp, down = keys::kDown;
    const std::vector<Case> cases{
        {{"5", "2", "0", "1"}, "\r", "2"},
        {{"5", "4", "0", "1"}, down + "\r", "0"},
        {{"5", "0", "0", "1"}, up + "\r", "4"},
        {{"5", "9", "0", "1"}, "\r" + up + "\r", "4"},
        {{"5", "9", "0", "1"}, "\r" + down + "\r", "0"},
        {{"5", "0", "0", "0"},
         " += _-"
         "\x7f"
         "+\n",
         "2"},
        {{"30", "0", "5", "1"}, keys::kPageDown + keys::kPageDown + keys::kPageUp + down + "\r", "6"},
        {{"30", "28", "5", "1"}, keys::kPageDown + "\r", "29"},
        {{"30", "3", "5", "1"}, keys::kPageUp + "\r", "0"},
        {{"30", "3", "5", "1"}, keys::kEnd + "\r", "29"},
        {{"30", "3", "5", "1"}, keys::kHome + "\r", "0"},
        {{"30", "3", "5", "1"}, "\x1b[1;5C" + down + "\r", "4"},
        {{"5", "2", "0", "1"}, "\x1b", "-1"},
        {{"5", "2", "0", "1"}, "xc", "-1"},
        {{"5", "2", "0", "1"}, "ks", "2"},
        {{"5", "9", "0", "1"}, "sc", "-1"},
        {{"0", "0", "0", "1"}, up + down + "\r" + keys::kEnd + "\x1b", "-1"},
    };
    for (const Case& c : cases) {
        std::vector<std::string> scene{"list"};
        scene.insert(scene.end(), c.scene.begin(), c.scene.end());
        Demo demo(2, scene);
        EXPECT_EQ(demo.resultOf(c.scene[0] == "0" ? "+--+" : "pozycja", c.keys), c.result) << c.scene[1] << c.keys;
    }
}

TEST(ToolkitList, FrameAndLinesHaveTheirPlaces) {
    Demo demo(2, {"list", "30", "25", "0", "1", "1"});
    demo.waitUntil("the frame is closed", [&] { return !demo.row(23).empty(); });
    EXPECT_EQ(demo.row(2), spaces(10) + "+------------+");
    EXPECT_EQ(demo.row(22), spaces(10) + "|>pozycja 25 |") << "twenty rows fit, the current one last";
    EXPECT_EQ(demo.row(23), spaces(10) + "+------------+");
    EXPECT_EQ(demo.row(3), spaces(10) + "| pozycja 6  |");
    EXPECT_TRUE(demo.cell(22, 11).reverse && demo.cell(22, 22).reverse);
    EXPECT_FALSE(demo.cell(22, 10).reverse || demo.cell(22, 23).reverse);
    EXPECT_FALSE(demo.cursorVisible());
    demo.send("r");
    demo.waitFor("callback 114@25");
    demo.waitUntil("the list is drawn again", [&] { return demo.row(23) == spaces(10) + "+------------+"; });
    EXPECT_EQ(demo.row(2), spaces(10) + "+------------+");
    EXPECT_EQ(demo.row(22), spaces(10) + "|>pozycja 25 |");
}

TEST(ToolkitList, DumbModeBracketsAndUnframedLinesFillTheRest) {
    Demo framed(0, {"list", "3", "0", "0", "1", "1"});
    framed.waitFor("pozycja 2");
    EXPECT_EQ(framed.row(3), spaces(10) + "|[pozycja 0]|");
    Demo plain(0, {"list", "30", "0", "0", "0", "1"});
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
    Demo framed(2, {"list", "3", "0", "0", "1", "0", "100"});
    framed.waitFor("pozycja 2");
    EXPECT_EQ(framed.row(2), "+" + std::string(78, '-') + "+");
    EXPECT_EQ(framed.row(4), "| pozycja 1" + std::string(64, 'x') + "... |");
    Demo plain(2, {"list", "3", "0", "0", "0", "0", "100"});
    plain.waitFor("pozycja 2");
    EXPECT_EQ(plain.row(3), " pozycja 1" + std::string(66, 'x') + "...");
}

TEST(ToolkitTerminal, ShrinkingAndGrowingLosesNothing) {
    Demo demo(2, {"list", "15", "3", "0", "1", "1"});
    demo.waitFor("pozycja 14");
    demo.resize(10, 40);
    demo.send(keys::kDown);
    demo.waitUntil("the small screen shows the next item",
                   [&] { return demo.row(7) == spaces(10) + "|>pozycja 4  |"; });
    demo.resize(30, 100);
    demo.waitFor("pozycja 14");
    demo.waitUntil("all is back", [&] {
        return demo.row(7) == spaces(10) + "|>pozycja 4  |" && demo.row(18) == spaces(10) + "+------------+";
    });
    demo.send("\r");
    EXPECT_EQ(demo.result(), "4");
}

TEST(ToolkitTerminal, SuspendsAndResumes) {
    Demo demo(2, {"suspend"});
    demo.waitFor("na zewnatrz");
    demo.send("\n");
    EXPECT_EQ(demo.result(), "resumed");
    EXPECT_EQ(demo.row(0), "");
}

TEST(ToolkitTerminal, SignalsAndHangUpEndTheProgram) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
        Demo demo(2, {"password", "20", "*"});
        demo.waitFor("Hasło:");
        demo.signal(number);
        EXPECT_EQ(demo.waitExit(), 128 + number);
        EXPECT_TRUE(demo.cursorVisible());
        EXPECT_EQ(demo.row(5), "") << "the screen is left as it was found";
    }
    Demo gone(2, {"list", "5", "0", "0", "1"});
    gone.waitFor("pozycja 4");
    gone.hangUp();
    EXPECT_EQ(gone.waitExit(), 128 + SIGHUP);
}

TEST(ToolkitTerminal, WithoutAFitTerminalSaysSo) {
    struct Case {
        std::string term;
        int rows;
        int columns;
        std::string error;
    };
    for (const Case& c : {Case{"no-such-terminal", 24, 80, "Nieznany rodzaj terminala (TERM=no-such-terminal).\n"},
                          Case{"", 24, 80, "Nieznany rodzaj terminala (TERM=).\n"},
                          Case{"xterm", 23, 80, "Terminal jest za mały: 80x23, potrzeba co najmniej 80x24.\n"},
                          Case{"xterm", 24, 79, "Terminal jest za mały: 79x24, potrzeba co najmniej 80x24.\n"}}) {
        // Curses itself leaks when it knows no such terminal.
        ScreenProgram demo({.arguments = {CRV_BIN_DIR "/toolkit_demo", "2", "keys"},
                            .environment = {{"TERM", c.term}, {"ASAN_OPTIONS", "detect_leaks=0"}},
                            .rows = c.rows,
                            .columns = c.columns});
        EXPECT_EQ(demo.waitExit(), 1);
        EXPECT_EQ(demo.errors(), c.error);
    }
}

TEST(ToolkitEncodings, TheTerminalGetsWhatItsLocaleReads) {
    for (const auto& [locale, row] : {std::pair{"C.UTF-8", "Błąd: zły plik"}, {"pl_PL", "Błąd: zły plik"}}) {
        Demo demo(2, {"error"}, {{"LANG", locale}});
        demo.waitFor(row);
    }
}

}  // namespace
}  // namespace crv::test
