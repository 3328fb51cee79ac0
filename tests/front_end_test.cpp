#include "harness.h"

namespace {

class FrontEnd : public Secapp {};

const std::string exclusive = "The -s, -t and -x options and/or immediate commands are mutually exslusive";

TEST_F(FrontEnd, RefusesOptions) {
    write("a", "echo a");
    const std::string help = run("exec secapp -d $PORT -h").out;
    struct Case {
        std::string words;
        int status;
        std::string err;
        bool help = false;
    };
    const std::string decode = "Unable to decode value ";
    const std::string bad = " errno=0 - Success)\n";
    for (const Case& c : std::vector<Case>{
             {"-a 2 a", 255, "Invalid encoder algorithm index\n"},
             {"-a -1 a", 255, "Invalid encoder algorithm index\n"},
             {"-a x a", 1, decode + "'x' as decimal (char=0x78" + bad},
             {"-g 12a", 1, decode + "'12a' as decimal (char=0x61" + bad},
             {"-m 08", 1, decode + "'8' as octal (char=0x38" + bad},
             {"-M 0x1G", 1, decode + "'1G' as hex (char=0x47" + bad},
             {"-T '12 '", 1, decode + "'12 ' as decimal (char=0x20" + bad},
             {"-A 0X-Z", 1, decode + "'-Z' as hex (char=0x2d" + bad},
             {"-w 99999999999999999999", 1,
              decode +
                  "'99999999999999999999' as decimal (char=0x0 errno=34 - Numerical result out of range)\n"},
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
             {"-s a -x", 255, exclusive + " (-x).\n", true},
             {"-t -x hello", 255, exclusive + " (-x).\n", true},
             {"-s a hello", 255, exclusive + "\n(script file 'a').\n", true},
             {"-t hello", 255, exclusive + "\n(script file 'Terminal').\n", true},
             {"-x -s a hello", 255, exclusive + "\n(script file 'a').\n", true},
             {"-x", 254, "", true},
             {"-p", 254, "", true},
             {"-e p", 254, "Using serial port " + board.port() + "\n", true},
             {"-q", 255, "secapp: invalid option -- 'q'\nUnknown option `-q'.\n", true},
             {"-g", 255, "secapp: option requires an argument -- 'g'\nUnknown option `-g'.\n", true},
             {"-\"$(printf '\\001')\"", 255,
              "secapp: invalid option -- '\001'\nUnknown option character `\\x1'.\n", true},
         }) {
        SCOPED_TRACE(c.words);
        const Result r = run("exec secapp -d $PORT " + c.words);
        EXPECT_EQ(r.status, c.status);
        EXPECT_EQ(r.err, c.err);
        EXPECT_EQ(r.out, c.help ? help : "");
    }
    const Result r = run("exec secapp");
    EXPECT_EQ(r.status, 254);
    EXPECT_TRUE(r.out.starts_with(help.substr(0, help.find("\nTarget commands")))) << r.out;
}

TEST_F(FrontEnd, AcceptsEveryOptionInAnyOrderWithTheWords) {
    const Result r =
        run("exec secapp echo -z -A 0x10 one -b -e q two -d $PORT -g 017 -M 1 -m 0 -T 0 -w 64 -a 0 -x "
            "-v name=[three] '[name]'");
    EXPECT_EQ(r.err, "one two [three]\n");
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.status, 0);
}

TEST_F(FrontEnd, LimitsTheCommandLineTo1023Characters) {
    const std::string x(1017, 'x');
    EXPECT_EQ(run("exec secapp -b -d $PORT echo " + x).err, x + "\n");
    for (const auto& [soFar, word] : std::vector<std::pair<std::string, std::string>>{
             {"echo ", x + "y"}, {"echo a ", std::string(1016, 'b')}, {"", std::string(1023, 'c')}}) {
        const Result r = run("exec secapp -b -d $PORT " + soFar + word);
        EXPECT_EQ(r.err + r.out, "Max line length exceeded (1024): '" + soFar + word + "'\n");
        EXPECT_EQ(r.status, 252);
    }
}

TEST_F(FrontEnd, TakesScriptsFromFilesTerminalAndWords) {
    write("a", "echo a\n");
    write("b", "echo b;;echo c\r\n\r\n   \n# no; echo yes\n\techo a # b  ;# c\necho last");
    EXPECT_EQ(run("exec secapp -b -d $PORT -s a -s b").err, "b\nc\nyes\na # b\nlast\n");
    EXPECT_EQ(run("exec secapp -b -d $PORT -x -s a").err, "a\n");
    EXPECT_EQ(run("exec secapp -b -d $PORT -t", "echo from\necho terminal").err, "from\nterminal\n");
    EXPECT_EQ(run("exec secapp -b -d $PORT echo  from 'words;echo  twice'").err, "from words\ntwice\n");
    EXPECT_EQ(run("mkfifo pipe; cat b >pipe & exec secapp -b -d $PORT -s pipe").err,
              "b\nc\nyes\na # b\nlast\n");
}

TEST_F(FrontEnd, ReadsLongLinesInPiecesOf1023Characters) {
    const Result r = runScript("#" + std::string(1022, 'x') + "echo tail\necho next\n", "-b -e e");
    EXPECT_EQ(r.err, "tail\nnext\n");
    EXPECT_EQ(r.out, "Processed 3 lines\n");
}

TEST_F(FrontEnd, ReportsTheFirstFailingCommandAndStops) {
    board.answers.emplace("bad", "VQX_ERROR   no such thing \n");
    write("s", "hello\n  echo one ; bad  0x10\t; echo two\necho three\n");
    const Result r = run("exec secapp -d $PORT -e e -s s");
    EXPECT_EQ(r.err, "one\n" + report("s:2", "no such thing", " bad  0x10", "=bad 10"));
    EXPECT_EQ(r.out, "VQX_ERROR   no such thing\nProcessed 2 lines\n");
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(run("exec secapp -d $PORT -t", "bad").err,
              report("Terminal:1", "no such thing", "bad", "=bad"));
    EXPECT_EQ(run("exec secapp -d $PORT bad").err,
              report("<Command line>:1", "no such thing", "bad", "=bad"));

    board.answers.emplace("batchmode", "VQX_FATAL\n");
    // Gaining control writes the test of the handshake after the command that opens the port.
    EXPECT_EQ(withoutNumbers(run("exec secapp -d $PORT echo hi").err),
              withoutNumbers(report("<Command line>:0", "", "batchmode 1", "=print 1")));
    EXPECT_EQ(run("exec secapp -b -d $PORT echo hi").err, "hi\n");
}

TEST_F(FrontEnd, EchoesWhatTheLettersAskFor) {
    const std::string script = "batchmode 1\nhello\n";
    const std::string both = "batchmode 1\n=batchmode 1 \r\n=print 1\r\nhello\n=hello \r\n";
    const std::string lines = "=print 1\n1\nVQX_OK\nVQX_OK\nhi\nhi\nVQX_OK\n";
    const std::string port = "Using serial port " + board.port() + "\n";
    struct Case {
        std::string options, err, out;
        bool debug = false;
    };
    board.answers.emplace("hello", "hi\nVQX_OK\n");
    for (const Case& c : std::vector<Case>{
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
             {"-e p -e d", both, lines + "Processed 1 lines\n", true},
             {"-e dq", "", "hi\n", true},
             {"-e sd -e q -e s", script, "hi\n", true},
             {"-e NABSE12", "", "hi\n"},
         }) {
        SCOPED_TRACE(c.options);
        const Result r = run("exec secapp -d $PORT " + c.options + " hello");
        EXPECT_EQ(withoutNumbers(withoutTraces(r.err)), withoutNumbers(c.err));
        EXPECT_EQ(withoutNumbers(r.out), withoutNumbers(c.out));
        EXPECT_EQ(r.err.starts_with("DEBUG: "), c.debug) << r.err;
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
    struct Case {
        std::string options, command, err, conversation;
    };
    for (const Case& c : std::vector<Case>{
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
        SCOPED_TRACE(c.options + " " + c.command);
        const Result r = runScript(c.command, "-b -v v=5 " + c.options);
        EXPECT_EQ(withoutNumbers(withoutTraces(r.err)), withoutNumbers(c.err));
        EXPECT_EQ(board.conversation(), c.conversation);
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
    const std::string abc = "-b -p 'echo a;echo b;echo c'";
    struct Case {
        std::string words, input, out, err;
        int status = 0;
    };
    for (const Case& c : std::vector<Case>{
             {abc, "N\n\nanything\n", asks("echo a") + asks("echo b") + asks("echo c"),
              "Skipped 'echo a'\nb\nc\n"},
             {abc, "y\nQuit\n", asks("echo a") + asks("echo b"), "a\nQuiting\n", 1},
             {abc, "", asks("echo a"), "Unable to read from stdin\nQuiting\n", 1},
             {"-p 'echo a'", "\nn\n", asks("batchmode 1") + asks("echo a"), "Skipped 'echo a'\n"},
             {"-b '? echo [v];echo b' -v v=9", "no\n", asks("echo [v]"), "Skipped 'echo [v]'\nb\n"},
             {"-b 'pause Only one;echo a;pause oFF;echo b'", "\n\n", asks("echo a") + asks("pause oFF"),
              "a\nb\n"},
             {"-b '?pause on;echo a'", "\n", asks("pause on"), "a\n"},
             {"-b -p 'echo a;-echo b;#echo c'", "n\n\n", asks("echo a") + asks("echo b"),
              "Skipped 'echo a'\nb\n"},
         }) {
        SCOPED_TRACE(c.words);
        const Result r = run("exec secapp -d $PORT " + c.words, c.input);
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(r.err, c.err);
        EXPECT_EQ(r.status, c.status);
    }
}

TEST_F(FrontEnd, SubstitutesVariables) {
    struct Case {
        std::string options, script, err;
    };
    const std::string name(300, 'n');
    std::string growing;
    for (char variable = 'a'; variable < 'g'; variable++) {
        growing += std::string(" -v ") + variable + "=";
        for (int i = 0; i < 32; i++)
            growing += std::string("[") + static_cast<char>(variable + 1) + "]";
    }
    for (const Case& c : std::vector<Case>{
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
        EXPECT_EQ(runScript(c.script, "-b " + c.options).err, c.err) << c.options << c.script;
    EXPECT_EQ(runScript("va x").status, 0);
    EXPECT_EQ(board.conversation(), "queryFlash|va x |");
}

TEST_F(FrontEnd, EchoesDelaysPausesAndTimes) {
    struct Case {
        std::string script, input, out, err;
    };
    for (const Case& c : std::vector<Case>{
             {"echo hello   world \nECHO 100% %n%s\n-echo\nEcho\ttab", "", "",
              "hello   world\n100% %n%s\n\ntab\n"},
             {"delay 0x10\ndelay 1 2", "", "", ""},
             {"echo \v hello\npause \f OFF", "", "", "hello\n"},
             {"pause Insert 50%s\necho on", "\n", "Insert 50%s", "on\n"},
             {"pause\necho on", "\n", "Pause:", "on\n"},
             {"pause of course\necho on", "\n", "of course", "on\n"},
             {"timer start\ntimer print\ntimer stop;timer off", "", "Elapsed time #s\n", ""},
         }) {
        SCOPED_TRACE(c.script);
        const Result r = runScript(c.script, "-b", c.input);
        EXPECT_EQ(timed(r), c.out);
        EXPECT_EQ(r.err, c.err);
        EXPECT_EQ(r.status, 0);
    }
    EXPECT_EQ(run("exec secapp -b -d $PORT -t", "pause\nswallowed\necho next\n").err, "next\n");
    const Result once = run("exec secapp -b -d $PORT 'timer start;delay 300000;timer print'");
    EXPECT_EQ(timed(once, 0.3), "Elapsed time #s\n");
    Result again = run("exec secapp -b -d $PORT 'timer start;delay 300000;timer on;timer print'");
    again.seconds -= 0.3;
    EXPECT_EQ(timed(again), "Elapsed time #s\n");
}

TEST_F(FrontEnd, ReportsMistakesInScriptAids) {
    const std::string usage = ": Missing parameter \nUsage: timer <start|stop|print>";
    for (const auto& [command, text] : std::vector<std::pair<std::string, std::string>>{
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
    const Result r = run("exec secapp -b -d $PORT 'echo sent; print a\nb'");
    EXPECT_EQ(r.err,
              "sent\n" + report("<Command line>:1", "A command for the target cannot hold a line break",
                                " print a\nb", ""));
    EXPECT_EQ(board.conversation(), "");
}

TEST_F(FrontEnd, FailsWhenItsOutputIsLost) {
    board.answers.emplace("hello", "hi\nVQX_OK\n");
    const std::string full = "standard output: No space left on device\n";
    struct Case {
        std::string words, err;
        int status = 255;
    };
    for (const Case& c : std::vector<Case>{
             {"-e e echo hi >/dev/full", "hi\n" + full},
             {"'hello;print 1;delay 1' >/dev/full", full},
             {"hello >&-", "standard output: Bad file descriptor\n"},
             {"echo hi >&-", "hi\n", 0},
             {"-t <&-", report("Terminal:0", "Script could not be read to its end", "", "")},
         }) {
        SCOPED_TRACE(c.words);
        const Result r = run("exec secapp -b -d $PORT " + c.words);
        EXPECT_EQ(r.err, c.err);
        EXPECT_EQ(r.status, c.status);
    }
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
    for (const std::string& script : {"cut\n" + filler + "hello\n", "add\n" + filler + "hello\n"}) {
        EXPECT_EQ(runScript(script).status, 0);
        EXPECT_EQ(board.conversation(), script.substr(0, 3) + " |hello |");
    }
    const Result r = run("exec secapp -d $PORT -s /proc/self/mem");
    EXPECT_EQ(r.err, report("/proc/self/mem:0", "Script could not be read to its end", "", ""));
    EXPECT_EQ(board.bytes(), "");
}

} // namespace
