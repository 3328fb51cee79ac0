#include "harness.h"

namespace {

class FrontEnd : public Secapp {
protected:
    struct Row {
        std::string words;
        int status;
        std::string err, out = {}, input = {};
    };
    // Runs secapp with each row's words.
    void expectRows(const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.words);
            const Result r = run("exec secapp -d $PORT " + row.words, row.input);
            EXPECT_EQ(r.status, row.status);
            EXPECT_EQ(r.err, row.err);
            EXPECT_EQ(r.out, row.out);
        }
    }
};

const std::string exclusive = "The -s, -t and -x options and/or immediate commands are mutually exslusive";

TEST_F(FrontEnd, RefusesOptions) {
    write("a", "echo a");
    const std::string help = run("exec secapp -d $PORT -h").out;
    const std::string decode = "Unable to decode value ";
    const std::string bad = " errno=0 - Success)\n";
    expectRows({
        {"-a 2 a", 255, "Invalid encoder algorithm index\n"},
        {"-a -1 a", 255, "Invalid encoder algorithm index\n"},
        {"-a x a", 1, decode + "'x' as decimal (char=0x78" + bad},
        {"-g 12a", 1, decode + "'12a' as decimal (char=0x61" + bad},
        {"-m 08", 1, decode + "'8' as octal (char=0x38" + bad},
        {"-M 0x1G", 1, decode + "'1G' as hex (char=0x47" + bad},
        {"-T '12 '", 1, decode + "'12 ' as decimal (char=0x20" + bad},
        {"-A 0X-Z", 1, decode + "'-Z' as hex (char=0x2d" + bad},
        {"-w 99999999999999999999", 1,
         decode + "'99999999999999999999' as decimal (char=0x0 errno=34 - Numerical result out of range)\n"},
        {"-g \"$(printf '\\351')\"", 1, decode + "'\351' as decimal (char=0xffffffe9" + bad},
        {"-v name", 255, "variable cannot have a NULL value: name\n"},
        {"-v ' name= '", 255, "variable cannot have a NULL value: name\n"},
        {"-w 0 -s none", 1, "Unable to open script file none\n"},
        {"-s .", 1, "Unable to open script file .\n"},
        {"-w 0", 1, "Words per line must be >0 and <= 64\n"},
        {"-w 65 hello", 1, "Words per line must be >0 and <= 64\n"},
        {"-w -1 hello", 1, "Words per line must be >0 and <= 64\n"},
        {"-s a -t", 255, exclusive + " (-t).\n"},
        {"-t -s a", 255, exclusive + " (-s).\n"},
        {"-s a -x", 255, exclusive + " (-x).\n", help},
        {"-t -x hello", 255, exclusive + " (-x).\n", help},
        {"-s a hello", 255, exclusive + "\n(script file 'a').\n", help},
        {"-t hello", 255, exclusive + "\n(script file 'Terminal').\n", help},
        {"-x -s a hello", 255, exclusive + "\n(script file 'a').\n", help},
        {"-x", 254, "", help},
        {"-p", 254, "", help},
        {"-e p", 254, "Using serial port " + board.port() + "\n", help},
        {"-q", 255, "secapp: invalid option -- 'q'\nUnknown option `-q'.\n", help},
        {"-g", 255, "secapp: option requires an argument -- 'g'\nUnknown option `-g'.\n", help},
        {"-\"$(printf '\\001')\"", 255,
         "secapp: invalid option -- '\001'\nUnknown option character `\\x1'.\n", help},
    });
    const Result r = run("exec secapp");
    EXPECT_EQ(r.status, 254);
    EXPECT_TRUE(r.out.starts_with(help.substr(0, help.find("\nTarget commands")))) << r.out;
}

TEST_F(FrontEnd, AcceptsEveryOptionInAnyOrderWithTheWords) {
    expectRows(
        {{"echo -z -A 0x10 one -b -e q two -g 017 -M 1 -m 0 -T 0 -w 64 -a 0 -x -v name=[three] '[name]'", 0,
          "one two [three]\n"}});
}

TEST_F(FrontEnd, LimitsTheCommandLineTo1023Characters) {
    const std::string x(1017, 'x');
    expectRows({{"-b echo " + x, 0, x + "\n"}});
    for (const std::string& words :
         {"echo " + x + "y", "echo a " + std::string(1016, 'b'), std::string(1023, 'c')})
        expectRows({{words, 252, "Max line length exceeded (1024): '" + words + "'\n"}});
}

TEST_F(FrontEnd, TakesScriptsFromFilesTerminalAndWords) {
    write("a", "echo a\n");
    write("b", "echo b;;echo c\r\n\r\n   \n# no; echo yes\n\techo a # b  ;# c\necho last");
    const std::string b = "b\nc\nyes\na # b\nlast\n";
    expectRows({
        {"-b -s a -s b", 0, b},
        {"-b -x -s a", 0, "a\n"},
        {"-b -t", 0, "from\nterminal\n", "", "echo from\necho terminal"},
        {"-b echo  from 'words;echo  twice'", 0, "from words\ntwice\n"},
    });
    EXPECT_EQ(run("mkfifo pipe; cat b >pipe & exec secapp -b -d $PORT -s pipe").err, b);
}

TEST_F(FrontEnd, ReadsLongLinesInPiecesOf1023Characters) {
    const Result r = runScript("#" + std::string(1022, 'x') + "echo tail\necho next\n", "-b -e e");
    EXPECT_EQ(r.err, "tail\nnext\n");
    EXPECT_EQ(r.out, "Processed 3 lines\n");
}

TEST_F(FrontEnd, ReportsTheFirstFailingCommandAndStops) {
    board.answers.emplace("bad", "VQX_ERROR   no such thing \n");
    const std::string error = "no such thing", line = "VQX_ERROR   no such thing\n";
    write("s", "hello\n  echo one ; bad  0x10\t; echo two\necho three\n");
    expectRows({
        {"-e e -s s", 255, "one\n" + report("s:2", error, " bad  0x10", "=bad 10"),
         line + "Processed 2 lines\n"},
        {"-t", 255, report("Terminal:1", error, "bad", "=bad"), line, "bad"},
        {"bad", 255, report("<Command line>:1", error, "bad", "=bad"), line},
    });
    board.answers.emplace("batchmode", "VQX_FATAL\n");
    expectRows({{"-b echo hi", 0, "hi\n"}});
    // The last line sent while "batchmode 1" ran is from the handshake.
    EXPECT_EQ(withoutNumbers(run("exec secapp -d $PORT echo hi").err),
              withoutNumbers(report("<Command line>:0", "", "batchmode 1", "=print 1")));
}

TEST_F(FrontEnd, EchoesWhatTheLettersAskFor) {
    const std::string script = "batchmode 1\nhello\n";
    const std::string both = "batchmode 1\n=batchmode 1 \r\n=print 1\r\nhello\n=hello \r\n";
    const std::string lines = "=print 1\n1\nVQX_OK\nVQX_OK\nhi\nhi\nVQX_OK\n";
    const std::string port = "Using serial port " + board.port() + "\n";
    board.answers.emplace("hello", "hi\nVQX_OK\n");
    for (const auto& [options, err, out] : Rows<3>{
             {"", "", "hi\n"},
             {"-e nq", "", "hi\n"},
             {"-e sq", script, "hi\n"},
             {"-e Q -e zS", "", "hi\n"},
             {"-e t", "=batchmode 1 \r\n=print 1\r\n=hello \r\n", "hi\n"},
             {"-e e", "", "hi\nProcessed 1 lines\n"},
             {"-e p", port, "hi\n"},
             {"-e ps", port + script, "hi\n"},
             {"-e s -e t", both, "hi\n"},
             {"-e n", both, lines + "Processed 1 lines\n"},
             {"-e n -e q", "", "hi\n"},
             {"-e p -e d", both, lines + "Processed 1 lines\n"},
             {"-e dq", "", "hi\n"},
             {"-e sd -e q -e s", script, "hi\n"},
             {"-e NABSE12", "", "hi\n"},
         }) {
        SCOPED_TRACE(options);
        const Result r = run("exec secapp -d $PORT " + options + " hello");
        EXPECT_EQ(withoutNumbers(withoutTraces(r.err)), withoutNumbers(err));
        EXPECT_EQ(withoutNumbers(r.out), withoutNumbers(out));
        EXPECT_EQ(r.err.starts_with("DEBUG: "), options.find('d') != std::string::npos) << r.err;
    }
    EXPECT_EQ(run("exec secapp -b -d $PORT -e s 'hello;setBoot;' 2>&1").out,
              "hello\nhi\nsetBoot\n" +
                  report("<Command line>:1", "No parameter provided for setBoot", "setBoot", ""))
        << "in the order in which it came";

    std::string shown;
    board.on = [&](const std::string& line) {
        if (line.starts_with("look"))
            shown = read("log");
        return std::nullopt;
    };
    EXPECT_EQ(run("exec secapp -b -d $PORT 'hello;look' >log").status, 0);
    EXPECT_EQ(shown, "hi\n") << "before the next command";
}

TEST_F(FrontEnd, InterpretsPrefixes) {
    for (const auto& [options, command, err, conversation] : Rows<4>{
             {"-e t", "-hello", "", "hello |"},
             {"-e n", "! hello", "", "hello |"},
             {"-e s", "-#hello", "", "#hello |"},
             {"-e s", "- echo 1", "1\n", ""},
             {"-e d", " # hello", "", ""},
             {"", "+ echo 1", "+ echo 1\n1\n", ""},
             {"", "+hello 0x[v]", "+hello 0x[v]\n=hello 5 \r\n=print 1\r\n", "hello 5 |"},
             {"", "%hello", "%hello\n=hello \r\n=print 1\r\n", "hello |"},
             {"-e s", "@ x[v] ", "@ x[v]\n", "@x[v]|"},
             {"", "+", "+\n" + report("script:1", "Unrecognised command: ", "+", ""), ""},
             {"", " -", report("script:1", "Unrecognised command: ", " -", ""), ""},
         }) {
        SCOPED_TRACE(options + " " + command);
        const Result r = runScript(command, "-b -v v=5 " + options);
        EXPECT_EQ(withoutNumbers(withoutTraces(r.err)), withoutNumbers(err));
        EXPECT_EQ(board.conversation(), conversation);
    }
}

TEST_F(FrontEnd, TracesOnlyTheCommandWithTheDebugPrefix) {
    const Result r = runScript("hello\n%hello\nhello\n");
    const std::size_t write = r.err.find("DEBUG: Write [8] '=hello \\r'\n");
    ASSERT_NE(write, std::string::npos) << r.err;
    EXPECT_EQ(r.err.find("DEBUG: Write", write + 1), std::string::npos);
    EXPECT_EQ(board.conversation(), "hello |hello |hello |");
    EXPECT_NE(run("exec secapp -d $PORT -e dq echo hi").err.find("DEBUG: line: 1, echo hi \n\n"),
              std::string::npos);
}

TEST_F(FrontEnd, SendsCharactersWithTheAtPrefixAndGoesOn) {
    board.answers.emplace("@y", "pong\nVQX_OK\n");
    board.answers.emplace("@z", "VQX_ERROR no\n");
    const Result r = runScript("@x\nhello 16\n@y\nhello\n@z\nhello");
    EXPECT_EQ(withoutNumbers(board.bytes()), "=print #\r=batchmode # \rx=hello # \ry=hello \rz");
    EXPECT_EQ(r.out, "pong\nVQX_ERROR no\n");
    EXPECT_EQ(r.err, report("script:5", "no", "@z", ""));
}

TEST_F(FrontEnd, AsksForConfirmation) {
    const auto asks = [](const std::string& command) { return "Execute '" + command + "'? (Y/n/q)"; };
    const std::string abc = "-b -p 'echo a;echo b;echo c'", a = asks("echo a"), b = asks("echo b");
    const std::string skipped = "Skipped 'echo a'\n";
    expectRows({
        {abc, 0, skipped + "b\nc\n", a + b + asks("echo c"), "N\n\nanything\n"},
        {abc, 1, "a\nQuiting\n", a + b, "y\nQuit\n"},
        {abc, 1, "Unable to read from stdin\nQuiting\n", a},
        {"-p 'echo a'", 0, skipped, asks("batchmode 1") + a, "\nn\n"},
        {"-b '? echo [v];echo b' -v v=9", 0, "Skipped 'echo [v]'\nb\n", asks("echo [v]"), "no\n"},
        {"-b 'pause Only one;echo a;pause oFF;echo b'", 0, "a\nb\n", a + asks("pause oFF"), "\n\n"},
        {"-b '?pause on;echo a'", 0, "a\n", asks("pause on"), "\n"},
        {"-b -p 'echo a;-echo b;#echo c'", 0, skipped + "b\n", a + b, "n\n\n"},
    });
}

TEST_F(FrontEnd, SubstitutesVariables) {
    const std::string name(300, 'n');
    std::string growing;
    for (char variable = 'a'; variable < 'g'; variable++) {
        growing += std::string(" -v ") + variable + "=";
        for (int i = 0; i < 32; i++)
            growing += std::string("[") + static_cast<char>(variable + 1) + "]";
    }
    for (const auto& [options, script, err] : Rows<3>{
             {"-v a=10", "echo [a][a] [b] [A]", "1010 [b] [A]\n"},
             {"-v 'x=[y]' -v y=5", "echo [x]", "5\n"},
             {"-v y=5 -v 'x=[y]'", "echo [x]", "[y]\n"},
             {"-v 'a=[b]' -v b=1 -v 'a=[b][b]'", "echo [a]", "11\n"},
             {"-v A=1 -v a=2", "echo [A][a]", "12\n"},
             {"-v ' a=b=c'", "echo [a]", "b\n"},
             {"-v ==a=b", "echo [a]", "b\n"},
             {"-v ab=1234", "echo [ab][ab]", "12341234\n"},
             {"-v a=aa", "echo [[a]]", "[aa]\n"},
             {"-v 'c=echo 1;echo 2'", "[c]", "1;echo 2\n"},
             {"", "var x\necho <[x]>", "<>\n"},
             {"", "var x=1=2\necho [x]", "1\n"},
             {"", "var =5\necho <[5]>", "<>\n"},
             {"", "var x = 5 \necho <[x ]>", "< 5>\n"},
             {"", "varX=1;VAR y=2;variable z=3\necho [X][y][iable z]", "123\n"},
             {"-v a=q", "var a=[a]x\necho [a]", "qx\n"},
             {"-v '" + name + "=long'", "echo [" + name + "]", "long\n"},
             {growing, "echo a [a]",
              report("script:1", "Command too long after substitution (over 67108864 bytes)", "echo a [a]",
                     "")},
             {"", "var", report("script:1", "No variable specified for var command", "var", "")},
             {"", "VAR", report("script:1", "No variable specified for VAR command", "VAR", "")},
             {"", "var ==", report("script:1", "No variable specified for var command", "var ==", "")},
         })
        EXPECT_EQ(runScript(script, "-b " + options).err, err) << options << script;
    EXPECT_EQ(runScript("va x").status, 0);
    EXPECT_EQ(board.conversation(), "queryFlash|va x |");
}

TEST_F(FrontEnd, EchoesDelaysPausesAndTimes) {
    for (const auto& [script, input, out, err] : Rows<4>{
             {"echo hello   world \nECHO 100% %n%s\n-echo\nEcho\ttab", "", "",
              "hello   world\n100% %n%s\n\ntab\n"},
             {"delay 0x10\ndelay 1 2", "", "", ""},
             {"echo \v hello\npause \f OFF", "", "", "hello\n"},
             {"pause Insert 50%s\necho on", "\n", "Insert 50%s", "on\n"},
             {"pause\necho on", "\n", "Pause:", "on\n"},
             {"pause of course\necho on", "\n", "of course", "on\n"},
             {"timer start\ntimer print\ntimer stop;timer off", "", "Elapsed time #s\n", ""},
         }) {
        SCOPED_TRACE(script);
        const Result r = runScript(script, "-b", input);
        EXPECT_EQ(timed(r), out);
        EXPECT_EQ(r.err, err);
        EXPECT_EQ(r.status, 0);
    }
    EXPECT_EQ(run("exec secapp -b -d $PORT -t", "pause\nswallowed\necho next\n").err, "next\n");
    const Result once = run("exec secapp -b -d $PORT 'timer start;delay 300000;timer print'");
    EXPECT_EQ(timed(once, 0.3), "Elapsed time #s\n");
    Result again = run("exec secapp -b -d $PORT 'timer start;delay 300000;timer on;timer print'");
    again.seconds -= 0.3;
    EXPECT_EQ(timed(again), "Elapsed time #s\n");
}

TEST_F(FrontEnd, ReportsMistakesInScriptCommands) {
    const std::string usage = ": Missing parameter \nUsage: timer <start|stop|print>";
    for (const auto& [command, text] : Rows<2>{
             {"delay", "No time specified for delay"},
             {"DELAY", "No time specified for DELAY"},
             {"delay 1000x", "Unable to decode value '1000x' as decimal (char=0x78 errno=0 - Success)"},
             {"pause", "Unable to read from stdin\n"},
             {"pause Now", "Unable to read from stdin\n"},
             {"timer", "timer" + usage},
             {"Timer", "Timer" + usage},
             {"timer print", "Timer not running"},
             {"timer Start", "Unknown timer operation:Start"},
             {"timer \f start", "Unknown timer operation:\f"},
             {"timer start;timer stop;timer print", "Timer not running"},
             {"hello;timer print", "Timer not running"},
             {"delay " + std::string(1010, 'x'), "Unable to decode value '" + std::string(999, 'x')},
         }) {
        const std::string last = command.substr(command.find_last_of(';') + 1);
        SCOPED_TRACE(command);
        const Result r = runScript(command, "-b");
        EXPECT_EQ(r.status, 255);
        EXPECT_EQ(r.err, report("script:1", text, last, ""));
    }
}

TEST_F(FrontEnd, SendsNoLineBreak) {
    expectRows({{"-b 'echo sent; print a\nb'", 255,
                 "sent\n" + report("<Command line>:1", "A command for the target cannot hold a line break",
                                   " print a\nb", "")}});
    EXPECT_EQ(board.bytes(), "");
}

TEST_F(FrontEnd, FailsWhenItsOutputIsLost) {
    board.answers.emplace("hello", "hi\nVQX_OK\n");
    const std::string full = "standard output: No space left on device\n";
    expectRows({
        {"-b -e e echo hi >/dev/full", 255, "hi\n" + full},
        {"-b 'hello;print 1;delay 1' >/dev/full", 255, full},
        {"-b hello >&-", 255, "standard output: Bad file descriptor\n"},
        {"-b echo hi >&-", 0, "hi\n"},
        {"-b -s /dev/stdin <&-", 1, "Unable to open script file /dev/stdin\n"},
        {"-b -t <&-", 255, report("Terminal:0", "Script could not be read to its end", "", "")},
    });
}

TEST_F(FrontEnd, RunsTheScriptThatItOpened) {
    board.on = [&](const std::string& line) {
        if (line == "cut ")
            write("script", "");
        if (line == "add ")
            write("script", read("script") + "more\n");
        return std::nullopt;
    };
    const std::string filler = std::string(100000, '#') + "\n";
    for (const char* words : {"-s script", "-t <script"}) {
        for (const std::string change : {"cut", "add"}) {
            write("script", change + "\n" + filler + "hello\n");
            expectRows({{words, 0, ""}});
            EXPECT_EQ(board.conversation(), change + " |hello |");
        }
    }
    expectRows({{"-s /proc/self/mem", 255,
                 report("/proc/self/mem:0", "Script could not be read to its end", "", "")}});
    EXPECT_EQ(board.bytes(), "");
}

} // namespace
