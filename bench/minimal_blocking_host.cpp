// The minimal blocking host, with which secapp is compared: it sends the same bytes, waits for each answer in
// a blocking read and checks only the status line.
//
//     minimal_blocking_host DEVICE commands SCRIPT             sends each line of SCRIPT unchanged
//     minimal_blocking_host DEVICE program IMAGE ADDRESS BUFFER PAGE FILL    numbers in hexadecimal
//
// Prints "EXCHANGES BYTES-SENT BYTES-RECEIVED".
#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <fstream>
#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <termios.h>
#include <unistd.h>
#include <vector>

namespace {

struct Host {
    int port;
    std::size_t exchanges;
    std::size_t sent;
    std::size_t received;
};

[[noreturn]] void fail(const char* what) {
    std::perror(what);
    std::exit(1);
}

int openPort(const char* path) {
    const int port = open(path, O_RDWR | O_NOCTTY);
    if (port < 0)
        fail(path);
    termios settings{};
    settings.c_iflag = BRKINT | IGNPAR | ICRNL;
    settings.c_cflag = B38400 | CS8 | CREAD | CLOCAL | CRTSCTS;
    settings.c_cc[VEOF] = 4;
    settings.c_cc[VMIN] = 1;
    if (tcflush(port, TCIFLUSH) != 0 || tcsetattr(port, TCSANOW, &settings) != 0)
        fail(path);
    return port;
}

void send(Host& host, std::span<const char> bytes) {
    host.sent += bytes.size();
    while (!bytes.empty()) {
        const ssize_t written = write(host.port, bytes.data(), bytes.size());
        if (written < 0)
            fail("write");
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
}

/// Reads up to the status line; an error status ends the program.
void awaitStatus(Host& host) {
    constexpr std::string_view status = "\nVQX_";
    std::array<char, 4096> bytes{};
    std::string answer = "\n";
    for (;;) {
        const ssize_t got = read(host.port, bytes.data(), bytes.size());
        if (got <= 0)
            fail("read");
        host.received += static_cast<std::size_t>(got);
        const std::size_t from = answer.size() - std::min(answer.size(), status.size());
        answer.append(bytes.data(), static_cast<std::size_t>(got));
        const std::size_t at = answer.find(status, from);
        if (at == std::string::npos || answer.find('\n', at + status.size()) == std::string::npos)
            continue;
        ++host.exchanges;
        if (answer.compare(at + status.size(), 2, "OK") == 0)
            return;
        std::fprintf(stderr, "%s", answer.c_str() + at);
        std::exit(1);
    }
}

void exchange(Host& host, std::string_view command) {
    std::string line = "=";
    line.append(command) += '\r';
    send(host, line);
    awaitStatus(host);
}

void exchangeNumbers(Host& host, std::string line, std::initializer_list<std::uint32_t> numbers) {
    for (const std::uint32_t number : numbers) {
        std::array<char, 8> digits{};
        line += ' ';
        line.append(digits.data(), std::to_chars(digits.begin(), digits.end(), number, 16).ptr);
    }
    exchange(host, line);
}

std::uint32_t checksum(std::span<const char> data) {
    std::uint32_t sum = 0;
    for (; !data.empty(); data = data.subspan(std::min<std::size_t>(data.size(), 4))) {
        std::uint32_t word = 0xFFFFFFFF;
        std::memcpy(&word, data.data(), std::min<std::size_t>(data.size(), 4));
        sum += word;
    }
    return sum;
}

void programImage(Host& host, std::ifstream& image, std::uint32_t address, std::uint32_t buffer,
                  std::uint32_t page, std::uint32_t fill) {
    exchange(host, "queryFlash");
    exchangeNumbers(host, "dataSet", {buffer / 4, fill});
    std::vector<char> chunk(buffer);
    for (;;) {
        image.read(chunk.data(), static_cast<std::streamsize>(chunk.size()));
        const auto length = static_cast<std::uint32_t>(image.gcount());
        if (length == 0)
            return;
        const auto data = std::span(chunk).first(length);
        exchangeNumbers(host, "databurst", {length, 0, checksum(data)});
        send(host, data);
        awaitStatus(host);
        exchangeNumbers(host, "programPage", {address, (length + page - 1) / page});
        exchangeNumbers(host, "dataSet", {buffer / 4, fill});
        address += length;
    }
}

std::uint32_t hexadecimal(const char* text) {
    return static_cast<std::uint32_t>(std::strtoul(text, nullptr, 16));
}

} // namespace

int main(int argc, char** argv) {
    const std::string_view mode = argc > 3 ? argv[2] : "";
    if (!(mode == "commands" && argc == 4) && !(mode == "program" && argc == 8)) {
        std::fputs("Usage: minimal_blocking_host DEVICE commands SCRIPT\n"
                   "       minimal_blocking_host DEVICE program IMAGE ADDRESS BUFFER PAGE FILL\n",
                   stderr);
        return 2;
    }
    std::ifstream file(argv[3], std::ios::binary);
    if (!file)
        fail(argv[3]);
    Host host{.port = openPort(argv[1]), .exchanges = 0, .sent = 0, .received = 0};
    exchange(host, "print 1234567890");
    exchange(host, "batchmode 1");
    if (mode == "program") {
        programImage(host, file, hexadecimal(argv[4]), hexadecimal(argv[5]), hexadecimal(argv[6]),
                     hexadecimal(argv[7]));
    } else {
        for (std::string line; std::getline(file, line);)
            exchange(host, line);
    }
    std::printf("%zu %zu %zu\n", host.exchanges, host.sent, host.received);
}
