#include "harness.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <mutex>
#include <poll.h>
#include <random>
#include <regex>
#include <sstream>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

const char* const twoRegions =
    "Number of Flash Devices = 2\n"
    "Name = FLASH\nBase = 0x10000000\nSize = 0x80000\nPage = 512\nBuffer = 0x8000\nBlank = 0xff\n"
    "Name = BANKB\nBase = 0x10080000\nSize = 0x80000\nPage = 512\nBuffer = 0x8000\nBlank = 0xff\n"
    "VQX_OK\n";

struct Board::Thread {
    const int master = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC | O_NONBLOCK);
    int slave = -1; // kept open: the device exists between runs
    std::atomic<bool> stop = false;
    std::mutex mutex; // guards all that follows
    TargetBehaviour behaviour;
    struct Received {
        std::string bytes, pending, lines, bursts;
        std::size_t burstLeft = 0;
        int attempts = 0;
    } received;
    std::thread worker;

    void pauseFor(int ms) const {
        for (; ms > 0 && !stop; ms -= 5)
            std::this_thread::sleep_for(std::chrono::milliseconds(std::min(ms, 5)));
    }

    void send(const Answer& answer) const {
        pauseFor(answer.delayms);
        std::string_view text = answer.text;
        while (!text.empty() && !stop) {
            const ssize_t n = ::write(master, text.data(), answer.byteDelayms > 0 ? 1 : text.size());
            text.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(n, 0)));
            pauseFor(n > 0 ? answer.byteDelayms : 1);
        }
    }

    Answer answerTo(const std::string& line) {
        if (behaviour.on)
            if (const auto answer = behaviour.on(line))
                return *answer;
        const std::string whole = line.substr(0, line.find_last_not_of(' ') + 1);
        for (const auto& key : {whole, whole.substr(0, whole.find(' '))})
            if (const auto found = behaviour.answers.find(key); found != behaviour.answers.end())
                return found->second;
        return "VQX_OK\n";
    }

    Answer handshake(const std::string& token) {
        if (behaviour.onHandshake)
            return behaviour.onHandshake(++received.attempts, token);
        return "=print " + token + "\n" + token + "\nVQX_OK\n";
    }

    Answer command(const std::string& line) {
        if (line.starts_with("print ") && line.find_first_not_of("0123456789", 6) == std::string::npos)
            return handshake(line.substr(6));
        received.lines += line + "|";
        Answer answer = answerTo(line);
        if (line.starts_with("databurst ") && answer.text.starts_with("VQX_OK"))
            received.burstLeft = std::stoul(line.substr(10), nullptr, 16);
        return answer;
    }

    // Takes one complete request from `pending`.
    std::optional<Answer> next() {
        if (received.burstLeft > 0) {
            const std::string piece = received.pending.substr(0, received.burstLeft);
            received.pending.erase(0, piece.size());
            received.bursts += piece;
            received.burstLeft -= piece.size();
            return received.burstLeft == 0 ? std::optional(answerTo("burst")) : std::nullopt;
        }
        if (received.pending.empty())
            return {};
        if (received.pending.front() == '=') {
            const std::size_t end = received.pending.find('\r');
            if (end == std::string::npos)
                return {};
            const std::string line = received.pending.substr(1, end - 1);
            received.pending.erase(0, end + 1);
            return command(line);
        }
        if (received.pending.front() == '\r') {
            received.pending.erase(0, 1);
            return answerTo("\r");
        }
        const std::string line = '@' + received.pending;
        received.pending.clear();
        received.lines += line + "|";
        return answerTo(line);
    }

    void work() {
        while (!stop) {
            pollfd waiting{master, POLLIN, 0};
            if (poll(&waiting, 1, 5) <= 0)
                continue;
            const std::lock_guard lock(mutex);
            char bytes[4096];
            const ssize_t n = ::read(master, bytes, sizeof bytes);
            if (n <= 0)
                continue;
            received.bytes.append(bytes, static_cast<std::size_t>(n));
            received.pending.append(bytes, static_cast<std::size_t>(n));
            while (const auto answer = next())
                send(*answer);
        }
    }

    // Waits until everything that a run has written is read.
    std::unique_lock<std::mutex> lockWhenRead() {
        pollfd waiting{master, POLLIN, 0};
        while (!stop && poll(&waiting, 1, 0) > 0)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        return std::unique_lock(mutex);
    }
};

Board::Board() : thread_(std::make_unique<Thread>()) {
    const int master = thread_->master;
    if (master < 0 || grantpt(master) != 0 || unlockpt(master) != 0)
        throw std::runtime_error("no pseudo-terminal");
    port_ = ptsname(master);
    thread_->slave = open(port_.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios raw = settings();
    cfmakeraw(&raw);
    setSettings(raw);
}

Board::~Board() {
    thread_->stop = true;
    if (thread_->worker.joinable())
        thread_->worker.join();
    close(thread_->master);
    close(thread_->slave);
}

std::string Board::conversation() {
    const auto lock = thread_->lockWhenRead();
    const std::string opening = "batchmode 1 |";
    return thread_->received.lines.starts_with(opening) ? thread_->received.lines.substr(opening.size())
                                                        : thread_->received.lines;
}

std::string Board::bytes() {
    const auto lock = thread_->lockWhenRead();
    return thread_->received.bytes;
}

std::string Board::bursts() {
    const auto lock = thread_->lockWhenRead();
    return thread_->received.bursts;
}

termios Board::settings() const {
    termios found{};
    tcgetattr(thread_->slave, &found);
    return found;
}

void Board::setSettings(const termios& settings) {
    tcsetattr(thread_->slave, TCSANOW, &settings);
}

void Board::begin() {
    const bool running = thread_->worker.joinable();
    const auto lock = running ? thread_->lockWhenRead() : std::unique_lock(thread_->mutex);
    thread_->behaviour = *this;
    thread_->received = {};
    if (!running)
        thread_->worker = std::thread([this] { thread_->work(); });
}

void Board::waitUntilRead() {
    const auto lock = thread_->lockWhenRead();
}

namespace {

std::filesystem::path makeFolder() {
    std::string name = (std::filesystem::temp_directory_path() / "secapp-test-XXXXXX").string();
    if (mkdtemp(name.data()) == nullptr)
        throw std::runtime_error("no temporary folder");
    return name;
}

std::string contentOf(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

} // namespace

Secapp::Secapp() : folder(makeFolder()), capture_(makeFolder()) {
    static const std::string path = SECAPP_PROGRAMS ":" + std::string(getenv("PATH"));
    setenv("PATH", path.c_str(), 1);
    setenv("PORT", board.port().c_str(), 1);
}

Secapp::~Secapp() {
    std::filesystem::remove_all(folder);
    std::filesystem::remove_all(capture_);
}

Result Secapp::run(const std::string& shellCommand, const std::string& input, int limit) {
    board.begin();
    std::ofstream(capture_ / "in", std::ios::binary) << input;
    const std::string command = "cd '" + folder.string() + "' && exec <'" + (capture_ / "in").string() +
                                "' >'" + (capture_ / "out").string() + "' 2>'" + (capture_ / "err").string() +
                                "'\n" + shellCommand;
    const auto start = std::chrono::steady_clock::now();
    const pid_t child = fork();
    if (child == 0) {
        setpgid(0, 0);
        execl("/bin/sh", "sh", "-c", command.c_str(), nullptr);
        _exit(127);
    }
    setpgid(child, child);
    const int handle = static_cast<int>(syscall(SYS_pidfd_open, child, 0));
    pollfd ended{handle, POLLIN, 0};
    if (poll(&ended, 1, limit * 1000) != 1) {
        ADD_FAILURE() << "still running after " << limit << " s: " << shellCommand;
        kill(-child, SIGKILL);
    }
    close(handle);
    int status = 0;
    waitpid(child, &status, 0);

    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    board.waitUntilRead();
    return {.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status),
            .out = contentOf(capture_ / "out"),
            .err = contentOf(capture_ / "err"),
            .seconds = elapsed.count()};
}

Result Secapp::runScript(const std::string& script, const std::string& options, const std::string& input) {
    write("script", script);
    return run("exec secapp -d $PORT " + options + " -s script", input);
}

void Secapp::write(const std::string& name, const std::string& content) const {
    std::ofstream(folder / name, std::ios::binary) << content;
}

std::string Secapp::read(const std::string& name) const {
    return contentOf(folder / name);
}

std::string report(const std::string& where, const std::string& text, const std::string& command,
                   const std::string& lastTargetCommand) {
    return "Error: " + where + ": " + text + "\n   Script cmd:      " + command +
           "\n   Last target cmd: " + lastTargetCommand + "\nTerminated with errors\n";
}

std::string withoutNumbers(const std::string& text) {
    static const std::regex numbers("[0-9]+");
    return std::regex_replace(text, numbers, "#");
}

std::string withoutTraces(const std::string& text) {
    std::istringstream in(text);
    std::string kept;
    for (std::string line; std::getline(in, line);)
        if (!line.empty() && !line.starts_with("DEBUG: "))
            kept += line + "\n";
    return kept;
}

std::string image(std::size_t size) {
    std::mt19937 random(static_cast<unsigned>(size));
    std::string bytes(size, '\0');
    for (char& byte : bytes)
        byte = static_cast<char>(random());
    return bytes;
}

std::string timed(const Result& result, double least) {
    static const std::regex number("([0-9]+[.]([0-9]*))(s?)");
    static const std::regex numbers("[0-9]+[.][0-9]*");
    for (std::sregex_iterator at(result.out.begin(), result.out.end(), number), end; at != end; ++at) {
        EXPECT_EQ(at->length(2), 3) << result.out;
        if (at->length(3) == 0)
            continue;
        const double seconds = std::stod(at->str(1));
        EXPECT_TRUE(seconds >= least && seconds <= result.seconds + 0.001) << at->str() << " in\n"
                                                                           << result.out;
    }
    return std::regex_replace(result.out, numbers, "#");
}
