// The simulated firmware and its flash, without a terminal.

#include "harness.h"
#include "port/child.h"
#include "sim_session.h"

#include <fstream>
#include <sys/wait.h>

namespace {

using namespace vqxsim;

TEST(SimFirmware, AnswersCommands) {
    const struct {
        const char* command;
        const char* answer;
    } cases[] = {
        {"print  a  b ", "a  b\r\nVQX_OK\r\n"},
        {"queryID",
         "Serial = 5a100000-00000001-00c0ffee-20240229\r\nUSB vendor = 0x0000\r\nUSB product = 0x0000\r\nBoot bank = 0\r\nVQX_OK\r\n"},
        {"queryMORVI", "VQX_ERROR No external flash\r\n"},
        {"dataSet 2001 0", "VQX_ERROR 0x8004 bytes at offset 0x0 exceed the buffer of 0x8000 bytes\r\n"},
        {"dataSet ffffffff 0",
         "VQX_ERROR 0x3fffffffc bytes at offset 0x0 exceed the buffer of 0x8000 bytes\r\n"},
        {"DebugOptions 8", "VQX_ERROR Options are 0 to 7\r\n"},
        {"dataSet x 0", "VQX_ERROR Not a hexadecimal number: x\r\n"},
        {"dataSet 100000000 0", "VQX_ERROR Number out of range: 100000000\r\n"},
        {"databurst 0 0 0", "VQX_ERROR Burst of no bytes\r\n"},
        {"databurst 1 ffffffff 0",
         "VQX_ERROR 0x1 bytes at offset 0xffffffff exceed the buffer of 0x8000 bytes\r\n"},
        {"programPage 10000000 0", "VQX_ERROR No pages given\r\n"},
        {"programPage 10000e00 2", "VQX_ERROR 0x2 pages at 0x10000e00 exceed memory FLASH\r\n"},
        {"programPage 10000200 80000000000000",
         "VQX_ERROR 0x80000000000000 pages at 0x10000200 exceed memory FLASH\r\n"},
        {"programPage ffffff00 1", "VQX_ERROR Memory PAGELESS has no page size\r\n"},
        {"readWord 0x1000001C", "0xffffffff\r\nVQX_OK\r\n"},
        {"readWord 20000070", "0x5a5a5a5a\r\nVQX_OK\r\n"},
        {"readWord 10000002", "VQX_ERROR Address 0x10000002 is not at the start of a word\r\n"},
        {"dump 20000072 2", "20000072: 5a 5a\r\nVQX_OK\r\n"},
        {"dump 20000072 3", "VQX_ERROR 0x3 bytes at 0x20000072 exceed memory ODD\r\n"},
        {"dump 10000000 100000", "VQX_ERROR 0x100000 bytes at 0x10000000 exceed memory FLASH\r\n"},
        {"dump 10000000 100001", "VQX_ERROR At most 0x100000 bytes at a time\r\n"},
        {"eraseFlash 0", "VQX_ERROR Address 0x00000000 is in no flash region\r\n"},
        {"otp_ProgUSBID 10000 42", "VQX_ERROR USB identifiers are numbers of 16 bits\r\n"},
        {"otp_ProgUSBID 0x1234 42", "VQX_OK\r\n"},
        {"otp_ProgUSBID 1234 0x42", "VQX_OK\r\n"},
    };
    SimSession session;
    for (const auto& c : cases)
        EXPECT_EQ(session.line(c.command), c.answer) << c.command;
    EXPECT_EQ(session.line("queryFlash").substr(0, 75),
              "Number of Flash Devices = 3\r\nName = FLASH\r\nBase = 0x10000000\r\nSize = 0x1000");
    EXPECT_EQ(SimSession(std::vector<RegionSpec>{}).line("queryFlash"), "No Flash\r\nVQX_OK\r\n");
}

TEST(SimFirmware, FramesLinesHoweverTheyArrive) {
    const std::string input =
        "=print 1\r=print 2\n=print 3\r\n\r\n\n = print 4 \rprint 5\r=\r=databurst 4 0 4d4d4d4d\r\r=\n\x40"
        "=dump 10000000 1\r=" +
        std::string(4095, 'x') + "\r=" + std::string(4096, 'x') + "\r";
    const std::string answers =
        "1\r\nVQX_OK\r\n2\r\nVQX_OK\r\n3\r\nVQX_OK\r\nVQX_OK\r\nVQX_OK\r\n4\r\nVQX_OK\r\n5\r\nVQX_OK\r\nVQX_OK\r\nVQX_OK\r\n"
        "VQX_ERROR Burst checksum is 0x400a3d0d, not 0x4d4d4d4d\r\n"
        "10000000: ff\r\nVQX_OK\r\nVQX_ERROR Unknown command " +
        std::string(64, 'x') + "...\r\nVQX_ERROR Line of more than 4096 characters\r\n";
    for (const std::size_t piece : {std::size_t{1}, std::size_t{7}, input.size()}) {
        SimSession session;
        std::string got;
        for (std::size_t at = 0; at < input.size(); at += piece)
            got += session.say(std::string_view(input).substr(at, piece));
        EXPECT_EQ(got, answers) << piece;
    }
}

TEST(SimFirmware, RepeatsLinesUntilBatchMode) {
    Firmware firmware;
    ASSERT_EQ(startFirmware(firmware, {}), std::nullopt);
    EXPECT_EQ(
        exchangeBytes(firmware, "=print 7\r\r=batchmode 1\r=print 8\r=batchmode 0\r=print 9\r"),
        "=print 7\r\n7\r\nVQX_OK\r\nVQX_OK\r\n=batchmode 1\r\nVQX_OK\r\n8\r\nVQX_OK\r\nVQX_OK\r\n=print 9\r\n9\r\nVQX_OK\r\n");
}

TEST(SimFirmware, TakesSilenceAsAnEnd) {
    SimSession session;
    EXPECT_EQ(session.say("=print half"), "");
    EXPECT_EQ(silenceTimeout(session.target.firmware), std::nullopt) << "only the line end ends a command";
    EXPECT_EQ(session.say("\rversion"), "half\r\n" + ok);
    EXPECT_EQ(silenceTimeout(session.target.firmware), rawTextTimeout);
    EXPECT_TRUE(takeSilence(session.target).exchange.answer.ends_with(ok));
    EXPECT_EQ(session.say("=databurst 4 0 0\rab"), ok);
    EXPECT_EQ(silenceTimeout(session.target.firmware), burstTimeout);
    EXPECT_EQ(takeSilence(session.target).exchange.answer, "VQX_ERROR Burst given up after 2 of 4 bytes\r\n");
    EXPECT_EQ(session.line("print on"), "on\r\n" + ok);
}

TEST(SimFlash, ProgramsLikeNor) {
    for (const RegionSpec& spec : {flashRegion, oddRegion, RegionSpec{"ZERO", 0, 0x400, 0x20, 0x8000, 0}}) {
        SimSession session({spec});
        const std::string at = formatText("%x", static_cast<unsigned>(spec.base));
        const auto blank = static_cast<char>(spec.blank);
        const auto page = static_cast<std::size_t>(spec.page);
        std::string image(2 * page, blank);
        for (const int bits : {0x11, 0x20}) {
            image[3] = static_cast<char>(image[3] ^ bits);
            EXPECT_EQ(session.program(image, at + " 2"), ok + ok + ok);
        }
        image[3] ^= 0x20;
        const std::string error =
            formatText("VQX_ERROR Program failed at 0x%08x\r\n", static_cast<unsigned>(spec.base + 3));
        EXPECT_EQ(session.program(image, at + " 2"), ok + ok + error) << "a bit never goes back";
        EXPECT_EQ(session.line("verifyPage " + at + " 2"),
                  formatText("VQX_ERROR Verify failed at 0x%08x: flash holds 0x%02x, buffer 0x%02x\r\n",
                             static_cast<unsigned>(spec.base + 3), spec.blank ^ 0x31U, spec.blank ^ 0x11U));
        EXPECT_EQ(session.line("blankCheck " + at),
                  formatText("VQX_ERROR Not blank at 0x%08x\r\n", static_cast<unsigned>(spec.base + 3)));
        EXPECT_EQ(session.line("eraseFlash " + at), ok);
        EXPECT_EQ(session.line("blankCheck " + at), ok);
    }
}

TEST(SimFlash, ErasesFromTheAddressToTheEndOfItsRegion) {
    SimSession session;
    session.program(std::string(0x70, '\0'), "20000004 7");
    session.program(std::string(0x1000, '\0'), "10000000 8");
    EXPECT_EQ(session.line("eraseFlash 10000401"), ok);
    EXPECT_EQ(session.line("blankCheck 10000401"), ok);
    EXPECT_EQ(session.line("dump 100003ff 3"), "100003ff: 00 00 ff\r\n" + ok);
    EXPECT_EQ(session.line("blankCheck 20000010"), "VQX_ERROR Not blank at 0x20000010\r\n");
}

TEST(SimFlash, ClaimsOfGigabytesCostNothing) {
    SimSession session({{"HUGE", 0x40000000, 0xFFFFFFFF, 16, 0xFFFFFFF0, 0xFF}});
    if (sizeof(std::size_t) < 8) {
        EXPECT_EQ(session.error, "4294967280 bytes of memory: Cannot allocate memory");
        return;
    }
    EXPECT_EQ(session.line("dataSet 3ffffffc 0"), ok);
    EXPECT_EQ(session.program(std::string(16, 'x'), "13fffffee 1"),
              ok + ok + "VQX_ERROR Address 0x13fffffee is not at the start of a page\r\n");
    EXPECT_EQ(session.program(std::string(16, 'x'), "13fffffe0 1"), ok + ok + ok);
    EXPECT_EQ(session.line("blankCheck 40000000"), "VQX_ERROR Not blank at 0x13fffffe0\r\n");
    EXPECT_EQ(session.lines({"eraseFlash 40000000", "blankCheck 40000000"}), ok + ok);
}

class SimFiles : public Secapp {};

TEST_F(SimFiles, KeepRegions) {
    const std::string memory = folder / "memory";
    const auto content = [&] {
        std::ifstream file(memory + "/FLASH.bin", std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(file), {});
    };
    const auto restarted = [&](std::initializer_list<std::string> commands) {
        return SimSession({flashRegion}, memory).lines(commands);
    };
    const std::string image = "image" + std::string(507, '\xFF');
    SimSession session({flashRegion}, memory);
    EXPECT_EQ(content(), std::string(0x1000, '\xFF'));
    EXPECT_EQ(session.program(image, "10000000 1"), ok + ok + ok);
    EXPECT_EQ(content().substr(0, 512), image) << "visible while the target runs";
    EXPECT_EQ(restarted({"dump 10000000 5", "eraseFlash 10000000"}),
              "10000000: 69 6d 61 67 65\r\n" + ok + ok);
    EXPECT_EQ(content(), std::string(0x1000, '\xFF'));
    EXPECT_EQ(restarted({"otp_ProgUSBID 66 77", "bootBank 1"}), ok + ok);
    EXPECT_EQ(restarted({"queryID"}).substr(46),
              "USB vendor = 0x0077\r\nUSB product = 0x0066\r\nBoot bank = 1\r\n" + ok);
    EXPECT_NE(restarted({"otp_ProgUSBID 66 78"}), ok);
    std::filesystem::create_symlink("/dev/full", memory + "/board.txt.new");
    EXPECT_EQ(restarted({"bootBank 0"}), "VQX_ERROR " + memory + "/board.txt: No space left on device\r\n");
    EXPECT_EQ(SimSession({{"FLASH", 0, 0x2000, 1, 1, 0}}, memory).error,
              memory + "/FLASH.bin: has 4096 bytes, the memory 8192");
    for (const std::string& name : {std::string("../FLASH"), std::string(), std::string(251, 'n')})
        EXPECT_EQ(SimSession({{name}}, memory).error, "Memory name '" + name.substr(0, 64) +
                                                          (name.size() > 64 ? "..." : "") +
                                                          "' does not serve as a file name");
    const char* const badBoards[][2] = {{"bootBank 2", "bootBank 2: Boot bank is 0 or 1"},
                                        {"print 2", "print 2: neither bootBank nor otp_ProgUSBID"},
                                        {nullptr, "has more than 4096 bytes"}};
    for (const auto& [line, error] : badBoards) {
        std::filesystem::remove(memory + "/board.txt");
        if (line != nullptr)
            std::ofstream(memory + "/board.txt") << line << "\n";
        else
            std::filesystem::create_symlink("/dev/zero", memory + "/board.txt");
        EXPECT_EQ(SimSession({flashRegion}, memory).error, memory + "/board.txt: " + error);
    }
}

TEST(SimChild, GetsNoSignalAfterItsEnd) {
    Child child;
    ASSERT_EQ(startChild(child, {"sh", "-c", "exit 3"}, "", {}), std::nullopt);
    const pid_t id = child.id;
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(id), &info, WEXITED | WNOWAIT), 0);
    EXPECT_TRUE(hasEnded(child));
    EXPECT_EQ(child.exitStatus, 3);
    EXPECT_FALSE(sendSignal(child, SIGTERM));
}

} // namespace
