// The faults of the simulated target, its options, and the times of its link.

#include "options.h"
#include "port/link.h"
#include "sim_session.h"

#include <algorithm>
#include <iterator>
#include <sstream>

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
    const struct {
        const char* fault;
        std::string start; ///< of the flood
        std::uint64_t bytes;
        milliseconds pause;
    } floods[] = {
        {"flood,bytes=endless,lines=0", "fff", UINT64_MAX, milliseconds(0)},
        {"ignored,ms=7", "\r\n", UINT64_MAX, milliseconds(7)},
        {"ignored,line=repeat,times=2", "=print\r\n", 16, milliseconds(500)},
        {"ignored,line=zero,times=3", std::string(1, '\0'), 3, milliseconds(500)},
    };
    for (const auto& c : floods) {
        SimSession session({c.fault, "split,us=20", "delay,ms=1.5", "hang,s=2"});
        EXPECT_EQ(session.line("print hi"), "hi\r\n\r\n" + ok) << c.fault;
        const Exchange& exchange = session.last.exchange;
        EXPECT_EQ(exchange.floodText.substr(0, c.start.size()), c.start) << c.fault;
        EXPECT_EQ(exchange.floodBytes, c.bytes) << c.fault;
        EXPECT_EQ(exchange.floodPause, c.pause) << c.fault;
        EXPECT_EQ(exchange.bytePause, microseconds(20));
        EXPECT_EQ(exchange.delay, microseconds(1500));
        EXPECT_EQ(exchange.hang, seconds(2));
    }
}

TEST(SimFaults, OccurInTheOrderGiven) {
    const std::string hi = "hi\r\nVQX_OK\r\n";
    const struct {
        std::initializer_list<const char*> faults;
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
        SimSession session(c.faults);
        EXPECT_EQ(session.say("=print hi\r=print hi\r"), c.answer) << *c.faults.begin();
        const auto occurred = std::count_if(session.target.faults.begin(), session.target.faults.end(),
                                            [](const Fault& fault) { return fault.occurred > 0; });
        EXPECT_EQ(occurred, c.occurred) << *c.faults.begin();
    }
}

TEST(SimFaults, ErrorsKeepTheCommandFromRunning) {
    SimSession session({"error,command=databurst,count=1", "error,command=programPage"});
    EXPECT_EQ(session.lines({"databurst 4 0 0", "print 1"}), "VQX_ERROR Injected error\r\n1\r\n" + ok);
    session.program(std::string(0x200, '\0'), "10000000 1");
    EXPECT_EQ(session.line("blankCheck 10000000"), ok);
}

TEST(SimFaults, ChangeBytesOfABurst) {
    const std::string good = burst("abcdefgh"); // its words sum to 0xcccac8c6
    const struct {
        const char* fault;
        std::string bytes;
        std::string answer; ///< including that to a silence, if the firmware waits for bytes
        unsigned occurred;
    } cases[] = {
        {"flip,at=2,offset=7,bit=0", good + good,
         ok + "VQX_ERROR Burst checksum is 0xcdcac8c6, not 0xcccac8c6\r\n" + ok + ok, 1},
        {"lose,offset=0", good, ok + "VQX_ERROR Burst given up after 7 of 8 bytes\r\n", 1},
        {"double,offset=7", good + "=print 1\r", ok + ok + "VQX_ERROR Unknown command h=print\r\n", 1},
        {"flip,offset=8", good, ok + ok, 0},
        {"lose,offset=0x1000000000000", good, ok + ok, 0},
        {"flip,offset=3", good.substr(0, good.size() - 6),
         ok + "VQX_ERROR Burst given up after 2 of 8 bytes\r\n", 0},
    };
    for (const auto& c : cases) {
        SimSession session({c.fault});
        std::string answer = session.say(c.bytes);
        if (silenceTimeout(session.target.firmware))
            answer += takeSilence(session.target).exchange.answer;
        EXPECT_EQ(answer, c.answer) << c.fault;
        EXPECT_EQ(session.target.faults[0].occurred, c.occurred) << c.fault;
    }
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

ErrorText parse(const std::string& commandLine, Options& options) {
    std::istringstream stream("vqxsim " + commandLine);
    std::vector<std::string> words{std::istream_iterator<std::string>(stream), {}};
    std::vector<char*> arguments;
    arguments.reserve(words.size() + 1);
    for (std::string& word : words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    return readOptions(static_cast<int>(words.size()), arguments.data(), options);
}

TEST(SimOptions, AreChecked) {
    for (const char* accepted :
         {"--fault flood,bytes=endless,lines=0,chance=0.5,count=2 -- x --bad",
          "--fault noise,bytes=0x1000000 --fault flood,bytes=0x10000000000",
          "--fault hang,s=1000000,chance=0.0001 --fault flip,bit=7,chance=100",
          "--fault flip,command=burst --fault stuckerase,command=eraseFlash,addr=0x14000000",
          "--fault error,command=unlock --accept unlock", "--region A,base=0xFFFFF000,size=0xFFF",
          "--region B,base=0x1000,size=0 --region A,size=0x1001 --region C,base=0x1001,size=1"}) {
        Options options;
        EXPECT_EQ(parse(accepted, options), std::nullopt) << accepted;
    }
    const char* const amount = "a number of at most 16 Mi; for a flood of at most 2^40, or endless";
    const char* const refused[][2] = {
        // options, the last part of the error
        {"--seed 12x", "option --seed: '12x' is not a number from 0 to 18446744073709551615"},
        {"--latency 1000000001", "option --latency: '1000000001' is not a number from 0 to 1000000000"},
        {"--program-time -1", "option --program-time: '-1' is not a number from 0 to 1000000000"},
        {"--null", "bad option '--null'"},
        {"--seed=3 --lin=x", "bad option '--lin=x'"},
        {"--memory x --null-memory", "--memory and --null-memory exclude each other"},
        {"--like board --no-flash", "--like excludes --region and --no-flash"},
        {"--no-flash --region A", "--no-flash and --region exclude each other"},
        {"--accept print", "option --accept: the firmware has the command 'print'"},
        {"--region A,sise=1", "setting 'sise=1' (base, size, page, buffer and blank exist)"},
        {"--region A,size=0x1000000000", "option --region: bad number in memory setting 'size=0x1000000000'"},
        {"--region A,size=K", "bad number in memory setting 'size=K'"},
        {"--region A,blank=256", "bad number in memory setting 'blank=256'"},
        {"--region ,size=1K", "a memory has an empty name"},
        {"--region 0x1f", "memory name '0x1f' reads as a number"},
        {"--region A --region a,base=1M", "two memories are named 'A'"},
        {"--region B,base=0x1000 --region A,size=0x1001", "memories 'A' and 'B' overlap"},
        {"--region A,base=0xFFFFF000,size=0x1000",
         "ends at 0x100000000: the last usable address is 0xfffffffe"},
        {"--fault nonsense,at=1", "option --fault: unknown fault 'nonsense'"},
        {"--fault drop,text=no", "option --fault: fault drop has no setting 'text'"},
        {"--fault unplug,replug=1", "a device that is plugged in again needs --link"},
        {"--fault unplug,byte=5,at=1", "'byte' cannot be combined with at, count, chance or command"},
        {"--fault drop,chance=100.0001", "in 'chance=100.0001': it takes a percentage from 0.0001 to 100"},
        {"--fault drop,chance=0", "bad value in 'chance=0': it takes a percentage from 0.0001 to 100"},
        {"--fault drop,at=0", "bad value in 'at=0': it takes a number above 0"},
        {"--fault delay,ms=nan", "bad value in 'ms=nan': it takes a time of at most 1000000 s"},
        {"--fault hang,s=1000000.000001", "it takes a time of at most 1000000 s"},
        {"--fault flip,command=programPage", "it takes the command at which the fault can occur"},
        {"--fault ignored,times=0", "it takes a number from 1 to 1000000"},
        {"--fault ignored,line=full", "it takes empty, repeat or zero"},
        {"--fault noise,bytes=0x1000001", amount},
        {"--fault flood,bytes=0x10000000001", amount},
        {"--fault ends,with=X", "it takes CR, LF, CRLF or NUL"},
        {"--fault noise,lines=2", "it takes 0 or 1"},
        {"--fault stuckerase --null-memory", "fault 'stuckerase' can never occur: there is no memory"},
        {"--fault stuckerase --no-flash", "'stuckerase' can never occur: no memory has this address"},
        {"--fault stuckprogram,addr=0x14400000", "can never occur: no memory has this address"},
        {"--fault error,command=programpage", "can never occur: the firmware has no such command"},
        {"--fault hang,s=0", "can never occur: its time is 0"},
        {"--fault flood,bytes=0", "can never occur: it has no bytes"},
        {"--fault noise,bytes=0,lines=0", "can never occur: it has no bytes"},
        {"--fault ends,with=CRLF", "can never occur: lines end with CRLF already"},
    };
    for (const auto& [given, end] : refused) {
        Options options;
        const std::string error = parse(given, options).value_or("");
        EXPECT_TRUE(error.ends_with(end)) << given << ": " << error;
    }
}

TEST(SimLink, TakesTheTimeThatTheOptionsSay) {
    const char* const words = "--erase-time 200 --program-time 20000 --rate 1000000 --latency 40000 "
                              "--region FLASH,size=4K";
    Options options;
    ASSERT_EQ(parse(words, options), std::nullopt);
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
    outcome.exchange.floodPause = milliseconds(10);
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
    EXPECT_EQ(last - now, milliseconds(5 + 3 * 10));
}

} // namespace
