#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <termios.h>
#include <vector>

#include <gtest/gtest.h>

/// What a scripted target sends back for one command, and how.
struct Answer {
    enum class Style {
        atOnce,
        byteByByte, ///< with a pause of several line-reader polls after every byte
        hangUp,     ///< the device vanishes after the text
        deaf,       ///< the target reads nothing any more after the text
    };

    std::string text;
    Style style = Style::atOnce;
    int delayms = 0;

    Answer(const char* t) : text(t) {}
    Answer(std::string t, Style s = Style::atOnce, int ms = 0) : text(std::move(t)), style(s), delayms(ms) {}
};

/// How a target talks; a test changes it before a run.
struct Manners {
    /// Answers by command line (without trailing blanks), else by its first word. Text sent with "@" has the
    /// key "@text", a bare CR the key "\r".
    std::map<std::string, Answer> answers;
    /// Asked before the table with the line as received (without "=" and CR); no result leaves it to the
    /// table.
    std::function<std::optional<Answer>(const std::string& line)> on;
    /// The answer to the Nth attempt (from 1) to gain control, which lasts until the first other command
    /// line.
    std::function<Answer(int attempt, const std::string& token)> onHandshake;
    /// Sent over and over from the start until the first command arrives.
    std::string babble;
};

/// A target on a pseudo-terminal, served by a thread of the test. It lets the tool gain control, answers
/// every command line and bare CR with "VQX_OK", and takes the bytes of bursts. Its manners count from the
/// next run on.
class Board : public Manners {
public:
    Board();
    ~Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    /// Path of the device.
    [[nodiscard]] const std::string& port() const { return port_; }
    /// The command lines of the last run since control was gained, without "=" and CR, each followed by "|";
    /// an opening "batchmode 1" is left out.
    [[nodiscard]] std::string conversation();
    /// Every byte received in the last run.
    [[nodiscard]] std::string bytes();
    /// The raw bytes of each burst of the last run.
    [[nodiscard]] std::vector<std::string> bursts();
    /// The settings of the port as they are now, and new ones for it.
    [[nodiscard]] termios settings() const;
    void setSettings(const termios& settings);
    /// Gets ready for a run, and waits until all that a run has sent is taken in; called by the fixture.
    void begin();
    void settle();

private:
    struct Thread;
    std::string port_;
    std::unique_ptr<Thread> thread_;
};

/// What one run left behind.
struct Result {
    int status = -1; ///< exit status, 128 + signal as a shell shows it
    std::string out;
    std::string err;
    double seconds = 0;
};

/// A test runs the real programs in a folder of its own, as one would type it.
class Secapp : public testing::Test {
protected:
    Secapp();
    ~Secapp() override;

    /// Runs a shell command with `secapp` and `vqxsim` on the path and $PORT naming the board. A run of more
    /// than `limit` seconds is killed and fails the test.
    Result run(const std::string& shellCommand, const std::string& input = "", int limit = 30);
    /// Runs `script` as the file "script" against the board.
    Result runScript(const std::string& script, const std::string& options = "",
                     const std::string& input = "");

    void write(const std::string& name, const std::string& content) const;
    [[nodiscard]] std::string read(const std::string& name) const;

    Board board;
    std::filesystem::path folder;

private:
    std::filesystem::path capture_;
};

/// The report of a failed run.
std::string report(const std::string& where, const std::string& text, const std::string& command,
                   const std::string& lastTargetCommand);

/// The text with every number that has decimals replaced by "#", so that times and rates compare equal.
std::string masked(const std::string& text);

/// The text with every run of digits replaced by "#".
std::string withoutNumbers(const std::string& text);

/// The text without its empty lines and the lines of the debug trace.
std::string withoutTraces(const std::string& text);

/// `size` bytes that look random and are the same each time.
std::string image(std::size_t size);

/// Two flash regions, FLASH at 0x10000000 and BANKB at 0x10080000, each of 512 KiB in pages of 512 bytes with
/// a buffer of 32 KiB, as the target lists them.
extern const char* const twoRegions;

/// What a run wrote to standard output, as `masked` gives it. Fails the test when a number with decimals has
/// not three of them, or when a time is not between `least` and the seconds of the whole run.
std::string timed(const Result& result, double least = 0);
