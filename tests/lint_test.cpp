#include "harness.h"

#include <fstream>
#include <regex>

namespace {

class Lint : public Secapp {
protected:
    Lint() {
        const std::vector<std::pair<std::string, std::string>> files = {
            {"fw", image(100)},
            {"20261126", image(1)},
            {"#fw", image(1)},
            {"empty", ""},
            {"elf", "\x7F" + std::string("ELF")},
            {"hex", "\n:020000040000FA\r\n:00000001FF\r\n"},
            {"srec", "S00600004844521B\n"},
            {"hexlike", ":0200000400FA\n"},
            {"text", "Text: :00000001FF\n"},
        };
        for (const auto& [name, content] : files)
            write(name, content);
        run("mkdir d; mkfifo pipe; ln -s fw link");
    }

    /// The findings of the script, each as "    E1 text" for an error in line 1 or "    W1 text" for a
    /// warning.
    std::string findings(const std::string& script, const std::string& options = "") {
        write("s", script);
        const Result r = run("exec secapp-lint " + options + " s");
        EXPECT_EQ(r.err, "") << script;
        EXPECT_EQ(r.status, r.out.empty() ? 0 : 1) << script;
        const std::string found = std::regex_replace(r.out, std::regex("s:(\\d+): error: "), "    E$1 ");
        return std::regex_replace(found, std::regex("s:(\\d+): warning: "), "    W$1 ");
    }
};

TEST_F(Lint, ReportsMistakes) {
    // Scripts, "\n" and "\r" for line breaks, each followed by its findings.
    std::ifstream golden(SECAPP_GOLDEN "/lint-findings.txt");
    std::string expected;
    std::string actual;
    for (std::string line; std::getline(golden, line);) {
        expected += line + "\n";
        if (line.front() == ' ')
            continue;
        const std::string script = std::regex_replace(line, std::regex("\\\\n"), "\n");
        actual += line + "\n" + findings(std::regex_replace(script, std::regex("\\\\r"), "\r"));
    }
    EXPECT_GT(actual.size(), 5000U);
    EXPECT_EQ(actual, expected);
    EXPECT_EQ(findings(std::string("echo\0a", 6)), "    E1 a zero byte ends the run\n");
    EXPECT_EQ(findings("\xEF\xBB\xBF#"), "    E1 the byte-order mark is read as part of the first word\n");
    EXPECT_EQ(findings("# " + std::string(1021, 'x') + "erase 0\n?"),
              "    E1 a line has more than 1023 characters: 'erase 0' runs as the next one\n"
              "    E2 '?' alone shows the help and ends the run with status 0\n");
}

TEST_F(Lint, IsSilentAboutCorrectScripts) {
    for (const std::string& script : std::vector<std::string>{
             "# lint: off\nprogram fw FLASH\n# lint: off\n# " + std::string(1200, '#'),
             "program +c fw FLASH+0x4000\nverify +i fw flash+16*1024; program ./fw 0; verify link 0",
             "program fw FLASH,BANKB,\nverify fw all; program #fw 0; verify .//#fw 0\r",
             "program +w2 0x10 FLASH 6; verify +w2 16 FLASH 8; program +w1 1 0; verify 0x01010101 0",
             "echo a // b # c; print [1] # d; - timer stop; pause on; PAUSE OFF; pause No\xFE",
             "# a # b; # c;;\t; #\nerase 0xFFFFFFFF; delay 4294967295; readWord a-010 4K; setVidPid 08 010",
             "var a=[b]; var b=echo; [b]; [a] c; varc=1; var d=; @progam[none]; timer on; TIMER print",
             "dumb; readBack; reset 1 2 3; print progam; otp_ProgUSBID 1 2; verify hexlike 0; verify text 0",
             "erase all,07,00; verify 0x11 FLASH BANKB-FLASH-1; download .//fw",
             "var a=" + std::string(600, 'x') + "\necho [a][a]",
         })
        EXPECT_EQ(findings(script), "") << script;
}

TEST_F(Lint, TakesVariablesAsSecappDoes) {
    EXPECT_EQ(findings("verify [image] FLASH 7", "-v image=fw -v ' more=x '"),
              "    E1 '7' has no effect: a file is verified whole\n");
    EXPECT_EQ(
        findings("pause off; ?echo a\npause; pause on", "--unattended"),
        "    E1 '?' waits for a user\n    E2 'pause' waits for a user\n    E2 'pause' waits for a user\n");
    const Result r = run("secapp-lint -v a=b=c s; exec secapp-lint -v image s");
    EXPECT_TRUE(r.out.starts_with("<Command line>:0: error: only one '=' counts: the variable 'a' is 'b'\n"));
    EXPECT_EQ(r.err, "variable cannot have a NULL value: image\n");
    EXPECT_EQ(r.status, 2);
}

TEST_F(Lint, ChecksEachScriptOnItsOwnAndSaysWhatItCannotRead) {
    write("a", "var x=1; echo [x]\n");
    write("b", "echo [x]\n");
    const Result r = run("exec secapp-lint a none b . /dev/ptmx /proc/self/mem");
    EXPECT_EQ(r.out, "b:1: warning: '[x]' is not defined here and is left as it is\n");
    EXPECT_EQ(r.err,
              "Unable to open script file none\nUnable to open script file .\n"
              "Unable to open script file /dev/ptmx\nScript could not be read to its end: /proc/self/mem\n");
    EXPECT_EQ(r.status, 2);
    for (const auto& [words, status] :
         {std::pair("", 2), {"-q a", 2}, {"a --nope", 2}, {"-h", 0}, {"--version", 0}})
        EXPECT_EQ(run("exec secapp-lint " + std::string(words)).status, status) << words;
    EXPECT_EQ(run("cat b | secapp-lint /dev/stdin").out.substr(0, 21), "/dev/stdin:1: warning");
}

TEST_F(Lint, ListsTheFilesThatScriptsName) {
    write("a",
          "program [image] FLASH; verify fw FLASH\ndownload +c +x\n[run] y 0; program 123 0; echo [z]\n");
    write("b", "verify ./fw [where]; program fw 0\n");
    Result r = run("POSIXLY_CORRECT=1 secapp-lint a --files b");
    EXPECT_EQ(r.out, "fw\n+x\n");
    EXPECT_EQ(r.err, "a:1: error: '[image]' is not defined here\na:3: error: '[run]' is not defined here\n"
                     "b:1: error: '[where]' is not defined here\n");
    EXPECT_EQ(r.status, 1);
    r = run("secapp-lint --files -v image=s.bin -v run=verify -v where=0 a b");
    EXPECT_EQ(r.out + r.err, "s.bin\nfw\n+x\ny\n./fw\n");
    EXPECT_EQ(r.status, 0);
}

TEST_F(Lint, FindsNothingInTheExamples) {
    const Result r =
        run("cd " SECAPP_EXAMPLES " && for script in *.secapp */*.secapp; do "
            "values=$(sed -n '2s/.*secapp -d {}\\(.*\\) -s .*/\\1/p' $script | grep -o -e '-v [^ ]*');"
            "(cd $(dirname $script) && secapp-lint $values $(basename $script)) || exit; done");
    EXPECT_EQ(r.out + r.err, "");
    EXPECT_EQ(r.status, 0);
}

} // namespace
