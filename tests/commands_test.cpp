#include "harness.h"

namespace {

class Commands : public Secapp {
protected:
    Commands() {
        board.answers.emplace("queryFlash", twoRegions);
        write("img", "0123");
        write("big", std::string(0x80001, 'b'));
    }

    struct Row {
        std::string command, conversation, error = {}, out = {};
    };
    // Runs each command as a script.
    void expectRows(const std::vector<Row>& rows) {
        for (const Row& row : rows) {
            SCOPED_TRACE(row.command);
            const Result r = runScript(row.command);
            EXPECT_EQ(board.conversation(), row.conversation);
            std::string last = "|" + row.conversation;
            last = last.substr(last.rfind('|', last.size() - 2) + 1);
            last = last.empty() ? "" : "=" + last.substr(0, last.find_last_not_of(" |") + 1);
            EXPECT_EQ(r.err, row.error.empty() ? "" : report("script:1", row.error, row.command, last));
            EXPECT_EQ(timed(r), row.out);
        }
    }
};

TEST_F(Commands, EvaluatesTheWordsOfTargetCommands) {
    struct Case {
        std::string word, sent;
        bool asks = false;
    };
    std::string many, manySent;
    for (int i = 0; i < 200; i++) {
        many += "-1 ";
        manySent += "ffffffffffffffff ";
    }
    std::string script, conversation;
    for (const Case& c : std::vector<Case>{
             {"", ""},
             {"12 0x20", "c 20 "},
             {"010 0X1f 0", "8 1f 0 "},
             {"0x100+0x20*2 0x100-0x20-0x10 100/7*7", "140 d0 62 "},
             {"20-4-2 16/4/2 2*3+4*5-6/2", "e 2 17 "},
             {"-4 5- 5*-3 5* *5 /7", "fffffffffffffffc 5 fffffffffffffffd 0 0 0 "},
             {"0x123456789 0x 0xFFFFFFFF*0xFFFFFFFF", "23456789 0 fffffffe00000001 "},
             {"0xFFFFFFFF*0xFFFFFFFF/0xFFFFFFFF", "fffffffffffffffe "},
             {"0xFFFFFFFF*0x80000000/2", "3fffffffc0000000 "},
             {"4294967296 99999999999999999999", "0 99999999999999999999 ", true},
             {"+5 +x+FLASH", "+5 +x+FLASH "},
             {"on off", "on off ", true},
             {"FLASH+0x10 \t bankb flash/2", "10000010 10080000 8000000 ", true},
             {"08 (1+2) FLA 1+FLA beef 1/0 FLASH/", "08 (1+2) FLA 1+FLA beef 1/0 FLASH/ ", true},
             {"0x1G 0x1G*0", "0x1G 0x1G*0 ", true},
             {"[x] %s %n", "[x] %s %n ", true},
             {many, manySent},
         }) {
        script += "10\t" + c.word + "\n";
        conversation += (c.asks ? "queryFlash|10 " : "10 ") + c.sent + "|";
    }
    const Result r = runScript(script);
    EXPECT_EQ(board.conversation(), conversation);
    EXPECT_EQ(r.err + r.out, "");

    board.answers.insert_or_assign("queryFlash", "VQX_ERROR no\n");
    EXPECT_EQ(runScript("t a 1 b").status, 0);
    EXPECT_EQ(board.conversation(), "queryFlash|queryFlash|t a 1 b |");
}

TEST_F(Commands, ChecksFlashArgumentsInOrder) {
    const std::string program =
        "[+c|+wN] (<file>|<fill_value>) <baseAddress>\n\t\t\t  [<fill_length>].\n"
        "\t\t\t  where: +c==calculate checksum\n\t\t\t  +wN==width of fill_value, where N is 1, 2 or 4";
    const std::string noChecksum = "Checksum option not valid for fill operations";
    const std::string notAtStart =
        "Checksum options may only be used when address is at the start of a flash region";
    struct Case {
        std::string command, error;
        bool asks = true;
    };
    std::filesystem::create_directory(folder / "sub");
    ASSERT_EQ(
        run("mkfifo fifo; truncate -s $((0x100000004)) huge; truncate -s $((0x100000000)) round").status, 0);
    for (const Case& c : std::vector<Case>{
             {"program +x none", "Unknown option '+x' for command program", false},
             {"Erase +w3 FLASH", "Unknown option '+w3' for command Erase", false},
             {"blankCheck + FLASH", "Unknown option '+' for command blankCheck", false},
             {"PROGRAM +c", "PROGRAM: Missing filename or fill_value \nUsage: program " + program, false},
             {"program 0xFF", "program: Missing address \nUsage: program " + program, false},
             {"program img", "program: Missing address \nUsage: program " + program, false},
             {"ERASE", "ERASE: Missing address \nUsage: erase <baseAddress>", false},
             {"erase +i", noChecksum, false},
             {"blankCheck +c FLASH", noChecksum, false},
             {"program +c 0xFF", noChecksum, false},
             {"verify +i 1 nowhere", noChecksum, false},
             {"verify +c beef FLASH", "Unknown memory 'beef'"},
             {"program +c none", "Cannot open program file 'none'", false},
             {"Verify sub FLASH", "Cannot open Verify file 'sub'", false},
             {"program fifo FLASH", "Cannot open program file 'fifo'", false},
             {"program 12+4 FLASH", "Cannot open program file '12+4'", false},
             {"program img nowhere", "Unknown memory 'nowhere'"},
             {"erase flash*0x", "No matching memory found flash*0x (0x0)"},
             {"erase 0x0FFFFFFF", "No matching memory found 0x0FFFFFFF (0xfffffff)"},
             {"erase BANKB+0x80000", "No matching memory found BANKB+0x80000 (0x10100000)"},
             {"erase -1", "No matching memory found -1 (0xffffffffffffffff)"},
             {"erase 0x10000000+0x80000000*2",
              "No matching memory found 0x10000000+0x80000000*2 (0x110000000)"},
             {"erase 1/0", "Division by zero in '1/0'"},
             {"program +i big 0x20000000", "No matching memory found 0x20000000 (0x20000000)"},
             {"program +i big FLASH",
              "Binary image big (size 524289) is too large for memory FLASH (0x10000000, size 524288)"},
             {"verify huge FLASH",
              "Binary image huge (size 4294967300) is too large for memory FLASH (0x10000000, size 524288)"},
             {"program round BANKB",
              "Binary image round (size 4294967296) is too large for memory BANKB (0x10080000, size 524288)"},
             {"program img FLASH+0x7FFFD",
              "Binary image img (size 4) is too large for memory FLASH+0x7FFFD (0x1007fffd, size 524288)"},
             {"program +i img bankB+1",
              "Memory base address bankB+1 (0x10080001) is not page aligned (PageSize=0x200)"},
             {"erase FLASH+256",
              "Memory base address FLASH+256 (0x10000100) is not page aligned (PageSize=0x200)"},
             {"Program +i img FLASH+512", "Cannot use checksum ignore option with Program command"},
             {"verify +c img FLASH+0x200 x", notAtStart},
             {"verify +i img FLASH+0x200", notAtStart},
             {"erase FLASH x", "Unknown memory 'x'"},
             {"erase \vFLASH", "Unknown memory '\vFLASH'"},
             {"program \v5 FLASH 4", "Cannot open program file '\v5'", false},
             {"blankCheck FLASH 08", "Unknown memory '08'"},
         }) {
        SCOPED_TRACE(c.command);
        const Result r = runScript(c.command);
        EXPECT_EQ(r.err, report("script:1", c.error, c.command, c.asks ? "=queryFlash" : ""));
        EXPECT_EQ(board.conversation(), c.asks ? "queryFlash|" : "");
        EXPECT_EQ(r.status, 255);
    }
    board.answers.insert_or_assign("queryFlash", "No Flash\nVQX_OK\n");
    EXPECT_EQ(runScript("erase 0x10").err,
              report("script:1", "No matching memory found 0x10 (0x10)", "erase 0x10", "=queryFlash"));
}

TEST_F(Commands, ChoosesTheMemory) {
    const auto region = [](const char* base, const char* size, const char* page) {
        return std::string("Name=R\nBase=") + base + "\nSize=" + size + "\nPage=" + page + "\n";
    };
    const std::string two = "Number of Flash Devices=2\n";
    for (const auto& [regions, command, conversation] : Rows<3>{
             // The last memory that contains the address and the image
             {two + region("0", "0x400", "4") + region("0x100", "0x400", "8"), "program +w1 1 0x100 1",
              "dataSet 2 0|databurst 1 0 ffffff01|programPage 100 1|dataSet 2 0|"},
             {two + region("0", "0x400", "4") + region("0x100", "2", "8"), "program img 0x100",
              "dataSet 1 0|databurst 4 0 33323130|programPage 100 1|dataSet 1 0|"},
             // Ends and sums are 32 bits wide.
             {region("0xFFFFFF00", "0x100", "4"), "erase R", ""},
             {region("0xFFFFFF00", "0xFF", "4"), "program img 0xFFFFFFFC",
              "dataSet 1 0|databurst 4 0 33323130|programPage fffffffc 1|dataSet 1 0|"},
             {region("0x80000000", "4", "4"), "erase R", "eraseFlash 80000000|"},
         }) {
        board.answers.insert_or_assign("queryFlash", regions + "VQX_OK\n");
        EXPECT_EQ(runScript(command).status, conversation.empty() ? 255 : 0) << command;
        EXPECT_EQ(board.conversation(), "queryFlash|" + conversation) << command;
    }
}

TEST_F(Commands, ErasesAndBlankChecksLists) {
    const std::string done = " ... completed in #s\n", query = "queryFlash|";
    const std::string eraseFirst = query + "eraseFlash 10000000|", checkFirst = "blankCheck 10000000 |";
    const std::string eraseBoth = eraseFirst + "eraseFlash 10080000|";
    const std::string both = "Erasing FLASH" + done + "Erasing BANKB" + done;
    const std::string item = "FLASH" + std::string(240, '+');
    expectRows({
        {"erase flash", eraseFirst, "", "Erasing flash" + done},
        {"erase FLASH,,BANKB,", eraseBoth, "", both},
        {"erase +w2 ALL 1*2 x", eraseBoth, "", both},
        {"erase 0x10000200", query + "eraseFlash 10000200|", "", "Erasing 0x10000200" + done},
        {"erase ,", query},
        {"blankCheck FLASH", query + query + checkFirst},
        {"BLANKCHECK 0x10000000,bankb+512", query + checkFirst + query + "blankCheck 10080200 |"},
        {"blankCheck all", query + query + checkFirst + query + "blankCheck 10080000 |"},
        {"blankCheck " + item, query, "Address too long: '" + item + "'"},
    });
    board.answers.emplace("eraseFlash", "VQX_ERROR worn out\n");
    board.answers.emplace("blankCheck", "VQX_ERROR at 10\n");
    const std::string refusal = "VQX_ERROR at 10\n";
    expectRows({
        {"erase all", eraseFirst, "worn out", "Erasing FLASH VQX_ERROR worn out\n... completed in #s\n"},
        {"blankCheck all", query + query + checkFirst, "at 10", refusal},
        {"blankCheck " + item.substr(0, 244), query + query + checkFirst, "at 10", refusal},
    });
}

TEST_F(Commands, ShowsDotsWhileErasingWithoutLimit) {
    board.answers.emplace("eraseFlash", Answer("VQX_OK\n", 2200));
    board.answers.emplace("hello", "");
    Result r = run("exec secapp -g 1000 -d $PORT 'erase FLASH;hello'");
    r.seconds -= 2;
    const std::string out = timed(r, 2.2);
    const std::size_t start = std::string("Erasing FLASH ").size();
    const std::size_t dots = std::min(out.find_first_not_of('.', start), out.size()) - start - 3;
    EXPECT_EQ(out, "Erasing FLASH " + std::string(dots, '.') + "... completed in #s\n");
    EXPECT_TRUE(dots >= 2 && static_cast<double>(dots) <= r.seconds) << out;
    EXPECT_EQ(r.err, report("<Command line>:1", "Resource temporarily unavailable", "hello", "=hello"))
        << "the time-out counts again";
}

TEST_F(Commands, SetsBootBankAndUsbIdentity) {
    const std::string word(300, '7');
    expectRows({
        {"setBoot bankb x", "bootBank 1|"},
        {"setBoot 1", "bootBank 1|"},
        {"SETBOOT BANKA", "bootBank 0|"},
        {"setBoot 0", "bootBank 0|"},
        {"setBoot", "", "No parameter provided for setBoot"},
        {"SetBoot 2", "", "Unknown boot bank '2'"},
        {"setBoot 0x1", "", "Unknown boot bank '0x1'"},
        {"setBoot 01", "", "Unknown boot bank '01'"},
        {"setBoot \fBankA", "", "Unknown boot bank '\fBankA'"},
        {"setVidPid \v1 2", "otp_ProgUSBID 2 \v1|"},
        {"setBoot BankA1", "", "Unknown boot bank 'BankA1'"},
        {"setVidPid 0x1234 \t 42 more", "otp_ProgUSBID 42 0x1234|"},
        {"setVidPid FLASH 010", "otp_ProgUSBID 010 FLASH|"},
        {"setVidPid", "", "No vid or pid provided for setVidPid"},
        {"SETVIDPID 1", "", "No pid provided for SETVIDPID"},
        {"setvidpid 1 " + word, "", "Line too long for setvidpid"},
        {"setVidPid " + word.substr(0, 239) + " 1", "otp_ProgUSBID 1 " + word.substr(0, 239) + "|"},
        {"setVidPid " + word.substr(0, 240) + " 1", "", "Line too long for setVidPid"},
    });
}

TEST_F(Commands, ShowsTargetInformation) {
    const std::string flash = "Name=FLASH\nBase=0\nSize=0x80000\nPage=0x200\n";
    const std::string morvi = "Name=Morvi\nBase=0x14000000\nSize=0x400000\nPage=0x100\n";
    const std::string part = "D1 PartID: P1 Clock: 12 MHz\n";
    const std::string flashLine = "FLASH: 0x00000000-0x0007ffff (512K bytes) PageSize: 0x200\n";
    const std::string morviLine = "Morvi (fam x): 0x14000000-0x143fffff (4096K bytes) PageSize: 0x100\n";
    const std::string noId = "ID: Not available (no internal flash)\n";
    board.answers.insert_or_assign("queryPart",
                                   "PARTID = P0\npartid=P1\nCore Clock= 12 M=9\ndecode = D1\nVQX_OK\n");
    board.answers.insert_or_assign("queryID", "12 34\n56\nVQX_OK\n");
    board.answers.insert_or_assign("queryMORVI", "Other=1\nDevice Family = fam x \nVQX_OK\n");
    for (const auto& [regions, conversation, out] : Rows<3>{
             {"Number of Flash Devices=2\n" + flash + morvi, "queryPart|queryFlash|queryID|queryMORVI|",
              part + flashLine + morviLine + "ID: 12 34\n56\n\n"},
             {flash, "queryPart|queryFlash|queryID|", part + flashLine + "ID: 12 34\n56\n\n"},
             {morvi, "queryPart|queryFlash|queryMORVI|", part + morviLine + noId},
             {"No Flash\n", "queryPart|queryFlash|", part + noId},
             {"Number of Flash Devices=2\nName=" + std::string(120, 'n') +
                  "\nSize=1000\nName=E\nBase=0xFFFFFFFF\nPage=0x1AB\n",
              "queryPart|queryFlash|queryID|",
              part + std::string(100, 'n') +
                  ": 0x00000000-0x000003e7 (1000 bytes) PageSize: 0x0\n"
                  "E: 0xffffffff-0xffffffff (0K bytes) PageSize: 0x1ab\nID: 12 34\n56\n\n"},
             {"Name=H\nSize=0xFFFFFC00\n", "queryPart|queryFlash|queryID|",
              part + "H: 0x00000000-0xfffffbff (-1K bytes) PageSize: 0x0\nID: 12 34\n56\n\n"},
         }) {
        board.answers.insert_or_assign("queryFlash", regions + "VQX_OK\n");
        SCOPED_TRACE(regions);
        const Result r = runScript("targetInfo ignored");
        EXPECT_EQ(r.out, out);
        EXPECT_EQ(board.conversation(), conversation);
        EXPECT_EQ(r.err, "");
    }

    board.answers.insert_or_assign("queryFlash", "Number of Flash Devices=2\n" + flash + morvi + "VQX_OK\n");
    for (const auto& [query, out] :
         Rows<2>{{"queryPart", ""}, {"queryFlash", part}, {"queryID", part}, {"queryMORVI", part}}) {
        const auto before = board.answers;
        board.answers.insert_or_assign(query, "Partid=X\nVQX_ERROR no\n");
        const Result r = runScript("targetInfo");
        EXPECT_EQ(r.out, out) << query;
        EXPECT_EQ(r.err, report("script:1", "no", "targetInfo", "=" + query));
        board.answers = before;
    }
    board.answers.insert_or_assign("queryPart", "Core clock=1\nVQX_OK\n");
    board.answers.insert_or_assign("queryMORVI", "VQX_OK\n");
    EXPECT_EQ(runScript("targetInfo").out,
              flashLine + "Morvi (): 0x14000000-0x143fffff (4096K bytes) PageSize: 0x100\nID: 12 34\n56\n\n");
    // Without the opening command the queries share the one connection.
    EXPECT_EQ(runScript("targetInfo;erase FLASH", "-b").status, 0);
    EXPECT_EQ(board.conversation(), "queryPart|queryFlash|queryID|queryMORVI|queryFlash|eraseFlash 0|");
    EXPECT_EQ(board.bytes().find("=print", 1), std::string::npos);
}

} // namespace
