#include "harness.h"

namespace {

class Help : public Secapp {
protected:
    Help() {
        board.answers.emplace("help", "=help\nerase   addr \t len\n\n  list\nVQX_OK\n");
        board.answers.emplace("helpadvanced", "longcommandname x\nVQX_OK\n");
    }
};

const std::string basic =
    "usage: secapp [-d serial_port] [-e dnqst] [-g usec] [-hp] [-v var=value]\n[-s script]|[-t]|[[-x] command]\n"
    "where:\n"
    "\t -h \t\tdisplay this help message\n"
    "\t -d serial_port\tuse 'serial_port' (device) as target\n"
    "\t\t\tuse ? to list available ports\n"
    "\t -s script \tread script from file\n"
    "\t -t \t\tread script from terminal (stdin)\n"
    "\t -x command \texecute 'command' only\n"
    "\t\t\tthe -s, -t and -x options and/or immediate commands\n\t\t\tare mutually exclusive\n\n"
    "\t -v name=value\tassign variable 'name' the value 'value'\n"
    "\t\t\tUse [name] to reference the variable in the script\n"
    "\t\t\tSimple text replacement is performed on each script line\n"
    "\t -p \t\tpause before each script command\n"
    "\t -e denqst\tset command echo options:\n"
    "\t\tq - quiet  - echo nothing [default]\n"
    "\t\td - debug  - echo additional debug information\n"
    "\t\tn - noisy  - echo everything\n"
    "\t\ts - script - echo script commands\n"
    "\t\tt - target - echo target commands\n"
    "\t\tb - buffer - dump raw target buffer\n"
    "\t\te - exit   - display message on exit\n";

std::string advanced(const std::string& timeout, const std::string& vtime, const std::string& vmin,
                     bool hexEncoder, const std::string& words) {
    return "\tAdvanced options:\n"
           "\t -g usec\tset (global) timeout for commands in mS. Default is " +
           timeout +
           "mS\n"
           "\t -b \t\tdisable batchmode (target commands are echoed)\n"
           "\t -A usec \tdelay for usec before each target command\n"
           "\t -T decisec \tserial port VTIME value (default " +
           vtime +
           ")\n"
           "\t -M value \tserial port VMIN value (default " +
           vmin +
           ")\n"
           "\t -a index\tset download algorithm\n"
           "\t\t\t0 - Hex Encoder " +
           (hexEncoder ? "[default]\n\t\t\t1 - Binary Encoder \n"
                       : "\n\t\t\t1 - Binary Encoder [default]\n") +
           "\t -w size\tset packet transfer size (default=" + words +
           ")\n"
           "\t -m size\tset max transfer buffer size (0=use firmware value)\n"
           "\t -z \tdo not use internal sleep algorithm\n"
           "\nCommand prefixes (first non-space character on a line):\n"
           "\t # \t\tcomment (do not execute)\n"
           "\t - or ! \texecute command quietly\n"
           "\t + \t\texecute command noisily\n"
           "\t % \t\texecute command with debug output\n"
           "\t @ \t\texecute single character command\n"
           "\t ? \t\tpause this command before execution\n"
           "\nBooting:\n"
           "To boot the companion image into the device, run the script 'boot_brennix'\nin the scripts directory\n"
           "\nUdev:\n"
           "On Linux systems, a udev rule should be supplied to enable access to the\ndevice.\n"
           "To do this, run the script 'install_udev_rules' in the scripts\ndirectory\n";
}

const std::string commands =
    "\nSupported high-level commands (implemented by this tool) are:\n"
    "    program   \tprogram [+c|+wN] (<file>|<fill_value>) <baseAddress>\n\t\t\t  [<fill_length>].\n"
    "\t\t\t  where: +c==calculate checksum\n\t\t\t  +wN==width of fill_value, where N is 1, 2 or 4\n"
    "              \tprogram file or value into flash at baseAddress\n"
    "    verify    \tverify [+c|+i|+wN] (<file>|<fill_value>) <baseAddress>\n\t\t\t  [<fill_length>].\n"
    "\t\t\t  where: +c==calculate checksum, +i==ignore checksum\n"
    "\t\t\t  +wN==width of fill_value, where N is 1, 2 or 4\n"
    "              \tverify that flash contents matches the file or value\n"
    "    erase     \terase <baseAddress>\n              \terase flash contents\n"
    "    blankCheck\tblankCheck <baseAddress>\n              \tblankcheck\n"
    "    setBoot   \tsetBoot [BankA|BankB|0|1]\n              \tset the active boot flash bank\n"
    "    setVidPid \tsetVidPid <vid> <pid>\n              \tprogram the OTP VID and PID\n"
    "    echo      \techo <parameters>*\n              \techo all parameters to the output stream\n"
    "    delay     \tdelay <microseconds>\n              \tdelay for number of microseconds\n"
    "    pause     \tpause [on|off] | message\n"
    "              \tif on or off, switch autoPause on,\n\t\t\telse display message and wait for <ENTER>.\n"
    "\t\t\t(Not possible if script is from stdin)\n"
    "    timer     \ttimer <start|stop|print>\n              \tstart/stop a timer\n"
    "    var       \tvar name=value\n              \tcreate a local variable\n"
    "    <other>   \tAny command supported by the target\n";

const std::string targetTitle = "\nTarget commands (implemented on the device):\n";
const std::string targetList = targetTitle + "\terase     \taddr len \n\tlist      \t\n";

// The form of a banner, its numbers and month left out.
std::string form(const std::string& banner) {
    std::string text = withoutNumbers(banner);
    const std::size_t month = text.find("#) (") + 4;
    if (text.size() > month + 5)
        text.replace(month, text[month + 4] == ' ' ? 5 : 4, "Mon ");
    return text;
}

// The help without its banner, whose form is checked here.
std::string body(const std::string& out) {
    const std::size_t end = out.find('\n');
    EXPECT_EQ(form(out.substr(0, end)),
              "secapp: Tavren VQX Scripting tool. v#.#.# (Build #) (Mon # # #:#:#)");
    return out.substr(end + 1);
}

TEST_F(Help, ShowsEveryLine) {
    Result r = run("exec secapp -d $PORT -h");
    EXPECT_EQ(body(r.out), basic + commands + targetList);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(board.conversation(), "help|");

    r = run("exec secapp -d $PORT -H ignored");
    EXPECT_EQ(body(r.out), basic + advanced("5000", "0", "1", false, "32") + commands + targetTitle +
                               "\tlongcommandname\tx \n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(board.conversation(), "helpadvanced|");
}

TEST_F(Help, ShowsTheSettingsMadeBeforeIt) {
    const Result r = run("exec secapp -d $PORT -g 100 -T 0x2 -M 300 -a 0 -w 99 -H -g 7");
    EXPECT_NE(r.out.find(advanced("100", "2", "300", true, "99")), std::string::npos) << r.out;
    EXPECT_NE(
        run("exec secapp -d $PORT -M -1 -g -5 -H").out.find(advanced("-5", "0", "4294967295", false, "32")),
        std::string::npos);
}

TEST_F(Help, AnswersTheQuestionMarkLineWhileConnected) {
    const termios before = board.settings();
    const Result r = runScript("hello\n?\necho not reached");
    EXPECT_EQ(body(r.out), basic + commands + targetList);
    EXPECT_EQ(r.err, "");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(board.settings().c_cflag, before.c_cflag);
}

TEST_F(Help, SaysWhyTheTargetCannotAnswer) {
    board.answers.insert_or_assign("help", "VQX_ERROR busy\n");
    const Result r = run("exec secapp -d $PORT -h");
    EXPECT_EQ(body(r.out), basic + commands + targetTitle);
    EXPECT_EQ(r.err, "Cannot display target help: busy\n");
    EXPECT_EQ(r.status, 0);
    EXPECT_EQ(run("exec secapp -d /nonexistent -h").err, "/nonexistent: No such file or directory\n");
    EXPECT_EQ(run("exec secapp -d /nonexistent -h").status, 255);
}

TEST_F(Help, ShowsVersions) {
    board.answers.emplace("version", "firmware 2.1\nVQX_OK\n");
    const Result r = run("exec secapp -d $PORT version 0x10");
    EXPECT_EQ(form(r.out), "secapp: #.#.# (Build #) (Mon # # #:#:#)\nfirmware #.#\n");
    EXPECT_EQ(board.conversation(), "version 0x10|");
}

} // namespace
