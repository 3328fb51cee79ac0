#pragma once

#include <array>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <termios.h>
#include <vector>

#include <gtest/gtest.h>

/// The answer of a scripted target to one command.
struct Answer {
    std::string text;
    int delayms = 0;
    int byteDelayms = 0; ///< pause after every byte

    Answer(const char* t) : text(t) {}
    Answer(std::string t, int ms = 0, int byte = 0) : text(std::move(t)), delayms(ms), byteDelayms(byte) {}
};

/// The behaviour of a scripted target. A test changes it before a run.
struct TargetBehaviour {
    /// Answers by command line (without trailing spaces) or by its first word. Text sent with "@" has the key
    /// "@text", a bare CR the key "\r".
    std::map<std::string, Answer> answers;
    /// Called first, with the line as received (without "=" and CR). Without a result the table applies.
    std::function<std::optional<Answer>(const std::string& line)> on;
    /// The answer to the Nth test (from 1) of the handshake.
    std::function<Answer(int attempt, const std::string& token)> onHandshake;
};

/// A scripted target on a pseudo-terminal, run by a thread of the test. It answers the handshake, answers
/// every command line and bare CR with "VQX_OK", and receives bursts. A changed behaviour applies from the
/// next run.
class Board : public TargetBehaviour {
public:
    Board();
    ~Board();
    Board(const Board&) = delete;
    Board& operator=(const Board&) = delete;

    /// Path of the device.
    [[nodiscard]] const std::string& port() const { return port_; }
    /// The command lines of the last run after the handshake, without "=" and CR, each followed by "|"; an
    /// opening "batchmode 1" is left out.
    [[nodiscard]] std::string conversation();
    /// Every byte received in the last run.
    [[nodiscard]] std::string bytes();
    /// The bytes of all bursts of the last run.
    [[nodiscard]] std::string bursts();
    /// The present settings of the port.
    [[nodiscard]] termios settings() const;
    void setSettings(const termios& settings);
    /// Prepares a run; waits until everything that a run has sent is read. Called by the fixture.
    void begin();
    void waitUntilRead();

private:
    struct Thread;
    std::string port_;
    std::unique_ptr<Thread> thread_;
};

/// The result of one run.
struct Result {
    int status = -1; ///< exit status, 128 + signal as a shell shows it
    std::string out;
    std::string err;
    double seconds = 0;
};

/// A test runs the real programs in a temporary directory, with commands as a user types them.
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

/// A table of texts.
template <std::size_t columns>
using Rows = std::vector<std::array<std::string, columns>>;

/// The report of a failed run.
std::string report(const std::string& where, const std::string& text, const std::string& command,
                   const std::string& lastTargetCommand);

/// The text with every run of digits replaced by "#".
std::string withoutNumbers(const std::string& text);

/// The text without its empty lines and the lines of the debug trace.
std::string withoutTraces(const std::string& text);

/// `size` bytes that look random and are the same each time.
std::string image(std::size_t size);

/// Two flash memories, FLASH at 0x10000000 and BANKB at 0x10080000, each of 512 KiB in pages of 512 bytes
/// with a buffer of 32 KiB, as the target lists them.
extern const char* const twoRegions;

/// The standard output of a run, with "#" for each number that has decimals. Fails the test when such
/// a number has not three of them, or when a time is not between `least` and the seconds of the whole run.
std::string timed(const Result& result, double least = 0);
