#include "frontend/version.h"
#include "harness.h"
#include "support/text.h"

#include <tuple>

namespace {

class Help : public Secapp {
protected:
    Help() {
        board.answers.emplace("help", "=help\nerase   addr \t len\n\n \t\n  list\nVQX_OK\n");
        board.answers.emplace("helpadvanced", "longcommandname x\nVQX_OK\n");
    }
};

TEST_F(Help, KeepsItsWords) {
    // After an intended change, write the file again with the command.
    for (const auto& [command, file] : {std::pair("secapp -d $PORT -h | sed 1d", "secapp-help.txt"),
                                        {"secapp -d $PORT -H ignored | sed 1d", "secapp-advanced-help.txt"},
                                        {"secapp-lint -h", "secapp-lint-help.txt"},
                                        {"vqxsim --help", "vqxsim-help.txt"}})
        EXPECT_EQ(run(std::string(command) + " | diff " SECAPP_GOLDEN "/" + file + " - 2>&1").out, "")
            << command;
}

TEST_F(Help, AsksTheTargetForItsCommands) {
    const Result help = run("exec secapp -d $PORT -h");
    EXPECT_EQ(help.err, "");
    EXPECT_EQ(help.status, 0);
    EXPECT_EQ(board.conversation(), "help|");
    EXPECT_EQ(run("exec secapp -d $PORT -H").status, 0);
    EXPECT_EQ(board.conversation(), "helpadvanced|");
    EXPECT_EQ(runScript("hello\n?\necho not reached").out, help.out) << "while connected";

    board.answers.insert_or_assign("help", "VQX_ERROR busy\n");
    const Result refused = run("exec secapp -d $PORT -h");
    EXPECT_TRUE(refused.out.ends_with("\nTarget commands (implemented on the device):\n")) << refused.out;
    EXPECT_EQ(refused.err, "Cannot display target help: busy\n");
    EXPECT_EQ(refused.status, 0);
    const Result unreachable = run("exec secapp -d /nonexistent -h");
    EXPECT_EQ(unreachable.err, "/nonexistent: No such file or directory\n");
    EXPECT_EQ(unreachable.status, 255);
}

TEST_F(Help, ShowsTheSettingsMadeBeforeIt) {
    EXPECT_EQ(run("secapp -d $PORT -g 100 -T 0x2 -M -1 -a 0 -w 99 -H -g 7 | sed 1d | diff " SECAPP_GOLDEN
                  "/secapp-advanced-help.txt - | grep '^>'")
                  .out,
              "> \t -g usec\tset (global) timeout for commands in mS. Default is 100mS\n"
              "> \t -T decisec \tserial port VTIME value (default 2)\n"
              "> \t -M value \tserial port VMIN value (default 4294967295)\n"
              "> \t\t\t0 - Hex Encoder [default]\n"
              "> \t\t\t1 - Binary Encoder \n"
              "> \t -w size\tset packet transfer size (default=99)\n");
}

TEST_F(Help, CallsTheProgramByTheNameOfItsFile) {
    board.answers.emplace("version", "firmware 2.1\nVQX_OK\n");
    ASSERT_EQ(run("ln -s \"$(command -v secapp)\" flasher").status, 0);
    const std::string date = " | sed -E 's/[A-Z][a-z]{2} [ 0-9]{2} [0-9]{4} [0-9:]{8}/DATE/'";
    for (const auto& [path, name] : {std::pair("secapp", "secapp"), {"./flasher", "flasher"}}) {
        Result r = run(path + (" -d $PORT version 0x10" + date));
        EXPECT_EQ(withoutNumbers(r.out), name + std::string(": #.#.# (Build #) (DATE)\nfirmware #.#\n"));
        EXPECT_EQ(board.conversation(), "version 0x10|");
        r = run(path + (" -d $PORT -h" + date));
        EXPECT_EQ(withoutNumbers(r.out.substr(0, r.out.find(" [-d"))),
                  name + std::string(": Tavren VQX Scripting tool. v#.#.# (Build #) (DATE)\nusage: ") + name);
    }
}

TEST(ProgramName, IsTheTextAfterTheLastSlash) {
    for (const auto& [path, name, component] : {std::tuple("a/b", "b", "b"),
                                                {"/b", "b", "b"},
                                                {"b", "b", "b"},
                                                {"a/b//", "", "b"},
                                                {"//", "", "/"},
                                                {"", "", "."}}) {
        secapp::setProgramName(path);
        EXPECT_EQ(secapp::getProgramName(), name) << path;
        EXPECT_EQ(secapp::getBasename(path), component) << path;
    }
    secapp::setProgramName("secapp");
}

} // namespace
