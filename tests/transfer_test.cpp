#include "harness.h"
#include "support/text.h"

#include <sstream>

namespace {

using namespace std::string_literals;

class Transfer : public Secapp {
protected:
    Transfer() { region("0x10000", "0x200", "0x1000"); }

    // Gives the board one memory, FLASH at 0x1000.
    void region(const std::string& size, const std::string& page, const std::string& buffer,
                const std::string& blank = "0xff") {
        board.answers.insert_or_assign("queryFlash", "Name=FLASH\nBase=0x1000\nSize=" + size +
                                                         "\nPage=" + page + "\nBuffer=" + buffer +
                                                         "\nBlank=" + blank + "\nVQX_OK\n");
    }
};

// Words of the value 1: their checksum is their number.
std::string ones(std::size_t bytes) {
    std::string text(bytes, '\0');
    for (std::size_t i = 0; i < bytes; i += 4)
        text[i] = 1;
    return text;
}

std::string repeated(const std::string& text, int times) {
    std::string all;
    for (; times > 0; times--)
        all += text;
    return all;
}

TEST_F(Transfer, ReadsTheListOfMemories) {
    const std::string mismatch = "Mismatch between number of device and count of devices returned";
    for (const auto& [answer, error, conversation] : Rows<3>{
             {"", "", ""},
             {"No Flash\nName=A\n", "", ""},
             {"  no flash \n", "", ""},
             {"Name = A \nSize=1\nPage=1\n", "", "eraseFlash 0|"},
             {"name=A\nBASE=010\nsiZe=8\npage=8\nVersion=3\n", "", "eraseFlash 8|"},
             {"Number of Flash Devices=2\nName=A\nSize=1\nPage=1\nName=B\nBase=1\nSize=1\nPage=1\n", "",
              "eraseFlash 0|eraseFlash 1|"},
             {"Name=A\nSize=1\nPage=1\nBase=7=8\nBase=0X20 and more\n", "", "eraseFlash 20|"},
             {"Base=5\nGarbage\n=x\nName=A\nSize=1\nPage=1\n", "", "eraseFlash 0|"},
             {"Name=A\nSize=0x100\nPage=1\nBase=0x123456700\n", "", "eraseFlash 23456700|"},
             {"Name=A\nSize=1\nPage=1\nNo Flash\nBase=5\n", "", "eraseFlash 0|"},
             {"Name=A\nSize=9\nPage=4\nBase=8\nName\nBase\nSize \n  Page\n", "", "eraseFlash 8|"},
             {"Name=A\nPage=1\nBase=9\n", "No matching memory found A (0x9)", ""},
             {"Name=A\nSize=1\n", "Memory A has no page size", ""},
             {"Number of Flash Devices=1\nNo Flash\n", mismatch, ""},
             {"Number of Flash Devices=2\nName=A\n", mismatch, ""},
             {"Number of Flash Devices=2\nName=A\nName=B\nName=C\n", mismatch, ""},
             {"Name=A\nName=B\n", mismatch, ""},
         }) {
        SCOPED_TRACE(answer);
        board.answers.insert_or_assign("queryFlash", answer + "VQX_OK\n");
        EXPECT_EQ(runScript("erase all").err,
                  error.empty() ? "" : report("script:1", error, "erase all", "=queryFlash"));
        EXPECT_EQ(board.conversation(), "queryFlash|" + conversation);
    }
}

TEST_F(Transfer, AsksForTheMemoriesWithDebugOptions) {
    for (const auto& [letters, conversation] : Rows<2>{{"N", "DebugOptions 0|queryFlash|DebugOptions 7|"},
                                                       {"E", "DebugOptions 0|queryFlash|DebugOptions 7|"},
                                                       {"S", "DebugOptions 4|queryFlash|DebugOptions 7|"},
                                                       {"AS", "DebugOptions 5|queryFlash|DebugOptions 7|"},
                                                       {"B", "DebugOptions 2|queryFlash|DebugOptions 7|"},
                                                       {"q", "queryFlash|"}}) {
        board.answers.insert_or_assign("DebugOptions", "No Flash\nVQX_ERROR ignored\n");
        const Result r = runScript("queryFlash words", "-e " + letters);
        SCOPED_TRACE(letters);
        const std::string refused = letters == "q" ? "" : "No Flash\nVQX_ERROR ignored\n";
        EXPECT_EQ(r.out,
                  refused + "Name=FLASH\nBase=0x1000\nSize=0x10000\nPage=0x200\nBuffer=0x1000\nBlank=0xff\n" +
                      refused);
        EXPECT_EQ(board.conversation(), conversation);
        EXPECT_EQ(runScript("erase all", "-e " + letters).status, 0);
        EXPECT_EQ(board.conversation(), conversation + (letters == "q" ? "eraseFlash 1000|" : ""));
    }
    board.answers.insert_or_assign("queryFlash", "VQX_ERROR no\n");
    EXPECT_EQ(runScript("erase all", "-e A").err, report("script:1", "no", "erase all", "=queryFlash"));
    EXPECT_EQ(board.conversation(), "DebugOptions 1|queryFlash|");
}

TEST_F(Transfer, StagesEncodesAndCommits) {
    const std::string set = "dataSet 400 ff|";
    const std::string three = "\xAA\xBB\xCC";
    std::string packets;
    for (unsigned offset = 0; offset < 0x1000; offset += 0x100)
        packets += secapp::formatText("dataPacket %x", offset) + repeated(" 1", 64) + "|";
    for (const auto& [options, bytes, conversation] : Rows<3>{
             {"", "", ""},
             {"", three, "databurst 3 0 ffccbbaa|programPage 1000 1|"},
             {"", "\1\0\0\0\2"s, "databurst 5 0 ffffff03|programPage 1000 1|"},
             {"", ones(0x201), "databurst 201 0 ffffff81|programPage 1000 2|"},
             {"", ones(0x1000), "databurst 1000 0 400|programPage 1000 8|"},
             {"", ones(0x2000),
              "databurst 1000 0 400|programPage 1000 8|" + set + "databurst 1000 0 400|programPage 2000 8|"},
             {"-m 0x1800", ones(0x1004),
              "databurst 1000 0 400|programPage 1000 8|" + set + "databurst 4 0 1|programPage 2000 1|"},
             {"-m 0x600", ones(0x1000),
              "databurst 600 0 180|databurst 600 600 180|databurst 400 c00 100|programPage 1000 8|"},
             {"-m 0x800", ones(0x1000), "databurst 800 0 200|databurst 800 800 200|programPage 1000 8|"},
             {"-m 3", "abcdefg",
              "databurst 3 0 ff636261|databurst 3 3 ff666564|databurst 1 6 ffffff67|programPage 1000 1|"},
             {"-m 0", ones(0x800), "databurst 800 0 200|programPage 1000 4|"},
             {"-m 0x80000000", ones(0x800), "databurst 800 0 200|programPage 1000 4|"},
             {"-a 0", ones(136),
              "dataPacket 0" + repeated(" 1", 32) + "|dataPacket 80 1 1|programPage 1000 1|"},
             {"-a 0 -w 64", ones(256), "dataPacket 0" + repeated(" 1", 64) + "|programPage 1000 1|"},
             {"-a 0 -w 2", ones(9), "dataPacket 0 1 1|dataPacket 8 ffffff01|programPage 1000 1|"},
             {"-a 0 -w 1", "\x44\x33\x22\x11\0\0\0\0"s,
              "dataPacket 0 11223344|dataPacket 4 0|programPage 1000 1|"},
             {"-a 0", three, "dataPacket 0 ffccbbaa|programPage 1000 1|"},
             {"-a 0", "", ""},
             {"-a 0 -m 4 -w 64", ones(0x1004),
              packets + "programPage 1000 8|" + set + "dataPacket 0 1|programPage 2000 1|"},
         }) {
        SCOPED_TRACE(options + " " + conversation);
        write("file", bytes);
        const Result r = runScript("program file FLASH", options);
        EXPECT_EQ(board.conversation(), "queryFlash|" + set + conversation + (bytes.empty() ? "" : set));
        EXPECT_EQ(board.bursts(), options.starts_with("-a") ? "" : bytes);
        std::string dots;
        for (std::size_t at = 0; (at = conversation.find("programPage", at)) != std::string::npos; at++)
            dots += '.';
        EXPECT_EQ(r.err, dots);
        EXPECT_EQ(timed(r),
                  "\nProgrammed " + std::to_string(bytes.size()) + " bytes to 0x1000 in #s (#KB/sec)\n");
        EXPECT_EQ(r.status, 0);
    }
    EXPECT_EQ(timed(runScript("verify file FLASH")), "\nVerified 4100 bytes to 0x1000 in #s (#KB/sec)\n");
    EXPECT_EQ(board.conversation(), "queryFlash|" + set + "databurst 1000 0 400|verifyPage 1000 8|" + set +
                                        "databurst 4 0 1|verifyPage 2000 1|" + set);
}

TEST_F(Transfer, ShowsHowLongAndHowFast) {
    board.answers.emplace("programPage", Answer("VQX_OK\n", 300));
    write("file", ones(0x1000));
    const Result r = runScript("program file FLASH");
    EXPECT_EQ(timed(r, 0.3), "\nProgrammed 4096 bytes to 0x1000 in #s (#KB/sec)\n");
    double seconds = 0, rate = 0;
    std::istringstream in(r.out.substr(r.out.find(" in ") + 4));
    (in >> seconds).ignore(3) >> rate; // "s ("
    EXPECT_NEAR(seconds * rate, 4, 0.03) << r.out;
}

TEST_F(Transfer, TakesBufferAndFillByteFromTheMemory) {
    const std::string commit = "programPage 1000 1|";
#ifdef SECAPP_LIMIT_MEMORY
    const std::string limit = "ulimit -v 300000; ";
#else
    const std::string limit;
#endif
    for (
        const auto& [page, buffer, blank, err, conversation] : Rows<5>{
            {"512", "0", "0x1FF", ".", "dataSet 80 ff|dataPacket 0 ffffff61|" + commit + "dataSet 80 ff|"},
            {"0x200", "0x300", "0",
             "Warning: Internal issue. Buffersize not a multiple of page size (768 and 512). Ignoring Buffersize\n.",
             "dataSet 80 0|dataPacket 0 61|" + commit + "dataSet 80 0|"},
            {"1", "1", "0x5a", ".", "dataSet 0 5a|dataPacket 0 5a5a5a61|" + commit + "dataSet 0 5a|"},
            {"01000", "0x8000", "255", ".",
             "dataSet 2000 ff|dataPacket 0 ffffff61|" + commit + "dataSet 2000 ff|"},
            {"512", "0x40000000", "255", ".",
             "dataSet 10000000 ff|dataPacket 0 ffffff61|" + commit + "dataSet 10000000 ff|"},
        }) {
        region("0x10000", page, buffer, blank);
        write("file", "a");
        SCOPED_TRACE(buffer);
        const Result r = run(limit + "exec secapp -a 0 -d $PORT program file FLASH");
        EXPECT_EQ(r.err, err);
        EXPECT_EQ(board.conversation(), "queryFlash|" + conversation);
    }
    if (limit.empty())
        return;
    // A fill takes as much memory as the buffer that the target claims.
    const Result r = run(limit + "exec secapp -d $PORT program 1 FLASH 0x20000000");
    EXPECT_EQ(r.err, "Out of memory\n");
    EXPECT_EQ(r.status, 255);
}

TEST_F(Transfer, Fills) {
    region("0x400", "0x100", "0x200");
    const std::string set = "dataSet 80 ff|";
    const std::string all =
        "databurst 200 0 80|programPage 1000 2|" + set + "databurst 200 0 80|programPage 1200 2|";
    for (const auto& [command, conversation, bytes] : Rows<3>{
             {"+w1 0x12 FLASH 5", "databurst 5 0 12121124|programPage 1000 1|", "\x12\x12\x12\x12\x12"},
             {"+w4 0x11223344 FLASH 6", "databurst 6 0 11213344|programPage 1000 1|",
              "\x44\x33\x22\x11\0\0"s},
             {"+W2 0xBEEF FLASH 5", "databurst 5 0 beefbdef|programPage 1000 1|", "\xEF\xBE\xEF\xBE\0"s},
             {"+w1 7 FLASH 1", "databurst 1 0 ffffff07|programPage 1000 1|", "\7"},
             {"+w1 0x1A5 FLASH 2*2", "databurst 4 0 a5a5a5a5|programPage 1000 1|", "\xA5\xA5\xA5\xA5"},
             {"+w1 +w4 1 FLASH", all, ones(0x400)},
             {"1 all", all, ones(0x400)},
             {"1 FLASH+0x300", "databurst 100 0 40|programPage 1300 1|", ones(0x100)},
             {"1 FLASH,FLASH+0x100 4",
              "databurst 4 0 1|programPage 1000 1|" + set + set + "databurst 4 0 1|programPage 1100 1|",
              ones(4) + ones(4)},
             {"1 FLASH 0x500", all + set + "databurst 100 0 40|programPage 1400 1|", ones(0x500)},
             {"1 FLASH 0", "", ""},
             {"1 FLASH 0x80000000", "", ""},
             {"1 FLASH 0x800001FF", "", ""},
             {"1 FLASH -1", "", ""},
         }) {
        SCOPED_TRACE(command);
        const Result r = runScript("program " + command);
        EXPECT_EQ(board.conversation(), "queryFlash|" + set + conversation + (bytes.empty() ? "" : set));
        EXPECT_EQ(board.bursts(), bytes);
        EXPECT_EQ(r.status, 0) << r.err;
    }
}

TEST_F(Transfer, RefusesDataThatTheBufferWouldCut) {
    const std::string width = "Fill width 4 does not fit the buffer of memory FLASH (6 bytes)";
    const std::string word = "The check word of an image does not fit a transfer buffer of ";
    struct Case {
        std::string page, buffer, command, error, bytes;
        std::size_t size = 32;
        std::string options = {};
    };
    for (const Case& c : std::vector<Case>{
             {"2", "6", "program +w4 1 FLASH 24", width, ""},
             {"2", "6", "verify +w4 1 FLASH 24", width, ""},
             {"2", "6", "program +w2 0x1234 FLASH 8", "", "\x34\x12\x34\x12\x34\x12\x34\x12"},
             {"2", "2", "program +w4 0x11223344 FLASH 8", "", "\x44\x33\x22\x11\x44\x33\x22\x11"},
             {"4", "28", "program +c file FLASH", word + "28 bytes", ""},
             {"4", "28", "verify +i file FLASH", word + "28 bytes", ""},
             {"16", "0", "verify +c file FLASH", word + "16 bytes", ""},
             {"4", "28", "program +c file FLASH", "", ones(31), 31},
             {"4", "32", "program +c file FLASH", "", ones(28) + "\xF9\xFF\xFF\xFF" + ones(8), 40, "-m 1"},
             {"4", "4", "download +c file", word + "31 bytes", "", 32, "-m 31"},
             {"4", "4", "download +c file", "", ones(28) + "\xF9\xFF\xFF\xFF", 32, "-m 32"},
             {"4", "4", "download +c file", "", ones(31), 31, "-m 16"},
         }) {
        SCOPED_TRACE(c.buffer + " " + c.command + " " + c.options);
        region("0x400", c.page, c.buffer);
        write("file", ones(c.size));
        const Result r = runScript(c.command, c.options);
        EXPECT_EQ(board.bursts(), c.bytes);
        EXPECT_EQ(r.status, c.error.empty() ? 0 : 255) << r.err;
        if (c.error.empty())
            continue;
        const bool asks = !c.command.starts_with("download");
        EXPECT_TRUE(r.err.ends_with(report("script:1", c.error, c.command, asks ? "=queryFlash" : "")))
            << r.err;
        EXPECT_EQ(board.conversation(), asks ? "queryFlash|" : "");
    }
}

TEST_F(Transfer, PatchesTheCheckWord) {
    const std::string words = "\1\0\0\0\2\0\0\0\3\0\0\0\4\0\0\0\5\0\0\0\6\0\0\0\7\0\0\0"s;
    const std::string old = "\xAD\xDE\0\0"s;
    const std::string rest = image(0x1100);
    const std::string set = "dataSet 400 ff|";
    struct Case {
        std::string command, image, patch, conversation;
    };
    for (const Case& c : std::vector<Case>{
             {"program", words + old, old, set},
             {"program +C", words + old, "\xE4\xFF\xFF\xFF", set},
             {"verify +i +c", words + old, "\xE4\xFF\xFF\xFF", set},
             {"verify +c +I", words + old, "\x78\x56\x34\x12", "readWord 0x101c|" + set},
             {"program +c", words + old + rest, "\xE4\xFF\xFF\xFF", set},
             {"program +c", words.substr(0, 5), "", set},
             {"program +c", words + old.substr(0, 3), "", set},
             {"verify +i", words + old.substr(0, 1), "", "readWord 0x101c|" + set},
         }) {
        SCOPED_TRACE(c.command + " of " + std::to_string(c.image.size()));
        write("file", c.image);
        board.answers.insert_or_assign("readWord", "  0x12345678 is it\nVQX_OK\n");
        EXPECT_EQ(runScript(c.command + " file FLASH").status, 0);
        std::string expected = c.image;
        if (!c.patch.empty())
            expected.replace(28, 4, c.patch);
        EXPECT_EQ(board.bursts(), expected);
        EXPECT_TRUE(board.conversation().starts_with("queryFlash|" + c.conversation + "databurst "));
        EXPECT_EQ(read("file"), c.image);
    }
    write("file", words + old);
    for (const auto& [answer, error] :
         {std::pair("xyz\nVQX_OK\n", "No value in the answer to readWord at 0x101c"),
          {"VQX_OK\n", "No value in the answer to readWord at 0x101c"},
          {"VQX_ERROR locked\n", "locked"}}) {
        board.answers.insert_or_assign("readWord", answer);
        EXPECT_EQ(runScript("verify +i file FLASH").err,
                  report("script:1", error, "verify +i file FLASH", "=readWord 0x101c"));
        EXPECT_EQ(board.conversation(), "queryFlash|readWord 0x101c|");
    }
}

TEST_F(Transfer, StopsAtTheFirstFailure) {
    write("file", ones(0x1004));
    const std::vector<std::string> steps = {
        "queryFlash",         "dataSet 400 ff", "databurst 1000 0 400", "burst",
        "programPage 1000 8", "dataSet 400 ff", "databurst 4 0 1",      "burst",
        "programPage 2000 1", "dataSet 400 ff"};
    for (std::size_t failing = 0; failing < steps.size(); failing++) {
        std::size_t step = 0;
        board.on = [&](const std::string& line) -> std::optional<Answer> {
            if (line.starts_with("batchmode") || line == "\r" || step++ != failing)
                return {};
            return Answer("VQX_ERROR stop\n");
        };
        const Result r = runScript("program file FLASH,FLASH");
        std::string conversation, last;
        for (std::size_t i = 0; i <= failing; i++)
            if (steps[i] != "burst")
                conversation += (last = steps[i]) + "|";
        EXPECT_EQ(board.conversation(), conversation);
        EXPECT_TRUE(r.err.ends_with(report("script:1", "stop", "program file FLASH,FLASH", "=" + last)))
            << r.err;
        EXPECT_EQ(r.out.find("Programmed"), std::string::npos);
        EXPECT_EQ(r.status, 255);
    }
}

TEST_F(Transfer, FailsWhenTheImageChangesWhileItIsSent) {
    struct Case {
        std::string command;
        std::size_t size, newSize;
        std::string dots, last; ///< no last command: the image was read whole before it changed
    };
    const std::string burst = "=databurst 1000 0 400";
    for (const Case& c : std::vector<Case>{
             {"program file FLASH", 0x3000, 0x2000, "", burst},
             {"verify file FLASH", 0x3000, 0x4000, "..", burst},
             {"download file", 0x3000, 0x2000, ".", burst},
             {"program file FLASH", 0x3000, 0x3000, ".", burst},
             {"verify file FLASH", 0x2000, 0x2000, "", burst},
             {"download file", 0x1004, 0x1004, ".", burst},
             {"program file FLASH", 0x1000, 0x1000, ".", ""},
             {"verify file FLASH", 0x1000, 0x2000, ".", ""},
             {"download file", 0xffc, 0, "..", ""},
             {"program file FLASH,FLASH", 0x1000, 0x1000, ".", "=dataSet 400 ff"},
         }) {
        SCOPED_TRACE(c.command + " " + std::to_string(c.size) + " " + std::to_string(c.newSize));
        write("file", ones(c.size));
        board.on = [&](const std::string& line) {
            if (line.starts_with("databurst"))
                write("file", ones(c.newSize));
            return std::nullopt;
        };
        const Result r = runScript(c.command, "-m 0x1000");
        const std::string error = "The file changed or could not be read to its end (" +
                                  std::to_string(c.size) + " bytes expected)";
        EXPECT_EQ(r.err, c.dots + (c.last.empty() ? "" : report("script:1", error, c.command, c.last)));
        EXPECT_EQ(r.status, c.last.empty() ? 0 : 255);
    }
}

TEST_F(Transfer, DownloadsToRam) {
    struct Case {
        std::string options, words;
        std::size_t size;
        std::string conversation;
        int dots;
    };
    for (const Case& c : std::vector<Case>{
             {"", "file more words", 40000,
              "dataSet 2000 0|databurst 8000 0 2000|dataSet 2000 0|databurst 1c40 0 710|dataSet 2000 0|", 3},
             {"-m 0", "file", 0, "dataSet 2000 0|", 1},
             {"-m 1024", "file", 1028,
              "dataSet 100 0|databurst 400 0 100|dataSet 100 0|databurst 4 0 1|dataSet 100 0|", 3},
             {"-m 1", "file", 2,
              "dataSet 0 0|databurst 1 0 ffffff01|dataSet 0 0|databurst 1 0 ffffff00|dataSet 0 0|", 3},
             {"-a 0", "file", 5, "dataSet 2000 0|dataPacket 0 1 1|dataSet 2000 0|", 2},
             {"", "+C file", 32, "dataSet 2000 0|databurst 20 0 0|dataSet 2000 0|", 2},
         }) {
        SCOPED_TRACE(c.options + " " + c.words);
        write("file", ones(c.size));
        const Result r = runScript("download " + c.words, c.options);
        EXPECT_EQ(board.conversation(), c.conversation);
        EXPECT_EQ(r.err, std::string(static_cast<std::size_t>(c.dots), '.'));
        EXPECT_EQ(timed(r), "\nDownloaded " + std::to_string(c.size) + " bytes to 0x0 in #s (#KB/sec)\n");
        EXPECT_EQ(board.bursts().size(), c.options == "-a 0" ? 0 : c.size);
    }
    for (const auto& [command, text] : Rows<2>{
             {"download", "Filename cannot be empty"},
             {"download +c", "Filename cannot be empty"},
             {"Download +x file", "Unknown option '+x' for command Download"},
             {"download +c +c", "Cannot open download file '+c'"},
             {"DOWNLOAD none", "Cannot open DOWNLOAD file 'none'"},
             {"download .", "Cannot open download file '.'"},
         }) {
        EXPECT_EQ(runScript(command).err, report("script:1", text, command, "")) << command;
        EXPECT_EQ(board.conversation(), "") << command;
    }
}

} // namespace
