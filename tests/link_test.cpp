#include "harness.h"

#include <algorithm>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sched.h>
#include <sys/file.h>
#include <sys/wait.h>
#include <unistd.h>

#include "link/ports.h"

namespace {

class Link : public Secapp {
protected:
    [[nodiscard]] bool sameSettings(const termios& a) const {
        const termios b = board.settings();
        return a.c_iflag == b.c_iflag && a.c_oflag == b.c_oflag && a.c_cflag == b.c_cflag &&
               a.c_lflag == b.c_lflag && std::memcmp(a.c_cc, b.c_cc, NCCS) == 0;
    }
};

// Settings that differ from those of secapp in every group.
termios unusual(termios settings) {
    settings.c_iflag = IXON | INLCR;
    settings.c_oflag = OPOST;
    settings.c_cflag = B9600 | CS8 | CREAD | HUPCL;
    settings.c_lflag = ISIG;
    settings.c_cc[VMIN] = 7;
    settings.c_cc[VTIME] = 3;
    settings.c_cc[VEOF] = 9;
    return settings;
}

// Starts a process with record locks on the file, the newest ones in the list of each processor.
pid_t lockInAnotherProcess(int file) {
    const pid_t process = fork();
    if (process == 0) {
        for (int cpu = 0; cpu < CPU_SETSIZE; cpu++) {
            cpu_set_t set;
            CPU_ZERO(&set);
            CPU_SET(cpu, &set);
            struct flock lock {
                .l_type = F_WRLCK, .l_whence = SEEK_SET, .l_start = cpu, .l_len = 1, .l_pid = 0
            };
            if (sched_setaffinity(0, sizeof set, &set) == 0)
                fcntl(file, F_SETLK, &lock);
        }
        raise(SIGSTOP);
    }
    waitpid(process, nullptr, WUNTRACED);
    return process;
}

TEST_F(Link, ConnectsAndSendsCommandLines) {
    EXPECT_EQ(runScript("hello 16\nprint  0x10  FLASH").status, 0);
    EXPECT_EQ(withoutNumbers(board.bytes()), "=print #\r=batchmode # \r=hello # \r=print  #x#  FLASH\r");
    EXPECT_EQ(runScript("echo hi;delay 1", "-b").status, 0);
    EXPECT_EQ(board.bytes(), "");
}

TEST_F(Link, ReadsAnswers) {
    struct Case {
        Answer answer;
        std::string out;
        std::optional<std::string> error = {};
        std::string options = {};
    };
    for (const Case& c : std::vector<Case>{
             {"VQX_OK\n", ""},
             {"VQX_OK", "", "Resource temporarily unavailable", "-g 1 "},
             {"a\r\nb\rc\n\n\r VQX_OK\r\n", "a\nb\nc\n"},
             {std::string("a\0b\0VQX_OK\0", 11), "a\nb\n"},
             {"=hello\n  =hello again\n\t a  b \nVQX_OK and more\n", "a  b\n"},
             {"vqx_ok\nnot VQX_OK\nVQX_OK\n", "vqx_ok\nnot VQX_OK\n"},
             {"VQX_O\nVQX_ERRO\nVQX_OKAY\n", "VQX_O\nVQX_ERRO\n"},
             {"one\nVQX_ERROR  Bad \t address \n", "one\nVQX_ERROR  Bad \t address\n", "Bad \t address"},
             {"vqx_Error7\n", "vqx_Error7\n", "7"},
             {"VQX_FATAL\n", "VQX_FATAL\n", ""},
             {"Vqx_Fatal %s%n\n", "Vqx_Fatal %s%n\n", "%s%n"},
             {"\x80\xff\x01%n\nVQX_OK\n", "\x80\xff\x01%n\n"},
             {Answer("a long wait\nVQX_OK\n", 0, 20), "a long wait\n"},
             {Answer("late\nVQX_OK\n", 400), "late\n"},
             {Answer("much later\nVQX_OK\n", 1100), "much later\n", {}, "-g 0 "},
         }) {
        SCOPED_TRACE(c.answer.text);
        board.answers.insert_or_assign("hello", c.answer);
        const Result r = run("exec secapp " + c.options + "-d $PORT hello");
        EXPECT_EQ(r.out, c.out);
        EXPECT_EQ(r.err, c.error ? report("<Command line>:1", *c.error, "hello", "=hello") : "");
        EXPECT_EQ(r.status, c.error ? 255 : 0);
    }
}

TEST_F(Link, KeepsTheWholeOfAnOverlongLine) {
    board.answers.emplace("hello", std::string(40000, 'x') + "\nVQX_OK\n");
    // On a busy host a line can take longer than the time-out.
    const Result r = run("exec secapp -g 0 -d $PORT hello");
    EXPECT_EQ(r.status, 0);
    const std::string piece(16384, 'x');
    EXPECT_TRUE(r.out == piece + "\n" + piece + "\n" + piece.substr(0, 40000 - 2 * 16384) + "\n");
    EXPECT_TRUE(r.err == "Line exceeded buffer:" + piece + "\nLine exceeded buffer:" + piece + "\n");
}

// The next answer could belong to an earlier command.
TEST_F(Link, SendsNothingAfterALostAnswer) {
    board.answers.emplace("queryFlash", twoRegions);
    struct Case {
        std::string words, lost;
        int asked;
        std::string conversation, command, last;
    };
    for (const Case& c : std::vector<Case>{
             {"'blankCheck FLASH;hello'", "queryFlash", 2, "queryFlash|queryFlash|", "blankCheck FLASH",
              "=queryFlash"},
             {"-e A 'erase FLASH;hello'", "DebugOptions 1", 1, "DebugOptions 1|", "erase FLASH",
              "=DebugOptions 1"},
             {"-e A 'queryFlash;hello'", "DebugOptions 7", 1, "DebugOptions 1|queryFlash|DebugOptions 7|",
              "queryFlash", "=DebugOptions 7"},
         }) {
        SCOPED_TRACE(c.words);
        int asked = 0;
        board.on = [&](const std::string& line) -> std::optional<Answer> {
            return line == c.lost && ++asked == c.asked ? std::optional<Answer>("late\n") : std::nullopt;
        };
        const Result r = run("exec secapp -g 1 -d $PORT " + c.words);
        EXPECT_EQ(board.conversation(), c.conversation);
        EXPECT_EQ(r.err, report("<Command line>:1", "Resource temporarily unavailable", c.command, c.last));
        EXPECT_EQ(r.status, 255);
    }
}

TEST_F(Link, TakesAnAnswerShorterThanVminAsSoonAsItCame) {
    board.answers.emplace("hello", Answer("VQX_OK\n", 5));
    std::string script;
    for (int i = 0; i < 80; i++) // of which each would take a second
        script += "hello\n";
    EXPECT_EQ(runScript(script, "-M 100").status, 0);
}

TEST_F(Link, ShowsTimersAndDumps) {
    board.answers.emplace("a%s", Answer("VQX_OK\n", 60));
    // The time of the opening command has the label of the handshake, which runs during it.
    const std::string print = "Command timer (=print #): #.#\n", read = "Read timer (=print #): #.#\n";
    Result r = run("exec secapp -d $PORT -e x a%s");
    EXPECT_EQ(withoutNumbers(r.err), print + print + "Command timer (=a%s): #.#\n");
    const std::size_t last = r.err.rfind("(=a%s): ") + 8;
    EXPECT_EQ(r.err.substr(last).size(), std::string("0.060000\n").size()) << r.err;
    EXPECT_TRUE(std::stod(r.err.substr(last)) >= 0.06 && std::stod(r.err.substr(last)) <= r.seconds) << r.err;
    r = run("exec secapp -d $PORT -e r a%s");
    EXPECT_EQ(withoutNumbers(r.err), read + read + read + read + "Read timer (=a%s): #.#\n");
    r = run("exec secapp -d $PORT -e 0 a%s");
    EXPECT_TRUE(withoutNumbers(r.err).starts_with("Time elapsed during sleep: #.#s\n")) << r.err;

    r = run("exec secapp -d $PORT -b -e b hello '1234567 0x10'");
    EXPECT_NE(
        r.err.find("\n0x00000000: 3d 68 65 6c 6c 6f 20 31 32 64 36 38 37 20 31 30 \n0x00000010: 20 0d \n"),
        std::string::npos)
        << r.err;
    r = run("exec secapp -d $PORT -b -e b @a");
    EXPECT_TRUE(r.err.ends_with("\n0x00000000: 61 \n")) << r.err;
}

TEST_F(Link, TracesTheLink) {
    board.answers.emplace("hello", "A\x01\nVQX_OK\n");
    const Result r = run("exec secapp -d $PORT -b -e dq hello");
    std::size_t at = 0;
    for (const char* line : {"Write [8] '=hello \\r'\n", "Read [1] 'A' 65\n", "Read [1] '\\01' 1\n",
                             "Read [1] '\\n' 10\n", "Data received: <A\x01>\n"}) {
        at = r.err.find(std::string("DEBUG: ") + line, at);
        ASSERT_NE(at, std::string::npos) << line << "in\n" << r.err;
    }
}

TEST_F(Link, DelaysEachCommandLine) {
    const Result r = run("exec secapp -d $PORT -A 50000 'hello;@x'");
    EXPECT_EQ(r.status, 0);
    EXPECT_GE(r.seconds, 0.150); // batchmode, the test of the handshake, hello
}

TEST_F(Link, ConnectsToADifficultTarget) {
    const auto ok = [](const std::string& text) { return Answer(text + "\nVQX_OK\n"); };
    struct Case {
        std::string name;
        std::function<Answer(int, const std::string&)> answer;
        std::string bytes;
    };
    const std::string test = "=print #\r";
    const std::vector<Case> cases = {
        {"leading blanks, no repetition", [&](int, auto& t) { return ok("  " + t); }, test},
        {"stray lines first",
         [&](int, auto& t) { return "ready\nVQX_OK\nmore\nVQX_OK\n" + t + "\nVQX_OK\n"; }, test},
        {"no lines twice", [&](int n, auto& t) { return n < 3 ? Answer("VQX_OK\n") : ok(t); },
         test + test + test},
        {"in hexadecimal", [&](int, auto& t) { return ok(secapp::formatText("0x%lX", std::stoul(t))); },
         test},
        {"an error first", [&](int n, auto& t) { return n < 2 ? Answer("VQX_ERROR huh\n") : ok(t); },
         test + "\r" + test},
        {"a wrong number first", [&](int n, auto& t) { return n < 2 ? ok("1" + t) : ok(t); },
         test + "\r" + test},
        {"silence first", [&](int n, auto& t) { return n < 2 ? Answer("") : ok(t); }, test + "\r" + test},
    };
    for (const Case& c : cases) {
        board.onHandshake = c.answer;
        const Result r = run("exec secapp -d $PORT hello");
        EXPECT_EQ(r.status, 0) << c.name;
        EXPECT_EQ(r.err + r.out, "") << c.name;
        EXPECT_EQ(withoutNumbers(board.bytes()), c.bytes + "=batchmode # \r=hello \r") << c.name;
    }
}

TEST_F(Link, GivesUpAfterTenAttempts) {
    board.setSettings(unusual(board.settings()));
    const termios before = board.settings();
    board.answers.emplace("\r", "VQX_ERROR not now\n");
    struct Case {
        const char *answer, *words, *error, *where, *command, *last;
        int returns;
    };
    const char* const noControl = "Unable to get control of target";
    for (const Case& c : std::vector<Case>{
             {"VQX_OK\n", "hello", noControl, "<Command line>:0", "batchmode 1", "=print 1", 0},
             {"VQX_OK\n", "-b hello", noControl, "<Command line>:1", "hello", "=print 1", 0},
             {"VQX_OK\n", "-b @x", noControl, "<Command line>:1", "@x", "=print 1", 0},
             {"VQX_OK\n", "-b targetInfo", noControl, "<Command line>:1", "targetInfo", "=print 1", 0},
             {"VQX_ERROR go away\n", "hello", "not now", "<Command line>:0", "batchmode 1", "=print 1", 90},
         }) {
        SCOPED_TRACE(c.words);
        board.onHandshake = [&](int, const std::string&) { return Answer(c.answer); };
        const Result r = run(std::string("exec secapp -d $PORT ") + c.words + " 0<>typed");
        EXPECT_EQ(withoutNumbers(r.err),
                  withoutNumbers("Error opening " + board.port() + ": " + c.error +
                                 "\n(Sometimes ISP reset, or erasing the flash, can help...)\n"
                                 "Previous error(s) stops further processing\n" +
                                 report(c.where, "Protocol error", c.command, c.last)));
        EXPECT_EQ(r.status, 255);
        EXPECT_EQ(std::ranges::count(board.bytes(), '='), 10);
        EXPECT_EQ(std::ranges::count(board.bytes(), '\r'), 10 + c.returns);
        EXPECT_EQ(read("typed"), "") << "written to the user's terminal";
        EXPECT_TRUE(sameSettings(before));
    }
}

TEST_F(Link, SetsThePortAndRestoresItAfterEveryEnding) {
    board.setSettings(unusual(board.settings()));
    const termios before = board.settings();
    termios during{};
    board.on = [&](const std::string&) {
        during = board.settings();
        return std::nullopt;
    };
    board.answers.emplace("bad", "VQX_ERROR\n");
    struct Case {
        std::string words;
        int status;
        cc_t vmin = 1, vtime = 0;
    };
    for (const Case& c : std::vector<Case>{{"hello", 0},
                                           {"-M 0 -T 5 hello", 0, 0, 5},
                                           {"-M 300 -T 0x105 hello", 0, 44, 5},
                                           {"bad", 255},
                                           {"'hello;?hello'", 1},
                                           {"'hello;?'", 0},
                                           {"-h", 0},
                                           {"-H", 0},
                                           {"-q", 255},
                                           {"'hello;program'", 255}}) {
        SCOPED_TRACE(c.words);
        during = {};
        EXPECT_EQ(run("exec secapp -d $PORT " + c.words, "q\n").status, c.status);
        EXPECT_EQ(during.c_iflag, tcflag_t{BRKINT | IGNPAR | ICRNL});
        EXPECT_EQ(during.c_oflag, 0U);
        EXPECT_EQ(during.c_cflag, tcflag_t{B38400 | CS8 | CREAD | CLOCAL | CRTSCTS});
        EXPECT_EQ(during.c_lflag, 0U);
        for (std::size_t i = 0; i < NCCS; i++)
            EXPECT_EQ(during.c_cc[i], i == VMIN ? c.vmin : i == VTIME ? c.vtime : i == VEOF ? 4 : 0) << i;
        EXPECT_TRUE(sameSettings(before));
    }
}

TEST_F(Link, RefusesAPortThatAnotherProcessLocks) {
    const int other = open(board.port().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_EQ(run("exec secapp -d $PORT hello").status, 0) << "opened elsewhere without a lock";
    ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
    // Two locks on other files, and locks of another kind on the port.
    const pid_t locker = lockInAnotherProcess(other);
    const Result r = run("exec 8>a 9>b; flock 8; flock -s 9; exec secapp -d $PORT hello");
    kill(locker, SIGKILL);
    waitpid(locker, nullptr, 0);
    EXPECT_EQ(r.status, 255);
    EXPECT_EQ(r.err, board.port() + ": Device or resource busy\nHeld by secapp_tests (process " +
                         std::to_string(getpid()) + ")\n");
    EXPECT_EQ(board.bytes(), "");
    flock(other, LOCK_UN);
    bool shared = true;
    board.on = [&](const std::string&) {
        shared = flock(other, LOCK_SH | LOCK_NB) == 0;
        return std::nullopt;
    };
    EXPECT_EQ(run("exec secapp -d $PORT hello").status, 0);
    EXPECT_FALSE(shared) << "no lock while connected";
    EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0) << "still locked after the run";
    close(other);
}

TEST_F(Link, HintsAtASilentTargetOnATerminalOnly) {
    Board terminal;
    board.onHandshake = [](int n, auto& t) { return n < 2 ? Answer("") : Answer(t + "\nVQX_OK\n"); };
    for (const std::string& errors : {std::string(), " 2>" + terminal.port()}) {
        board.on = [returns = 0](const std::string& line) mutable {
            return line == "\r" && ++returns < 4 ? std::optional<Answer>("") : std::nullopt;
        };
        terminal.begin();
        const Result r = run("exec secapp -d $PORT hello" + errors);
        EXPECT_EQ(r.status, 0);
        EXPECT_EQ(r.err, "");
        EXPECT_EQ(withoutNumbers(terminal.bytes()),
                  errors.empty()
                      ? ""
                      : withoutNumbers("No answer from the target on " + board.port() +
                                       " for 3 s; trying for up to 87 s more; also open in secapp_tests "
                                       "(process 1)\n"));
    }
}

TEST_F(Link, NamesTheGroupOfAForbiddenPortOnATerminalOnly) {
    Board terminal;
    const std::string user = getuid() == 0 ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";
    if (run(user + "secapp-lint -h").status != 0)
        GTEST_SKIP() << "the programs are not accessible to another user";
    const std::string group = run("chmod 0 $PORT; stat -c %G $PORT").out;
    const std::string denied = board.port() + ": Permission denied\n";
    terminal.begin();
    EXPECT_EQ(run(user + "secapp -d $PORT hello").err, denied);
    EXPECT_EQ(run(user + "secapp -d $PORT hello 2>" + terminal.port()).status, 255);
    EXPECT_EQ(terminal.bytes(), denied + "The device belongs to the group " +
                                    group.substr(0, group.find('\n')) +
                                    ": join it, or run install_udev_rules\n");
}

TEST_F(Link, NeverTalksToTheTargetOnClosedStandardStreams) {
    board.answers.emplace("hello", "hi\nVQX_OK\n");
    for (const auto& [closed, status] :
         {std::pair("<&-", 0), {">&-", 255}, {"2>&-", 0}, {"<&- >&- 2>&-", 255}}) {
        EXPECT_EQ(run(std::string("exec secapp -d $PORT -e s 'echo loud;hello' ") + closed).status, status)
            << closed;
        EXPECT_EQ(withoutNumbers(board.bytes()), "=print #\r=batchmode # \r=hello \r") << closed;
    }
}

// The ports of a test directory in place of the system's.
class Discovery : public Secapp {
protected:
    void addTty(const std::string& name, const std::string& driver) const {
        std::filesystem::create_directories(folder / "tty" / name);
        std::filesystem::create_directories(folder / "devices" / name);
        std::filesystem::create_symlink(folder / "devices" / name, folder / "tty" / name / "device");
        if (!driver.empty())
            std::filesystem::create_symlink(driver, folder / "devices" / name / "driver");
    }

    // Runs the command with the test directory and the board mounted in place of the system's. In a chroot,
    // whose root is not a mount, the mounts keep their propagation, which must be private.
    [[nodiscard]] static std::string inMadeSystem(const std::string& command) {
        return std::string("mkdir -p dev/pts; ln -sf $PORT dev/ttyACM0\nown=") +
               (getuid() == 0 ? "-m" : "-rm") +
               "\nunshare $own true 2>/dev/null || { [ -r /proc/1/mountinfo ] && "
               "! grep -q shared: /proc/1/mountinfo && own=\"$own --propagation unchanged\"; }\n"
               "exec unshare $own sh -c 'mount --rbind /dev/pts dev/pts && mount --rbind dev /dev && "
               "mount --bind tty /sys/class/tty && exec " +
               command + "'";
    }

    // Why that is not possible; empty if it is.
    std::string refusal() {
        const Result r = run("mkdir -p tty; " + inMadeSystem("true"));
        return r.status == 0 ? "" : "no private mounts: " + r.err;
    }
};

TEST_F(Discovery, FindsPortsWithAUsbDriver) {
    addTty("ttyS0", "../../bus/platform/drivers/serial8250");
    addTty("ttyS1", "");
    addTty("ttyACM0", "../../bus/USB/drivers/cdc_acm");
    std::filesystem::create_directories(folder / "tty/console/device/driver");
    const std::string tty = (folder / "tty/").string();
    std::string device;
    testing::internal::CaptureStderr();
    EXPECT_EQ(secapp::getSerialDeviceName(-1, device, tty + "none/"), "No serial ports");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "Error reading tty devices (" + tty + "none/): No such file or directory\n");
    EXPECT_EQ(secapp::serial_get_port_list(tty), std::vector<std::string>{"/dev/ttyACM0"});
    EXPECT_EQ(secapp::getSerialDeviceName(-1, device, tty), std::nullopt);
    EXPECT_EQ(device, "/dev/ttyACM0");
    EXPECT_EQ(secapp::getSerialDeviceName(1, device, tty), "No serial port with index 1");
    EXPECT_EQ(secapp::getSerialDeviceName(-5, device, tty), "No serial port with index -5");
    addTty("ttyUSB7", "/sys/bus/usb-serial/drivers/any");
    EXPECT_EQ(secapp::serial_get_port_count(tty), 2);
    EXPECT_EQ(secapp::serial_get_port_list(tty), (std::vector<std::string>{"/dev/ttyACM0", "/dev/ttyUSB7"}));
    EXPECT_EQ(secapp::getSerialDeviceName(-1, device, tty), "Use -d serial_port to select\n");
    EXPECT_EQ(secapp::getSerialDeviceName(2, device, tty), "No serial port with index 2");
}

TEST_F(Discovery, UsesTheOnlyPortAndAsksWhenThereAreSeveralOrNone) {
    if (const std::string why = refusal(); !why.empty())
        GTEST_SKIP() << why;
    Result r = run(inMadeSystem("secapp hello"));
    EXPECT_EQ(r.err, "No serial ports\n");
    EXPECT_EQ(r.status, 1);
    EXPECT_EQ(run(inMadeSystem("secapp -p")).err, "No serial ports\n");

    addTty("ttyACM0", "../../bus/usb/drivers/cdc_acm");
    EXPECT_EQ(run(inMadeSystem("secapp hello")).status, 0);
    EXPECT_EQ(board.conversation(), "hello |");
    for (const char* letter : {"?", "l"}) {
        r = run(inMadeSystem(std::string("secapp -d \"") + letter + "\" hello"));
        EXPECT_EQ(r.err, "USB serial devices:\n/dev/ttyACM0\n");
        EXPECT_EQ(r.status, 0);
    }
    r = run(inMadeSystem("secapp -h"));
    EXPECT_TRUE(r.out.ends_with("\nTarget commands (implemented on the device):\n")) << r.out;

    std::string list;
    for (const char* name : {"ttyUSB1", "ttyUSB0"})
        addTty(name, "../../bus/usb/drivers/x");
    for (const auto& entry : std::filesystem::directory_iterator(folder / "tty"))
        list.insert(0, "/dev/" + entry.path().filename().string() + "\n");
    for (const auto& [words, status] : {std::pair("hello", 1), {"-h", 0}}) {
        r = run(inMadeSystem(std::string("secapp ") + words));
        EXPECT_EQ(r.err, "Multiple serial ports found:\n" + list + "Use -d serial_port to select\n\n");
        EXPECT_EQ(r.status, status);
    }
    EXPECT_TRUE(r.out.ends_with("Any command supported by the target\n")) << r.out;
}

} // namespace
