#include "harness.h"

#include <regex>

namespace {

using Table = std::vector<std::pair<std::string, std::string>>;

class Lint : public Secapp {
protected:
    Lint() {
        for (const std::string name : {"fw", "abc", "0123", "#fw"})
            write(name, image(100));
        for (const auto& [name, start] : Table{{"empty", ""},
                                               {"elf", "\x7F"
                                                       "ELF\x02"},
                                               {"hex", ":020000040000FA\r\n:00000001FF\r\n"},
                                               {"srec", "S00600004844521B\n"},
                                               {"hexlike", ":0200000400FA\n"},
                                               {"text", "Some text: :00000001FF\n"}})
            write(name, start);
        run("mkdir d; mkfifo pipe; ln -s fw link");
    }

    /// The findings of the script, "W1 text;" for a warning and "E1 text;" for an error in line 1.
    std::string findings(const std::string& script, const std::string& options = "") {
        write("s", script);
        const Result r = run("exec secapp-lint " + options + " s");
        EXPECT_EQ(r.err, "") << script;
        EXPECT_EQ(r.status, r.out.empty() ? 0 : 1) << script;
        std::string lines = std::regex_replace(r.out, std::regex("s:(\\d+): error: (.*)\n"), "E$1 $2;");
        return std::regex_replace(lines, std::regex("s:(\\d+): warning: (.*)\n"), "W$1 $2;");
    }
};

TEST_F(Lint, SaysWhatARunDoesWithAMistake) {
    const std::string oneWord = ": write the addresses as one word, without spaces;";
    const std::string toTarget = " is not a command of secapp: it is sent to the target; did you mean ";
    const std::string comment = " does not start a comment here: it is part of the command;";
    const std::string raw = ", not a raw image: convert it with objcopy ";
    const std::string needsData = " needs a file or value and an address;", x(1021, 'x');
    for (
        const auto& [script, expected] : Table{
            {"verify fw FLASH + 0x1000", "E1 '+' and '0x1000' have no effect" + oneWord},
            {"verify fw FLASH, BANKB 7 8", "E1 'BANKB', '7' and '8' have no effect" + oneWord},
            {"ERASE FLASH, BANKB", "E1 'BANKB' has no effect" + oneWord},
            {"erase FLASH 0x200",
             "E1 '0x200' has no effect: 'erase' erases to the end, there is no erase of a range;"},
            {"blankCheck FLASH 9",
             "E1 '9' has no effect: 'blankCheck' checks to the end, there is no check of a range;"},
            {"verify +i fw FLASH 100", "E1 '100' has no effect: a file is verified whole;"},
            {"verify 0x11 FLASH + 64",
             "E1 '64' has no effect: a length is one word;E1 '+' is taken as the length" + oneWord},
            {"setBoot BankA BankB", "E1 'BankB' has no effect: one bank is selected;"},
            {"setVidPid 1 2 3", "E1 '3' has no effect: there are two numbers;"},
            {"delay 1 000", "E1 '000' has no effect: a time is one word;"},
            {"timer stop it", "E1 'it' has no effect: an operation is one word;"},
            {"targetInfo FLASH", "E1 'FLASH' has no effect: the command takes no words;"},
            {"download +c fw FLASH", "E1 'FLASH' has no effect: one file is loaded;"},
            {"verify", "E1 'verify'" + needsData},
            {"program +c fw", "E1 'program'" + needsData},
            {"blankCheck", "E1 'blankCheck' needs an address;"},
            {"download +c", "E1 'download' needs a file;"},
            {"erase ,", "E1 ',' has no address: nothing is done;"},
            {"erase +w2 +x FLASH",
             "E1 '+x' is not an option of 'erase';W1 '+w2' has no effect: only a value has a width;"},
            {"download +i fw", "E1 '+i' is not an option of 'download';"},
            {"verify +C 0x11 FLASH", "E1 '+C' is possible with a file only;"},
            {"# lint: off\nprogram +i fw 0", "E2 '+i' is not possible with 'program';"},
            {"verify 0x11223344 FLASH 2*3",
             "E1 the length '2*3' is not a multiple of the width 4: the last 2 bytes are filled with zeros;"},
            {"verify 0x11 FLASH -1", "E1 '-1' is taken as the length" + oneWord},
            {"verify 0x11 FLASH 4-4", "W1 a length of '4-4' transfers nothing;"},
            {"verify 0x11 FLASH 4-8", "E1 a length of '4-8' transfers nothing;"},
            {"verify 0x11 FLASH 0x80000000*2+8", "E1 a length of '0x80000000*2+8' is read as 0x8;"},
            {"verify +w1 0x123 FLASH", "E1 only the low 8 bits of '0x123' are used;"},
            {"verify +w1 fw FLASH", "W1 '+w1' has no effect: only a value has a width;"},
            {"verify abc FLASH", "E1 'abc' is a value, not a file: it has only hexadecimal digits;"},
            {"verify 0123 FLASH",
             "E1 '0123' is a value, not the file of that name: write ./0123 for the file or 0x53 "
             "for the value;W1 '0123' is octal: it is read as 83;"},
            {"verify 0x112233445566 0",
             "E1 '0x112233445566' has more than 32 bits: it is read as 0x33445566;"},
            {"erase MORVI+0x100000000", "E1 '0x100000000' has more than 32 bits: it is read as 0x0;"},
            {"erase 0x80000000*2", "E1 '0x80000000*2' is 0x100000000: no memory has this address;"},
            {"erase FLASH+00010000", "W1 '00010000' is octal: it is read as 4096;"},
            {"erase FLASH+08,4K",
             "E1 '08' is not a number;W1 '4K' is not a number: it is taken as the name of a memory;"},
            {"readWord 5000000000", "E1 '5000000000' has more than 32 bits: it is read as 705032704;"},
            {"delay 5000000000", "E1 '5000000000' has more than 32 bits: it is read as 705032704;"},
            {"delay -1; delay 010",
             "E1 '-1' is negative: it is read as 4294967295;W1 '010' is octal: it is read as 8;"},
            {"delay 5x", "E1 '5x' is not a number;"},
            {"verify none 0; verify none 0", "E1 'none' cannot be opened: No such file or directory;"},
            {"verify \"fw\" 0",
             "E1 '\"fw\"' cannot be opened: No such file or directory; quotes are part of a name;"},
            {"verify ./d 0; download empty", "E1 './d' is a directory;E1 'empty' is empty;"},
            {"verify pipe 0; verify /dev/ptmx 0",
             "E1 'pipe' is not a regular file;E1 '/dev/ptmx' is not a regular file;"},
            {"download pipe", "W1 'pipe' is not a regular file;"},
            {"download elf", "E1 'elf' is an ELF file" + raw + "-O binary;"},
            {"verify hex 0", "E1 'hex' is an Intel hex file" + raw + "-I ihex -O binary;"},
            {"verify srec 0", "E1 'srec' is a file of S-records" + raw + "-I srec -O binary;"},
            {"# all; erase FLASH", "W1 'erase FLASH' is run: the comment ends at ';';"},
            {"erase FLASH # main", "E1 '#'" + comment},
            {"setBoot 0 # main", "W1 '#'" + comment},
            {"readWord FLASH #first", "E1 '#first'" + comment},
            {"// erase", "E1 '//'" + comment},
            {"\n\nprogam x FLASH", "W3 'progam'" + toTarget + "'program'?;"},
            {"Verfiy fw FLASH", "E1 'Verfiy'" + toTarget + "'verify'?;"},
            {"readword FLASH", "W1 'readword'" + toTarget + "'readWord'?;"},
            {"varify fw FLASH",
             "E1 'varify' defines the variable 'ify fw FLASH' as empty: it begins with 'var';"},
            {"variable=5", "E1 'variable=5' defines the variable 'iable': it begins with 'var';"},
            {"var x =5\nvar x= 5",
             "E1 the name 'x ' ends with a space;W2 the value ' 5' begins with a space;"},
            {"var x=5=6", "E1 only one '=' counts: the variable 'x' is '5';"},
            {"var =", "E1 'var' needs a name;"},
            {"pause once more",
             "E1 'once more' begins with 'on': it switches confirmation and is not shown;"},
            {"timer print; timer Start",
             "E1 the timer does not run here;E1 'Start' is not an operation of 'timer';"},
            {"setBoot BankC", "E1 'BankC' is not a bank;"},
            {"erase [bank]\nerase [bank]", "E1 '[bank]' is not defined here and is left as it is;"},
            {"echo [1/2] [who]", "W1 '[who]' is not defined here and is left as it is;"},
            {"?\n+",
             "E1 '?' alone shows the help and ends the run with status 0;E2 there is no command here;"},
            {"echo a\recho b",
             "E1 a carriage return does not end a line: the text after it belongs to the same command;"},
            {std::string("echo\0a", 6), "E1 a zero byte ends the run;"},
            {"\xEF\xBB\xBF# all", "E1 the byte-order mark is read as part of the first word;"},
            {"# " + x + "erase 0\n?",
             "E1 a line has more than 1023 characters: 'erase 0' runs as the next one;"
             "E2 '?' alone shows the help and ends the run with status 0;"},
            {"program fw FLASH,BANKB; verify fw BANKB", "W1 no verify of 'fw' at 'FLASH' follows;"},
            {"program 1 0 8; verify 1 0 4\nprogram fw 0", "W1 only a part of '1' at '0' is verified;"
                                                          "W2 no verify of 'fw' at '0' follows;"},
            {"program fw 0; verify +c fw 0",
             "E1 the check word of 'fw' differs: it was programmed without '+c';"},
        })
        EXPECT_EQ(findings(script), expected) << script;
}

TEST_F(Lint, IsSilentAboutWhatRunsAsItLooks) {
    for (
        const std::string& script : std::vector<std::string>{
            "# lint: off\nprogram fw FLASH",
            "program +c fw FLASH+0x4000\nverify +i fw flash+16*1024; program ./fw 0; verify link 0",
            "program fw FLASH,BANKB,\nverify fw all; program #fw 0; verify .//#fw 0",
            "program +w2 0x10 FLASH 6; verify +w2 16 FLASH 8; program +w1 1 0; verify 0x01010101 0",
            "echo a // b # c; print [1] # d; - timer stop; pause on; PAUSE OFF; pause No\xFE",
            "# a # b; # c;;\t; #\nerase 0xFFFFFFFF; delay 4294967295; readWord a-010 4K; setVidPid 08 010",
            "var a=[b]; var b=echo; [b]; [a] c; varc=1; var d=; @progam[none]; timer on; TIMER print",
            "dumb; readBack; reset 1 2 3; print progam; otp_ProgUSBID 1 2; queryPart; verify hexlike 0; verify text 0",
            "erase all,07,00; verify 0x11 FLASH BANKB-FLASH-1",
            "# lint: off\n# " + std::string(1200, '#'),
            "var a=" + std::string(600, 'x') + "\necho [a][a]",
        })
        EXPECT_EQ(findings(script), "") << script;
}

TEST_F(Lint, TakesVariablesAsTheToolDoes) {
    EXPECT_EQ(findings("verify [image] FLASH 7", "-v image=fw -v ' more=x '"),
              "E1 '7' has no effect: a file is verified whole;");
    const Result r = run("secapp-lint -v a=b=c s; exec secapp-lint -v image s");
    EXPECT_TRUE(r.out.starts_with("<Command line>:0: error: only one '=' counts: the variable 'a' is 'b'\n"))
        << r.out;
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
    for (const std::string words : {"", "-q a", "--file a --nope"})
        EXPECT_EQ(run("exec secapp-lint " + words).status, 2) << words;
    EXPECT_EQ(run("cat b | secapp-lint /dev/stdin").out.substr(0, 21), "/dev/stdin:1: warning");
    for (const std::string option : {"-h", "--help", "--version"})
        EXPECT_EQ(run("exec secapp-lint " + option).status, 0) << option;
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
