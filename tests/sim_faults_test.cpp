// What goes wrong on the way to the simulated target and back, the arithmetic of its link, and its options.

#include "options.h"
#include "port/link.h"
#include "sim_session.h"

#include <algorithm>

namespace {

using namespace vqxsim;
using std::chrono::microseconds;
using std::chrono::milliseconds;
using std::chrono::seconds;

TEST(SimFaults, ChangeAnswers) {
    const std::string version = "VQX companion firmware 1.0 (simulated)\r\nVQX_OK\r\n";
    const std::string hi = "hi\r\nVQX_OK\r\n";
    const struct {
        const char* fault;
        std::string answer; ///< to: print hi, print hi, version
    } cases[] = {
        {"error,text=Bad, luck,at=2", hi + "VQX_ERROR Bad, luck\r\n" + version},
        {"error,command=version,status=VQX_FATAL,text=", hi + hi + "VQX_FATAL \r\n"},
        {"drop,at=3", hi + hi},
        {"cut,command=print,bytes=1", "hh" + version},
        {"noend,at=1", "hi\r\nVQX_OK" + hi + version},
        {"ends,with=CR", "hi\rVQX_OK\rhi\rVQX_OK\rVQX companion firmware 1.0 (simulated)\rVQX_OK\r"},
        {"ends,with=NUL,at=1", std::string("hi\0VQX_OK\0", 10) + hi + version},
        {"flood,at=1", "hi\r\n\r\nVQX_OK\r\n" + hi + version},
    };
    for (const auto& c : cases) {
        SimSession session({c.fault});
        EXPECT_EQ(session.say("=print hi\r=print hi\r=version\r"), c.answer) << c.fault;
    }
    SimSession noisy({"noise,bytes=5", "noise,bytes=3,lines=0"});
    const std::string noise = noisy.line("print hi");
    EXPECT_EQ(noise.size(), 3 + 5 + 2 + hi.size());
    EXPECT_TRUE(noise.ends_with("\r\n" + hi));
    SimSession flooded({"flood,bytes=endless,lines=0", "delay,ms=1.5", "split,us=20", "hang,s=2"});
    flooded.line("print hi");
    EXPECT_EQ(flooded.last.exchange.floodBytes, UINT64_MAX);
    EXPECT_GE(flooded.last.exchange.floodText.size(), 0x1000U);
    EXPECT_EQ(flooded.last.exchange.floodText.find_first_not_of('f'), std::string::npos);
    EXPECT_EQ(flooded.last.exchange.delay, microseconds(1500));
    EXPECT_EQ(flooded.last.exchange.bytePause, microseconds(20));
    EXPECT_EQ(flooded.last.exchange.hang, seconds(2));
}

TEST(SimFaults, MeetInTheOrderGiven) {
    const std::string hi = "hi\r\nVQX_OK\r\n";
    const struct {
        std::vector<const char*> faults;
        std::string answer;    ///< to: print hi, print hi
        std::int64_t occurred; ///< how many of the faults
    } cases[] = {
        {{"flood,at=1", "drop,at=1"}, hi, 2},
        {{"drop,at=1", "flood,at=1,bytes=4"}, "\r\n" + hi, 2},
        {{"flood,at=1", "cut,at=1,bytes=2"}, "hi" + hi, 2},
        {{"drop", "delay", "split", "cut", "noend", "ends"}, "", 1},
        {{"error,at=1,text=a", "error,at=1,text=b"}, "VQX_ERROR a\r\nVQX_ERROR b\r\n", 2},
        {{"unplug,at=1", "drop,at=1"}, hi, 2},
        {{"flood,bytes=4", "ignored"}, "hi\r\n\r\n" + ok + "hi\r\n\r\n" + ok, 1},
        {{"cut,bytes=12"}, hi + hi, 0},
    };
    for (const auto& c : cases) {
        SimSession session;
        for (const char* text : c.faults)
            EXPECT_EQ(readFault(text, session.target.faults.emplace_back()), std::nullopt) << text;
        EXPECT_EQ(session.say("=print hi\r=print hi\r"), c.answer) << c.faults[0];
        const auto occurred = std::count_if(session.target.faults.begin(), session.target.faults.end(),
                                            [](const Fault& fault) { return fault.occurred > 0; });
        EXPECT_EQ(occurred, c.occurred) << c.faults[0];
    }
}

TEST(SimFaults, ErrorsKeepTheCommandFromRunning) {
    SimSession session({"error,command=databurst,count=1", "error,command=programPage"});
    EXPECT_EQ(session.lines({"databurst 4 0 0", "print 1"}), "VQX_ERROR Injected error\r\n1\r\n" + ok);
    session.program(std::string(0x200, '\0'), "10000000 1");
    EXPECT_EQ(session.line("blankCheck 10000000"), ok);
}

TEST(SimFaults, HitBurstsOnTheirWay) {
    const std::string bytes = "abcdefgh"; // its words sum to 0xcccac8c6
    const std::string good = burst(bytes);
    const std::string next = "=print 1\r";
    SimSession flip({"flip,at=2,offset=7,bit=0"});
    EXPECT_EQ(flip.say(good), ok + "VQX_ERROR Burst checksum is 0xcdcac8c6, not 0xcccac8c6\r\n");
    EXPECT_EQ(flip.say(good), ok + ok) << "at=N strikes once";
    SimSession lose({"lose,offset=0"});
    EXPECT_EQ(lose.say(good), ok);
    EXPECT_EQ(takeSilence(lose.target).exchange.answer, "VQX_ERROR Burst given up after 7 of 8 bytes\r\n");
    SimSession twice({"double,offset=7"});
    EXPECT_EQ(twice.say(good + next), ok + ok + "VQX_ERROR Unknown command h=print\r\n");
    SimSession behind({"flip,offset=8", "lose,offset=0x1000000000000"});
    EXPECT_EQ(behind.say(good), ok + ok) << "the burst has no such byte";
    EXPECT_EQ(behind.target.faults[0].occurred + behind.target.faults[1].occurred, 0U);
    SimSession broken({"flip,offset=3"});
    broken.say(good.substr(0, good.size() - 6));
    EXPECT_EQ(takeSilence(broken.target).exchange.answer, "VQX_ERROR Burst given up after 2 of 8 bytes\r\n");
    EXPECT_EQ(broken.target.faults[0].occurred, 0U) << "the byte never came";
    SimSession random({"flip"});
    for (int i = 0; i < 20; ++i)
        EXPECT_NE(random.say(good), ok + ok);
}

TEST(SimFaults, KeepBitsOfFlashCells) {
    const std::string zeros(0x200, '\0');
    SimSession seen({"stuckprogram,addr=0x10000005,bit=3", "stuckerase,command=eraseFlash,count=1"});
    EXPECT_EQ(seen.program(zeros, "10000000 1"), ok + ok + "VQX_ERROR Program failed at 0x10000005\r\n");
    EXPECT_EQ(seen.line("dump 10000004 3"), "10000004: 00 08 00\r\n" + ok);
    EXPECT_EQ(seen.line("eraseFlash 10000000").substr(0, 29), "VQX_ERROR Erase failed at 0x1");
    EXPECT_NE(seen.line("blankCheck 10000000"), ok);
    EXPECT_EQ(seen.lines({"eraseFlash 10000000", "blankCheck 10000000"}), ok + ok);
    SimSession second({"stuckprogram,addr=0x10000207,bit=0"});
    EXPECT_EQ(second.program(zeros + zeros, "10000000 2"),
              ok + ok + "VQX_ERROR Program failed at 0x10000207\r\n");
    EXPECT_EQ(second.line("dump 100001ff 9"), "100001ff: 00 00 00 00 00 00 00 00 01\r\n" + ok);
    std::string single(0x200, '\xFF');
    single[0x123] = '\xFE';
    EXPECT_EQ(SimSession({"stuckprogram"}).program(single, "10000000 1"),
              ok + ok + "VQX_ERROR Program failed at 0x10000123\r\n")
        << "the only cell that changes";
    SimSession above({"stuckerase,addr=0x10000205"});
    above.program(zeros + zeros, "10000000 2");
    EXPECT_EQ(above.line("eraseFlash 10000206"), ok) << "the cell lies below";
    EXPECT_EQ(above.line("eraseFlash 10000200"), "VQX_ERROR Erase failed at 0x10000205\r\n");
    SimSession unseen({"stuckprogram,silent=1", "stuckerase,silent=1"});
    EXPECT_EQ(unseen.program(zeros, "10000000 1"), ok + ok + ok);
    EXPECT_NE(unseen.line("verifyPage 10000000 1"), ok);
    EXPECT_EQ(unseen.line("eraseFlash 10000000"), ok);
    EXPECT_NE(unseen.line("blankCheck 10000000"), ok);
}

TEST(SimFaults, UnplugAtAByteOrAnExchange) {
    SimSession byte({"unplug,byte=12,replug=0.5"});
    EXPECT_EQ(byte.say("=print 1\r"), "1\r\n" + ok);
    EXPECT_FALSE(byte.last.exchange.unplug);
    std::optional<Outcome> outcome;
    EXPECT_EQ(takeBytes(byte.target, "=version\r", outcome), 3U) << "the bytes behind it never arrive";
    ASSERT_TRUE(outcome && outcome->exchange.unplug);
    EXPECT_EQ(outcome->exchange.replug, milliseconds(500));
    SimSession exchange({"unplug,at=2"});
    exchange.say("=print 1\r=print 1\r");
    EXPECT_TRUE(exchange.last.exchange.unplug);
}

TEST(SimFaults, RepeatThemselvesFromTheSeed) {
    const auto run = [](unsigned seed) {
        SimSession session({"error,chance=30", "noise,chance=20"});
        session.target.random.seed(seed);
        std::string answers;
        for (int i = 0; i < 50; ++i)
            answers += session.line("print 1");
        return answers;
    };
    std::size_t errors = 0;
    const std::string once = run(1);
    for (std::size_t at = 0; (at = once.find("Injected", at)) != std::string::npos; ++at)
        ++errors;
    EXPECT_NEAR(static_cast<double>(errors), 15, 8);
    EXPECT_EQ(run(1), once);
    EXPECT_NE(run(1), run(2));
}

TEST(SimOptions, RefuseNonsense) {
    const struct {
        std::vector<const char*> words;
        const char* message; ///< empty: accepted
    } cases[] = {
        {{"--region", "A,base=0x10,size=1M,page=0,buffer=4K,blank=0"}, ""},
        {{"--fault", "flood,bytes=endless,lines=0,chance=0.5,count=2", "--", "x", "--bad"}, ""},
        {{"--bad"}, "bad option '--bad'"},
        {{"--region", "A,sise=1"},
         "option --region: unknown memory setting 'sise=1' (base, size, page, buffer and blank exist)"},
        {{"--region", "A,size=0x1000000000"},
         "option --region: bad number in memory setting 'size=0x1000000000'"},
        {{"--region", "A,base=0xFFFFFFFFF"},
         "memory 'A' ends at 0x100007ffff: the last usable address is 0xfffffffe"},
        {{"--latency", "1000000001"}, "option --latency: '1000000001' is not a number from 0 to 1000000000"},
        {{"--fault", "noise,bytes=0x1000000", "--fault", "flood,bytes=0x10000000000", "--fault",
          "hang,s=1000000,chance=0.0001", "--fault", "flip,bit=7,chance=100"},
         ""},
        {{"--region", ",size=1K"}, "a memory has an empty name"},
        {{"--region", "0x1f"}, "memory name '0x1f' reads as a number"},
        {{"--region", "A", "--region", "a,base=1M"}, "two memories are named 'A'"},
        {{"--accept", "a b"}, "option --accept: 'a b' is not a command word"},
        {{"--accept", "print"}, "option --accept: the firmware has the command 'print'"},
        {{"--like", "board", "--no-flash"}, "--like excludes --region and --no-flash"},
        {{"--no-flash", "--region", "A"}, "--no-flash and --region exclude each other"},
        {{"--fault", "nonsense,at=1"}, "option --fault: unknown fault 'nonsense'"},
        {{"--fault", "drop,text=no"}, "option --fault: fault drop has no setting 'text'"},
        {{"--fault", "drop,at=1,9"}, "option --fault: fault drop has no setting '9'"},
        {{"--fault", "unplug,replug=1"}, "a device that is plugged in again needs --link"},
        {{"--fault", "flip,command=burst", "--fault", "stuckerase,command=eraseFlash,addr=0x14000000"}, ""},
        {{"--fault", "error,command=unlock", "--accept", "unlock"}, ""},
        {{"--fault", "noise,bytes=0"}, ""},
        {{"--null"}, "bad option '--null'"},
        {{"--seed=3", "--lin=x"}, "bad option '--lin=x'"},
        {{"--memory", "x", "--null-memory"}, "--memory and --null-memory exclude each other"},
        {{"--fault", "unplug,byte=5,at=1"},
         "option --fault: 'byte' cannot be combined with at, count, chance or command"},
        {{"--fault", "stuckerase", "--null-memory"},
         "fault 'stuckerase' can never occur: there is no memory"},
        {{"--fault", "stuckerase", "--no-flash"},
         "fault 'stuckerase' can never occur: no memory has this address"},
        {{"--fault", "error,text=a, b=c,sta=d"}, "option --fault: fault error has no setting 'sta'"},
        {{"--region", "A,base=0xFFFFF000,size=0xFFF"}, ""},
        {{"--region", "A,base=0xFFFFF000,size=0x1000"},
         "memory 'A' ends at 0x100000000: the last usable address is 0xfffffffe"},
        {{"--region", "B,base=0x1000,size=0", "--region", "A,size=0x1001", "--region",
          "C,base=0x1001,size=1"},
         ""},
        {{"--region", "B,base=0x1000", "--region", "A,size=0x1001"}, "memories 'A' and 'B' overlap"},
    };
    for (const auto& c : cases) {
        std::vector<char*> words{const_cast<char*>("vqxsim")};
        for (const char* word : c.words)
            words.push_back(const_cast<char*>(word));
        words.push_back(nullptr);
        Options options;
        const ErrorText error = readOptions(static_cast<int>(words.size()) - 1, words.data(), options);
        EXPECT_EQ(error.value_or(""), c.message) << c.words.back();
    }
}

TEST(SimOptions, RefuseFaultsThatCannotOccur) {
    const char* const badValues[][3] = {
        {"drop,chance=100.0001", "chance=100.0001", "a percentage from 0.0001 to 100"},
        {"drop,at=0", "at=0", "a number above 0"},
        {"delay,ms=nan", "ms=nan", "a time of at most 1000000 s"},
        {"flip,command=programPage", "command=programPage", "the command at which the fault can occur"},
        {"ignored,times=0", "times=0", "a number from 1 to 1000000"},
        {"ignored,line=full", "line=full", "empty, repeat or zero"},
        {"drop,chance=0", "chance=0", "a percentage from 0.0001 to 100"},
        {"noise,bytes=0x1000001", "bytes=0x1000001",
         "a number of at most 16 Mi; for a flood of at most 2^40, or endless"},
        {"flood,bytes=0x10000000001", "bytes=0x10000000001",
         "a number of at most 16 Mi; for a flood of at most 2^40, or endless"},
        {"hang,s=1000000.000001", "s=1000000.000001", "a time of at most 1000000 s"},
        {"ends,with=X", "with=X", "CR, LF, CRLF or NUL"},
        {"noise,lines=2", "lines=2", "0 or 1"},
    };
    for (const auto& [given, setting, takes] : badValues) {
        Fault fault;
        EXPECT_EQ(readFault(given, fault), formatText("bad value in '%s': it takes %s", setting, takes));
    }
    const char* const impossible[][2] = {
        {"error,command=programpage", "the firmware has no such command"},
        {"hang,s=0", "its time is 0"},
        {"flood,bytes=0", "it has no bytes"},
        {"noise,bytes=0,lines=0", "it has no bytes"},
        {"ends,with=CRLF", "lines end with CRLF already"},
        {"stuckprogram,addr=0x14400000", "no memory has this address"},
    };
    FirmwareConfig config;
    config.regions = {flashRegion};
    for (const auto& [given, why] : impossible) {
        Fault fault;
        ASSERT_EQ(readFault(given, fault), std::nullopt) << given;
        EXPECT_EQ(checkFault(fault, config), formatText("fault '%s' can never occur: %s", given, why));
    }
}

TEST(SimLink, TakesTheTimeThatTheOptionsSay) {
    const char* words[] = {"vqxsim",  "--erase-time", "200",   "--program-time", "20000",         "--rate",
                           "1000000", "--latency",    "40000", "--region",       "FLASH,size=4K", nullptr};
    Options options;
    ASSERT_EQ(readOptions(11, const_cast<char**>(words), options), std::nullopt);
    SimSession session;
    ASSERT_EQ(startFirmware(session.target.firmware, options.service.firmware), std::nullopt);
    session.target.firmware.batchMode = true;
    EXPECT_EQ((session.line("programPage 0 3"), session.last.busy), milliseconds(60));
    EXPECT_EQ((session.line("eraseFlash 0"), session.last.busy), milliseconds(200));
    Link link;
    link.speed = options.service.speed;
    TimePoint now = TimePoint() + seconds(100);
    for (int i = 0; i < 2; ++i) {
        const TimePoint arrived = carryBytes(link, now, 30000);
        EXPECT_EQ(arrived - now, milliseconds(30));
        queueAnswer(link, session.last, arrived);
        const TimePoint due = arrived + milliseconds(200 + 40) + microseconds(8);
        EXPECT_EQ(nextDue(link), due);
        EXPECT_TRUE(dueBytes(link, due - microseconds(1)).empty());
        queueAnswer(link, session.last, arrived);
        EXPECT_EQ(dueBytes(link, due), ok);
        ASSERT_TRUE(recordSent(link, ok.size()));
        EXPECT_EQ(nextDue(link), due + milliseconds(200)) << "answers come one after the other";
        ASSERT_TRUE(recordSent(link, ok.size()));
        now = due + seconds(1);
    }
}

TEST(SimLink, SpacesBytesAndRepeatsFloods) {
    Link link;
    const TimePoint now = TimePoint() + seconds(1);
    Outcome outcome;
    outcome.busy = milliseconds(5);
    outcome.exchange.answer = "ab";
    outcome.exchange.bytePause = milliseconds(2);
    outcome.exchange.floodText = "xyz";
    outcome.exchange.floodBytes = 7;
    outcome.exchange.answerAfterFlood = "!";
    queueAnswer(link, outcome, now);
    std::string got;
    TimePoint last = now;
    while (const auto due = nextDue(link)) {
        last = std::max(last, *due);
        const std::string_view bytes = dueBytes(link, last);
        got += bytes.front();
        static_cast<void>(recordSent(link, 1));
    }
    EXPECT_EQ(got, "abxyzxyzx!");
    EXPECT_EQ(last - now, milliseconds(7));
}

} // namespace
