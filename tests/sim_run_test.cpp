// Runs of vqxsim: its options, log, terminal and memory files.

#include "harness.h"

#include <algorithm>
#include <regex>
#include <sys/stat.h>

namespace {

class SimRun : public Secapp {
protected:
    /// Runs secapp on the target with `options`.
    Result talk(const std::string& options, const std::string& script) {
        write("image", image(5000));
        return run("exec vqxsim " + options + " -- secapp -d {} '" + script + "'");
    }
};

bool holds(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

TEST_F(SimRun, DoesWhatTheOptionsSay) {
    const struct {
        const char* options;
        const char* script;
        int status;
        const char* shown; ///< part of both outputs
    } cases[] = {
        {"", "queryMORVI; queryPart", 0, "Device family = MV25\nPartid = 0x51a0c0de"},
        {"--no-flash", "queryFlash", 0, "No Flash"},
        {"--null-memory", "program image FLASH; verify image FLASH; dump 0x10000000 2", 0, "ff ff"},
        {"--null-memory", "dataSet 128 0; programPage 0x10000000 1; blankCheck FLASH; print yes", 0, "yes"},
        {"--null-memory", "dump 0 2", 255, "Address 0x00000000 is in no flash region"},
        {"--null-memory --fault flip,command=burst", "program image FLASH", 255, "Burst checksum is"},
        {"--fault error,at=9", "program image FLASH", 0, "fault 'error,at=9' never occurred"},
        {"--fault error,at=3,count=2", "version; version", 255, "Injected error"},
        {"--region A,size=1K,page=256,blank=0", "blankCheck A; readWord A", 0, "0x00000000"},
        {"--fault drop,chance=0.0001 --seed 5", "version", 0, "'drop,chance=0.0001' never occurred"},
        {"--log /dev/full", "queryPart", 1, "vqxsim: log: No space left on device"},
        {"--region F,size=64K,buffer=512", "programPage F 2", 255,
         "0x400 bytes exceed the buffer of 0x200 bytes"},
        {"--region F,size=64K,buffer=512", "program image F; verify image F; print fits", 0, "fits"},
        {"--memory new/folder", "setBoot 1; queryID", 0, "Boot bank = 1"},
        {"--memory new/folder", "queryID", 0, "Boot bank = 1"},
    };
    for (const auto& c : cases) {
        const Result r = talk(c.options, c.script);
        EXPECT_EQ(r.status, c.status) << c.options << r.err;
        EXPECT_TRUE(holds(r.out + r.err, c.shown)) << c.options << ": " << r.out << r.err;
    }
}

TEST_F(SimRun, RefusesWhatItCannotDo) {
    const struct {
        const char* options;
        int status;
        const char* message; ///< part of it
    } cases[] = {
        {"--program-time ''", 2, "option --program-time: '' is not a number from 0 to 1000000000"},
        {"--accept 'a b'", 2, "option --accept: 'a b' is not a command word"},
        {"--fault 'error,text=a, b=c,sta=d'", 2, "fault error has no setting 'sta'"},
        {"--log ''", 2, "option --log: the path is empty"},
        {"--log none/log", 2, "none/log: No such file"},
        {"--memory image/x", 2, "image/x: Not a directory"},
        {"--link image", 2, "image: exists and is not the link of a simulator"},
        {"--link", 2, "option '--link' needs an argument\nTry 'vqxsim --help'."},
        {"-- ./image", 126, "./image: Permission denied"},
        {"-- ./none", 127, "./none: No such file"},
        {"-- sh -c 'exit 7'", 7, ""},
        {"-- sh -c 'kill -9 $$'", 137, ""},
        {"-- sh -c 'trap \"exit 3\" TERM; kill $PPID; while :; do sleep 0.01; done'", 3, ""},
        {"-- sh -c 'trap \"\" INT; trap \"kill -INT $PPID; while kill -0 $PPID 2>/dev/null; do sleep 0.01; done; exit 9\" TERM; kill $PPID; while :; do sleep 0.01; done'",
         130, ""},
        {"-- sh -c 'test x{}y{} = \"x$1y$1\"' - {}", 0, ""},
    };
    write("image", "no program");
    for (const auto& c : cases) {
        const Result r = run(std::string("exec vqxsim ") + c.options, "", 10);
        EXPECT_EQ(r.status, c.status) << c.options;
        EXPECT_EQ(r.out, "") << c.options;
        EXPECT_TRUE(holds(r.err, c.message) && r.err.empty() == (*c.message == '\0'))
            << c.options << ": " << r.err;
        EXPECT_EQ(r.err.find("vqxsim: ", 1), std::string::npos) << c.options << ": " << r.err;
    }
}

TEST_F(SimRun, TakesTheMemoriesOfABoard) {
    write(
        "odd",
        "Error: made up\n=queryFlash\r\nNUMBER OF flash devices = 2\nname = Alpha\nBASE= 010000\n"
        "size =65536 bytes\nPage = 0X200\nblank = 0x1A5\nOther = x\nbuffer = 4096\nName=Beta\nBase=0x90000000\r"
        "SIZE=0x100 = 7\npage=4\nNo Flash\nName = C\n");
    const std::string list =
        "Number of Flash Devices = 2\nName = Alpha\nBase = 0x1000\nSize = 0x10000\nPage = 0x200\nBuffer = 0x1000\n"
        "Blank = 0xa5\nName = Beta\nBase = 0x90000000\nSize = 0x100\nPage = 0x4\nBuffer = 0x0\nBlank = 0x00\n";
    EXPECT_EQ(talk("--like odd --accept unlock", "queryFlash; unlock it 1").out, list);
    write("twin", list);
    EXPECT_EQ(talk("--like twin", "queryFlash").out, list);
    const std::string noNumber = "not a number of 32 bits (hexadecimal needs 0x)";
    for (const auto& [text, message] : std::vector<std::pair<std::string, std::string>>{
             {"No Flash\nName = A\n", ": no memory found: it must hold the output of queryFlash"},
             {"Name = A\nBlank = ff\n", ":2: 'Blank = ff': " + noNumber},
             {"Name = A\nSize = 08\n", ":2: 'Size = 08': " + noNumber},
             {"Name = A\nSize = 0x100000000\n", ":2: 'Size = 0x100000000': " + noNumber},
             {"\n\nPage =\n", ":3: 'Page =': " + noNumber},
             {"Page = 1\n", ":1: 'Page = 1': comes before the first Name"},
             {"Name = A\nName = B\n", ": has 2 memories, but 'Number of Flash Devices' is 0"},
             {"Number of Flash Devices = 2\nName = A\nName = a\n", ": two memories are named 'A'"},
         }) {
        write("bad", text);
        const Result r = talk("--like bad", "print");
        EXPECT_EQ(r.err, "vqxsim: bad" + message + "\nTry 'vqxsim --help'.\n");
        EXPECT_EQ(r.status, 2);
    }
    EXPECT_TRUE(holds(talk("--like /dev/zero", "print").err, "has more than 1048576 bytes"));
}

TEST_F(SimRun, WorksBesideOtherProcesses) {
    const std::string inBackground = " >path & until [ -s path ]; do sleep 0.01; done; ";
    const std::string killed = "kill -9 $!; wait $! 2>/dev/null; ";
    const struct {
        std::string script;
        std::string out; ///< of both outputs, with N for a process
    } cases[] = {
        {"vqxsim --memory m --region F,size=1K --fault drop <&- >&- 2>&- & "
         "until [ -s m/F.bin ]; do sleep 0.01; done; kill $!; wait $!; cat m/* | tr -d '\\377'",
         ""},
        {"env --ignore-signal=CHLD vqxsim -- sh -c 'exit 4'; echo $?", "4\n"},
        {"vqxsim --link l" + inBackground +
             "secapp -d ./l 'print hi'; secapp -d $(cat path) 'print again'; kill $!; wait $!; echo $?; ls l",
         "hi\nagain\n0\nls: cannot access 'l': No such file or directory\n"},
        {"vqxsim --memory m" + inBackground + "vqxsim --memory m -- true; " + killed +
             "vqxsim --memory m -- echo free",
         "vqxsim: m: is in use by process N\nfree\n"},
        {"vqxsim --memory p --region F,size=1K" + inBackground +
             "cp -rl p q; rm q/lock; vqxsim --memory q --region F,size=1K -- true; " + killed + "echo end",
         "vqxsim: q/F.bin: is in use by process N\nend\n"},
        {"vqxsim -- secapp -d {} print lost >&-; echo $?", "standard output: Bad file descriptor\n255\n"},
        {"vqxsim --link l" + inBackground + "vqxsim --link l -- true; readlink l | cmp path -; " + killed +
             "vqxsim -- vqxsim --link l -- secapp -d ./l print taken; ls l",
         "vqxsim: l: is the link of process N\ntaken\nls: cannot access 'l': No such file or directory\n"},
        {"ln -s /dev/ttyUSB7 port; vqxsim --link port -- true; readlink port",
         "vqxsim: port: exists and is not the link of a simulator\n/dev/ttyUSB7\n"},
        {"vqxsim --link own -- sh -c 'rm own; ln -s {} own; readlink own >path'; readlink own | cmp path",
         ""},
        {"vqxsim --link cut --memory c --region F,size=64K -- sh -c ': >c/F.bin; secapp -d {} \"erase F\" 2>&1 | grep ^Error; "
         "secapp -d {} print on'; ls cut",
         "Error: <Command line>:1: Memory F cannot be used: its file was cut\non\n"
         "ls: cannot access 'cut': No such file or directory\n"},
        {"mkdir d; vqxsim --link d/l --log log --fault unplug,at=3,replug=0 2>err -- sh -c 'rm -r d; secapp -d {} version 2>&1 | grep -o gone; "
         "until grep -q No err; do sleep 0.01; done; mkdir d; until secapp -d d/l print back 2>/dev/null; do sleep 0.01; done'; cat err; "
         "sed '1,/# unplugged/d' log | grep -q '< =print' && echo batch mode is off",
         "gone\nback\nvqxsim: cannot plug in again yet: d/l: No such file or directory\nbatch mode is off\n"},
        {"vqxsim --fault flood,bytes=endless,at=1 -- bash -c 'exec 3<>{}; printf \"=print 1\\r\" >&3; "
         "head -c 100000 <&3 >/dev/null; exec 3>&-; exec secapp -d {} \"print on\"'",
         "on\n"},
        {"vqxsim --log log -- bash -c 'exec 3<>{}; printf \"=batchmode 1\\r=dump 10000000 2000\\r=print end\\r\" >&3; "
         "until grep -q \"3 > print end\" log; do sleep 0.01; done; "
         "while read -r line; do echo; [ \"${line%?}\" = end ] && break; done <&3 | wc -l'",
         "516\n"},
        {"vqxsim --version | grep -cE '^vqxsim [0-9.]+ [(]Build [0-9]+[)]$'", "1\n"},
        {"vqxsim >/dev/full; echo $?; vqxsim --help >/dev/full; echo $?",
         "vqxsim: standard output: No space left on device\n2\n"
         "vqxsim: standard output: No space left on device\n1\n"},
    };
    for (const auto& c : cases) {
        const Result r =
            run("rm -f path; { " + c.script + "; } 2>&1 | sed -u \"s/process [0-9]*/process N/\"", "", 20);
        EXPECT_EQ(r.out, c.out) << c.script;
    }
}

/// The log without times, the numbers of devices and the numbers that hosts make up.
std::string conversation(const std::string& log) {
    const std::string timeless = std::regex_replace(log, std::regex("(^|\n)[0-9.]+ "), "$1");
    return std::regex_replace(timeless, std::regex("(/dev/pts/|print |\n< )[0-9]+"), "$1N");
}

TEST_F(SimRun, LogsTheWholeConversation) {
    const std::string start =
        "# plugged in as /dev/pts/N\n# opened by a host\n"
        "1 > print N\n< =print N\n< N\n< VQX_OK\n2 > batchmode 1\n< =batchmode 1\n< VQX_OK\n";
    const std::string query =
        "3 > queryFlash\n< Number of Flash Devices = 1\n< Name = A\n< Base = 0x0\n< Size = 0x200\n"
        "< Page = 0x100\n< Buffer = 0x100\n< Blank = 0xff\n< VQX_OK\n4 > dataSet 40 ff\n";
    const struct {
        const char* options;
        const char* script;
        std::string log;
    } cases[] = {
        {"", "program three A; print bye",
         query +
             "< VQX_OK\n5 > databurst 3 0 ff636261\n< VQX_OK\n6 > [burst of 0x3 bytes, checksum 0xff636261]\n"
             "< VQX_OK\n7 > programPage 0 1\n< VQX_OK\n8 > dataSet 40 ff\n< VQX_OK\n9 > print bye\n< bye\n< VQX_OK\n"},
        {"--rate 1000000 --fault error,at=4,text=no", "program three A",
         query + "! exchange 4, error: VQX_ERROR no\n< VQX_ERROR no\n"},
        {"--fault flood,at=3,bytes=5", "version",
         "3 > version\n! exchange 3, flood: 5 bytes\n< VQX companion firmware 1.0 (simulated)\n< [flood of 5 bytes]\n"
         "< \n< VQX_OK\n"},
    };
    write("three", "abc");
    for (const auto& c : cases) {
        talk(std::string("--log log --region A,size=512,page=256,buffer=256 ") + c.options, c.script);
        EXPECT_EQ(conversation(read("log")), start + c.log + "# closed by a host\n") << c.options;
    }
}

TEST_F(SimRun, LogsIncompleteRequests) {
    run("exec vqxsim --log log -- bash -c 'exec 3<>{}; printf \"=batchmode 1\\r=%05000d\\r=databurst 4 0 0\\rab\" 7 >&3; "
        "until grep -q given log; do sleep 0.01; done'");
    const std::string log = conversation(read("log"));
    EXPECT_TRUE(holds(log, "\n2 > [line too long] " + std::string(64, '0') + "\n")) << log;
    EXPECT_TRUE(holds(log, "\n4 > [burst broken off after 0x2 bytes]\n")) << log;

    run("exec vqxsim --log log --fault unplug,byte=12 -- bash -c 'exec 3<>{}; printf \"=print 1\\177\\r=pri\" >&3; "
        "until grep -q vanishes log; do sleep 0.01; done'");
    const std::string cutOff = conversation(read("log"));
    EXPECT_TRUE(holds(cutOff, "\n1 > print N\\x7f\n! unplug: the device vanishes\n# unplugged\n")) << cutOff;
}

TEST_F(SimRun, RepeatsRandomFaultsFromTheSeed) {
    const auto noise = [&](const std::string& options) {
        const char* const script =
            "print 1; print 2; print 3; print 4; print 5; print 6; print 7; print 8; print 9";
        return talk(options + " --fault noise,command=print,chance=50,at=3", script).out;
    };
    const std::string once = noise("--seed 2");
    const auto lines = std::count(once.begin(), once.end(), '\n');
    EXPECT_TRUE(lines > 9 && lines < 18) << once;
    EXPECT_EQ(noise("--seed 2"), once);
    EXPECT_NE(noise("--seed 3"), once);
    EXPECT_EQ(noise(""), noise("--seed 0x1"));
}

TEST_F(SimRun, KeepsLargeMemoriesInFilesWithHoles) {
    const char* const options = "--region BIG,size=128M,page=4096 --memory memory";
    EXPECT_EQ(talk(options, "program image BIG+0x7000000").status, 0);
    const Result r =
        talk(options, "verify image BIG+0x7000000; blankCheck BIG+0x7002000; dump 0 2; blankCheck BIG");
    EXPECT_TRUE(holds(r.out, "00000000: ff ff")) << r.out;
    EXPECT_TRUE(holds(r.err, "Not blank at 0x07000000")) << r.err;
    EXPECT_EQ(talk(options, "program image BIG").status, 0);
    EXPECT_EQ(talk(options, "verify image BIG; verify image BIG+0x7000000").status, 0);
    EXPECT_EQ(talk(options, "erase BIG; blankCheck BIG").status, 0);
    struct stat file {};
    ASSERT_EQ(stat((folder / "memory/BIG.bin").c_str(), &file), 0);
    EXPECT_EQ(file.st_size, 128 << 20);
    EXPECT_LT(file.st_blocks * 512, 1 << 20);
}

} // namespace
