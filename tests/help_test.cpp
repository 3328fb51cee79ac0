#include "frontend/version.h"
#include "harness.h"
#include "support/text.h"

namespace {

class Help : public Secapp {
protected:
    Help() {
        board.answers.emplace("help", "=help\nerase   addr \t len\n\n \t\n  list\nVQX_OK\n");
        board.answers.emplace("helpadvanced", "longcommandname x\nVQX_OK\n");
    }
};

const std::string targetTitle = "\nTarget commands (implemented on the device):\n";

// The form of a banner, its numbers and month left out.
std::string form(const std::string& banner) {
    std::string text = withoutNumbers(banner);
    const std::size_t month = text.find("#) (") + 4;
    if (text.size() > month + 5)
        text.replace(month, text[month + 4] == ' ' ? 5 : 4, "Mon ");
    return text;
}

TEST_F(Help, KeepsItsWords) {
    // Whoever changes them on purpose writes the file again with the command.
    for (const auto& [command, file] : {std::pair("secapp -d $PORT -h | sed 1d", "secapp-help.txt"),
                                        {"secapp -d $PORT -H ignored | sed 1d", "secapp-advanced-help.txt"},
                                        {"secapp-lint -h", "secapp-lint-help.txt"},
                                        {"vqxsim --help", "vqxsim-help.txt"}})
        EXPECT_EQ(run(std::string(command) + " | diff " SECAPP_GOLDEN "/" + file + " - 2>&1").out, "")
            << command;
}

TEST_F(Help, AsksTheTargetForItsCommands) {
    for (const auto& [option, conversation] : {std::pair("-h", "help|"), {"-H", "helpadvanced|"}}) {
        const Result r = run(std::string("exec secapp -d $PORT ") + option);
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(board.conversation(), conversation);
    }
    EXPECT_EQ(runScript("hello\n?\necho not reached").out, run("exec secapp -d $PORT -h").out)
        << "while connected";
}

TEST_F(Help, ShowsTheSettingsMadeBeforeIt) {
    const auto settings = [](const std::string& timeout, const std::string& vtime, const std::string& vmin,
                             const std::string& encoders, const std::string& words) {
        return "Default is " + timeout + "mS\nvalue (default " + vtime + ")\nvalue (default " + vmin + ")\n" +
               encoders + "(default=" + words + ")\n";
    };
    const std::string hex = "Hex Encoder [default]\nBinary Encoder \n",
                      binary = "Hex Encoder \nBinary Encoder [default]\n";
    for (const auto& [options, shown] : std::vector<std::pair<std::string, std::string>>{
             {"-H", settings("5000", "0", "1", binary, "32")},
             {"-g 100 -T 0x2 -M 300 -a 0 -w 99 -H -g 7", settings("100", "2", "300", hex, "99")},
             {"-M -1 -g -5 -a 0 -a 1 -H", settings("-5", "0", "4294967295", binary, "32")},
         })
        EXPECT_EQ(run("secapp -d $PORT " + options +
                      " | grep -Eo 'Default is .*|value .default .*|(Hex|Binary) Enc.*|.default=.*'")
                      .out,
                  shown)
            << options;
}

TEST_F(Help, CallsTheProgramByTheNameOfItsFile) {
    board.answers.emplace("version", "firmware 2.1\nVQX_OK\n");
    ASSERT_EQ(run("ln -s \"$(command -v secapp)\" flasher").status, 0);
    for (const auto& [path, name] : {std::pair("secapp", "secapp"), {"./flasher", "flasher"}}) {
        Result r = run(std::string("exec ") + path + " -d $PORT version 0x10");
        EXPECT_EQ(form(r.out), std::string(name) + ": #.#.# (Build #) (Mon # # #:#:#)\nfirmware #.#\n");
        EXPECT_EQ(board.conversation(), "version 0x10|");
        r = run(std::string("exec ") + path + " -d $PORT -h");
        EXPECT_EQ(form(r.out.substr(0, r.out.find(" [-d"))),
                  std::string(name) +
                      ": Tavren VQX Scripting tool. v#.#.# (Build #) (Mon # # #:#:#)\nusage: " + name);
    }
}

TEST(ProgramName, IsTheTextAfterTheLastSlash) {
    for (const auto& [path, name] :
         {std::pair("a/b", "b"), {"/b", "b"}, {"b", "b"}, {"x/", ""}, {"a//", ""}, {"", ""}}) {
        secapp::setProgramName(path);
        EXPECT_EQ(secapp::getProgramName(), name) << path;
    }
    secapp::setProgramName("secapp");
}

TEST(Basename, IsTheLastPartOfAPath) {
    for (const auto& [path, name] :
         {std::pair("a/b//", "b"), {"/b", "b"}, {"b", "b"}, {"//", "/"}, {"", "."}})
        EXPECT_EQ(secapp::getBasename(path), name) << path;
}

TEST_F(Help, SaysWhyTheTargetCannotAnswer) {
    board.answers.insert_or_assign("help", "VQX_ERROR busy\n");
    const Result r = run("exec secapp -d $PORT -h");
    EXPECT_TRUE(r.out.ends_with(targetTitle)) << r.out;
    EXPECT_EQ(r.err, "Cannot display target help: busy\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(run("exec secapp -d /nonexistent -h").err, "/nonexistent: No such file or directory\n");
    EXPECT_EQ(run("exec secapp -d /nonexistent -h").status, 255);
}

} // namespace
