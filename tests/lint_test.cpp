#include "harness.h"

namespace {

class Lint : public Secapp {
protected:
    Lint() {
        write("fw", image(100));
        write("abc", image(100));
        write("0123", image(100));
    }

    /// What the checker prints about the script, without the name of the file.
    std::string findings(const std::string& script, const std::string& options = "") {
        write("s", script);
        const Result r = run("exec secapp-lint " + options + " s");
        EXPECT_EQ(r.err, "") << script;
        EXPECT_EQ(r.status, r.out.empty() ? 0 : 1) << script;
        std::string lines;
        for (std::size_t at = 0, end = 0; (end = r.out.find('\n', at)) != std::string::npos; at = end + 1) {
            EXPECT_EQ(r.out.substr(at, 2), "s:") << script;
            lines += r.out.substr(at + 2, end - at - 1);
        }
        return lines;
    }
};

TEST_F(Lint, SaysHowARunReadsASlip) {
    const std::string oneWord = ": addresses are one word\n";
    const std::string toTarget = " is no command of the tool: it goes to the target; did you mean ";
    const std::string noComment = " begins no comment here: it is a word of the command\n";
    const std::string x(1021, 'x');
    for (const auto& [script, expected] : std::vector<std::pair<std::string, std::string>>{
             {"verify fw FLASH + 0x1000", "1: error: '+' and '0x1000' have no effect" + oneWord},
             {"verify fw FLASH, BANKB 7 8", "1: error: 'BANKB', '7' and '8' have no effect" + oneWord},
             {"ERASE FLASH, BANKB", "1: error: 'BANKB' has no effect" + oneWord},
             {"blankCheck FLASH BANKB", "1: error: 'BANKB' has no effect" + oneWord},
             {"verify +c fw FLASH 100", "1: error: '100' has no effect: a file is verified whole\n"},
             {"verify 0x11 FLASH + 64",
              "1: error: '64' has no effect: a length is one word\n1: error: '+' is the length" + oneWord},
             {"verify 0x11 FLASH 64 65", "1: error: '65' has no effect: a length is one word\n"},
             {"setBoot BankA BankB", "1: error: 'BankB' has no effect: one bank is selected\n"},
             {"setVidPid 1 2 3", "1: error: '3' has no effect: there are two numbers\n"},
             {"delay 1 000", "1: error: '000' has no effect: a time is one word\n"},
             {"timer stop it", "1: error: 'it' has no effect: an operation is one word\n"},
             {"targetInfo FLASH", "1: error: 'FLASH' has no effect: the command takes no words\n"},
             {"download +c fw FLASH", "1: error: 'FLASH' has no effect: one file is loaded\n"},
             {"verify 0x11223344 FLASH 2*3",
              "1: error: '2*3' bytes are no multiple of the width 4: the last 2 are zero\n"},
             {"verify +w2 0x11 FLASH 7",
              "1: error: '7' bytes are no multiple of the width 2: the last 1 are zero\n"},
             {"verify 0x11 FLASH -1", "1: error: '-1' is the length" + oneWord},
             {"verify 0x11 FLASH 4-4", "1: error: a length of '4-4' transfers nothing\n"},
             {"verify +w1 0x123 FLASH 7", "1: error: only the low 8 bits of '0x123' are used\n"},
             {"verify +w1 fw FLASH", "1: warning: '+w1' has no effect: a file has no width\n"},
             {"verify abc FLASH", "1: error: 'abc' is a value, not a file: it has only hexadecimal digits\n"},
             {"verify 0123 FLASH",
              "1: error: '0123' is a value, not a file: it has only hexadecimal digits\n"},
             {"# all; erase FLASH", "1: warning: 'erase FLASH' is run: the comment ends at ';'\n"},
             {"erase FLASH # main", "1: error: '#'" + noComment},
             {"readWord FLASH #first", "1: error: '#first'" + noComment},
             {"// erase", "1: error: '//'" + noComment},
             {"\n\nprogam fw FLASH", "3: warning: 'progam'" + toTarget + "'program'?\n"},
             {"Verfiy fw FLASH", "1: warning: 'Verfiy'" + toTarget + "'verify'?\n"},
             {"pogam fw FLASH", "1: warning: 'pogam'" + toTarget + "'program'?\n"},
             {"raedWord FLASH", "1: warning: 'raedWord'" + toTarget + "'readWord'?\n"},
             {"readword FLASH", "1: warning: 'readword'" + toTarget + "'readWord'?\n"},
             {"varify fw FLASH",
              "1: error: 'varify' defines the variable 'ify fw FLASH' as empty: it begins with 'var'\n"},
             {"var x = 5", "1: warning: blanks beside '=' count: the name is 'x ', the value ' 5'\n"},
             {"var x=5=6", "1: error: the value ends at the second '=': it is '5'\n"},
             {"pause once more",
              "1: error: 'once more' begins with 'on': it switches confirmation and is not shown\n"},
             {"erase [bank]\nerase [bank]", "1: error: '[bank]' has no value here and stays as it is\n"},
             {"echo [1/2] [who]", "1: warning: '[who]' has no value here and stays as it is\n"},
             {"?", "1: error: '?' alone shows the help and ends the run with status 0\n"},
             {"echo a\recho b",
              "1: error: a return ends no line: what follows belongs to the same command\n"},
             {std::string("echo\0a\nsetBoot", 14) + " 0 1",
              "1: error: a zero byte ends the run\n2: error: '1' has no effect: one bank is selected\n"},
             {"\xEF\xBB\xBF# all", "1: error: the byte-order mark is read as a part of the first word\n"},
             {"# " + x + "erase FLASH\n?",
              "1: error: a line has 1023 characters: 'erase FLASH' runs as the next one\n"
              "2: error: '?' alone shows the help and ends the run with status 0\n"},
             {"program fw FLASH; verify 0x11 FLASH", "1: warning: no verify of 'fw' at 'FLASH' follows\n"},
             {"program fw FLASH,BANKB; verify fw BANKB",
              "1: warning: no verify of 'fw' at 'FLASH' follows\n"},
             {"verify fw 0\nprogram fw 0\ntimer on 1",
              "2: warning: no verify of 'fw' at '0' follows\n"
              "3: error: '1' has no effect: an operation is one word\n"},
         })
        EXPECT_EQ(findings(script), expected) << script;
}

TEST_F(Lint, IsSilentAboutWhatRunsAsItLooks) {
    for (const std::string& script : std::vector<std::string>{
             "# lint: off\nprogram fw FLASH",
             "program +c fw FLASH+0x4000\nverify +i fw flash+16*1024",
             "program fw FLASH,BANKB\nverify fw all",
             "program +w2 0x10 FLASH 6; verify +w2 020 FLASH 6\r",
             "echo a // b # c; print [1] # d; - timer stop; pause on; PAUSE OFF; pause No\xFE",
             "# a # b; # c;;\t; #",
             "var a=[b]; var b=echo; [b]; [a] c; varc=1; var d=; @progam[none]",
             "dumb; readBack; reset 1 2 3; print progam; otp_ProgUSBID 1 2; queryPart",
             "erase all; verify 0x11 FLASH BANKB-FLASH-1",
             // What stops the run with an error of its own.
             "var =x; program; program +c fw; verify 1",
             "var a=" + std::string(600, 'x') + "\necho [a][a]",
         })
        EXPECT_EQ(findings(script), "") << script;
}

TEST_F(Lint, TakesVariablesAsTheToolDoes) {
    const std::string script = "program [image] FLASH 7; verify fw FLASH";
    EXPECT_EQ(findings(script, "-v image=fw -v ' more=x '"),
              "1: error: '7' has no effect: a file is programmed whole\n");
    const Result r = run("exec secapp-lint -v image s");
    EXPECT_EQ(r.err, "variable cannot have a NULL value: image\n");
    EXPECT_EQ(r.status, 2);
}

TEST_F(Lint, ChecksEachScriptOnItsOwnAndSaysWhatItCannotRead) {
    write("a", "var x=1; echo [x]\n");
    write("b", "echo [x]\n");
    const Result r = run("exec secapp-lint a none b . /proc/self/mem");
    EXPECT_EQ(r.out, "b:1: warning: '[x]' has no value here and stays as it is\n");
    EXPECT_EQ(r.err, "Unable to open script file none\nUnable to open script file .\n"
                     "Script could not be read to its end: /proc/self/mem\n");
    EXPECT_EQ(r.status, 2);
    for (const std::string words : {"", "-q a"})
        EXPECT_EQ(run("exec secapp-lint " + words).status, 2) << words;
    EXPECT_EQ(run("exec secapp-lint -h").status, 0);
}

TEST_F(Lint, ListsTheFilesThatScriptsName) {
    write("a",
          "program [image] FLASH; verify fw FLASH\ndownload +c +x\n[run] y 0; program 123 0; echo [z]\n");
    write("b", "verify ./fw [where]; program fw 0\n");
    Result r = run("POSIXLY_CORRECT=1 secapp-lint a --files b");
    EXPECT_EQ(r.out, "fw\n+x\n");
    EXPECT_EQ(r.err, "a:1: error: '[image]' has no value here\na:3: error: '[run]' has no value here\n"
                     "b:1: error: '[where]' has no value here\n");
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
