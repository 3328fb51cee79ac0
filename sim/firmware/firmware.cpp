#include "firmware/firmware.h"

#include "file.h"
#include "firmware/commands.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>

namespace vqxsim {

namespace {

constexpr std::uint64_t smallestBuffer = 0x8000;

/// Largest size of the file of the persistent state, in bytes.
constexpr std::size_t persistentLimit = 4096;

/// Bytes allocated at the start of a burst; a longer one grows as it arrives.
constexpr std::uint64_t burstReserve = 1U << 20;

bool isRawText(const Firmware& firmware) {
    const std::string_view text = trimmed(firmware.line);
    return !text.empty() && text.front() != '=';
}

void appendToLine(Firmware& firmware, std::string_view text) {
    const std::size_t space = lineLimit + 1 - firmware.line.size();
    firmware.line.append(text.substr(0, space));
}

Request takeLine(Firmware& firmware) {
    Request request;
    request.kind = firmware.line.size() > lineLimit ? RequestKind::longLine : RequestKind::line;
    std::string_view text = trimmed(firmware.line);
    if (text.starts_with('='))
        text = trimmed(text.substr(1));
    request.text = text;
    firmware.line.clear();
    return request;
}

std::size_t collectBurst(Firmware& firmware, std::string_view bytes, std::optional<Request>& request) {
    Burst& burst = *firmware.burst;
    const auto taken =
        static_cast<std::size_t>(std::min<std::uint64_t>(burst.length - burst.bytes.size(), bytes.size()));
    if (burst.bytes.empty())
        burst.bytes.reserve(static_cast<std::size_t>(std::min(burst.length, burstReserve)));
    burst.bytes.append(bytes.substr(0, taken));
    if (burst.bytes.size() == burst.length) {
        request.emplace();
        request->kind = RequestKind::burst;
        request->text = std::move(burst.bytes);
        request->header = {burst.length, burst.offset, burst.checksum, {}};
        firmware.burst.reset();
    }
    return taken;
}

ErrorText storeBurst(Firmware& firmware, const Request& request) {
    const std::uint32_t found = burstChecksum(request.text);
    if (found != request.header.checksum)
        return formatText("Burst checksum is 0x%x, not 0x%x", found, request.header.checksum);
    if (!firmware.flash.nullMemory) {
        const auto target = writableBytes(firmware.buffer, request.header.offset, request.text.size());
        std::memcpy(target.data(), request.text.data(), target.size());
    }
    return std::nullopt;
}

ErrorText carryOut(Firmware& firmware, const Request& request, Answer& answer) {
    switch (request.kind) {
    case RequestKind::line:
        if (request.text.empty())
            return std::nullopt;
        if (!firmware.batchMode)
            answer.text = "=" + request.text + "\r\n";
        return runCommand(firmware, request.text, answer);
    case RequestKind::burst:
        return storeBurst(firmware, request);
    case RequestKind::longLine:
        return formatText("Line of more than %zu characters", lineLimit);
    case RequestKind::brokenBurst:
        break;
    }
    return formatText("Burst given up after %zu of %llu bytes", request.text.size(),
                      shown(request.header.length));
}

/// The file of the persistent state; it contains the commands that set it.
std::string persistentPath(const Firmware& firmware) {
    return firmware.flash.directory + "/board.txt";
}

ErrorText readPersistent(Firmware& firmware) {
    const std::string path = persistentPath(firmware);
    std::string text;
    if (ErrorText error = readFile(path, persistentLimit, text))
        return errno == ENOENT ? std::nullopt : error;
    for (std::istringstream lines(text); std::getline(lines, text);) {
        const std::string_view word = std::string_view(text).substr(0, text.find(' '));
        Answer answer;
        ErrorText error = "neither bootBank nor otp_ProgUSBID";
        if (word == "bootBank" || word == "otp_ProgUSBID")
            error = runCommand(firmware, text, answer);
        if (error)
            return path + ": " + printable(text, 64) + ": " + *error;
    }
    return std::nullopt;
}

ErrorText writePersistent(const Firmware& firmware) {
    const std::string path = persistentPath(firmware);
    const std::string fresh = path + ".new";
    std::ofstream file(fresh);
    file << formatText("bootBank %u\n", firmware.persistent.bootBank);
    if (const auto& identity = firmware.persistent.usbIdentity)
        file << formatText("otp_ProgUSBID %04x %04x\n", identity->product, identity->vendor);
    file.close();
    return file && std::rename(fresh.c_str(), path.c_str()) == 0 ? std::nullopt : systemError(path);
}

/// The word that the first four bytes make.
std::uint32_t littleEndian(std::string_view bytes) {
    const auto byte = [=](std::size_t at) -> std::uint32_t { return static_cast<unsigned char>(bytes[at]); };
    return byte(0) | byte(1) << 8 | byte(2) << 16 | byte(3) << 24;
}

} // namespace

ErrorText startFirmware(Firmware& firmware, const FirmwareConfig& config) {
    firmware = Firmware{};
    firmware.flash.directory = config.directory;
    firmware.flash.nullMemory = config.nullMemory;
    firmware.accepted = config.accepted;
    firmware.programTime = config.programTime;
    firmware.eraseTime = config.eraseTime;
    std::uint64_t bufferSize = smallestBuffer;
    for (const RegionSpec& spec : config.regions) {
        firmware.flash.regions.push_back({spec, std::nullopt});
        bufferSize = std::max(bufferSize, spec.buffer);
    }
    if (!config.directory.empty()) {
        ErrorText error = openDirectory(firmware.flash);
        if (!error)
            error = readPersistent(firmware);
        if (error)
            return error;
    }
    return openMemory(firmware.buffer, bufferSize, 0, "");
}

void restartFirmware(Firmware& firmware) {
    const bool kept = fillMemory(firmware.buffer, 0, firmware.buffer.size, 0);
    static_cast<void>(kept); // the buffer is in no file, so this cannot fail
    firmware.batchMode = false;
    firmware.debugOptions = 7;
    firmware.line.clear();
    firmware.afterReturn = false;
    firmware.burst.reset();
}

std::size_t collectRequest(Firmware& firmware, std::string_view bytes, std::optional<Request>& request) {
    if (firmware.burst)
        return collectBurst(firmware, bytes, request);
    const bool restOfLineEnd = firmware.afterReturn && bytes.front() == '\n';
    firmware.afterReturn = false;
    if (restOfLineEnd)
        return 1;
    const std::size_t end = bytes.find_first_of("\r\n");
    appendToLine(firmware, bytes.substr(0, end));
    if (end == std::string_view::npos)
        return bytes.size();
    firmware.afterReturn = bytes[end] == '\r';
    request = takeLine(firmware);
    return end + 1;
}

std::optional<Duration> silenceTimeout(const Firmware& firmware) {
    if (firmware.burst)
        return burstTimeout;
    return isRawText(firmware) ? std::optional(rawTextTimeout) : std::nullopt;
}

Request requestAfterSilence(Firmware& firmware) {
    if (!firmware.burst)
        return takeLine(firmware);
    Request request;
    request.kind = RequestKind::brokenBurst;
    request.text = std::move(firmware.burst->bytes);
    request.header = {firmware.burst->length, firmware.burst->offset, firmware.burst->checksum, {}};
    firmware.burst.reset();
    return request;
}

Answer execute(Firmware& firmware, const Request& request) {
    Answer answer;
    const PersistentState before = firmware.persistent;
    ErrorText error = carryOut(firmware, request, answer);
    if (firmware.persistent != before && !firmware.flash.directory.empty())
        error = writePersistent(firmware);
    if (error)
        firmware.persistent = before;
    answer.text += error ? "VQX_ERROR " + *error + "\r\n" : "VQX_OK\r\n";
    return answer;
}

std::string exchangeBytes(Firmware& firmware, std::string_view bytes) {
    std::string answers;
    while (!bytes.empty()) {
        std::optional<Request> request;
        bytes.remove_prefix(collectRequest(firmware, bytes, request));
        if (request)
            answers += execute(firmware, *request).text;
    }
    return answers;
}

std::string_view requestWord(const Request& request) {
    if (request.kind == RequestKind::burst)
        return "burst";
    if (request.kind != RequestKind::line)
        return {};
    const std::string_view text = request.text;
    return text.substr(0, text.find_first_of(" \t"));
}

std::uint32_t burstChecksum(std::string_view bytes) {
    std::uint32_t sum = 0;
    for (; bytes.size() >= 4; bytes.remove_prefix(4))
        sum += littleEndian(bytes);
    return bytes.empty() ? sum : sum + littleEndian(std::string(bytes).append(3, '\xFF'));
}

} // namespace vqxsim
