#pragma once

#include "faults/settings.h"
#include "faults/target.h"

#include <gtest/gtest.h>

namespace vqxsim {

inline const RegionSpec flashRegion{"FLASH", 0x10000000, 0x1000, 0x200, 0x8000, 0xFF};
inline const RegionSpec oddRegion{"ODD", 0x20000004, 0x70, 0x10, 0x8000, 0x5A};
inline const RegionSpec pagelessRegion{"PAGELESS", 0xFFFFFF00, 0x200, 0, 0, 0xFF};

inline std::string burst(const std::string& bytes, unsigned offset = 0) {
    return formatText("=databurst %zx %x %x\r", bytes.size(), offset, burstChecksum(bytes)) + bytes;
}

/// A target in batch mode, and what it answers.
struct SimSession {
    explicit SimSession(const std::vector<RegionSpec>& regions = {flashRegion, oddRegion, pagelessRegion},
                        const std::string& directory = "") {
        FirmwareConfig config;
        config.regions = regions;
        config.directory = directory;
        error = startFirmware(target.firmware, config);
        target.firmware.batchMode = true;
    }

    explicit SimSession(std::initializer_list<const char*> faults) : SimSession() {
        for (const char* text : faults)
            EXPECT_EQ(readFault(text, target.faults.emplace_back()), std::nullopt) << text;
    }

    /// Sends the bytes; returns all answers, and keeps the last outcome.
    std::string say(std::string_view bytes) {
        std::string answers;
        while (!bytes.empty()) {
            std::optional<Outcome> outcome;
            bytes.remove_prefix(takeBytes(target, bytes, outcome));
            if (outcome) {
                answers += outcome->exchange.answer + outcome->exchange.answerAfterFlood;
                last = std::move(*outcome);
            }
        }
        return answers;
    }

    std::string line(const std::string& command) { return say("=" + command + "\r"); }

    std::string lines(std::initializer_list<std::string> commands) {
        std::string answers;
        for (const std::string& command : commands)
            answers += line(command);
        return answers;
    }

    std::string program(const std::string& bytes, const std::string& arguments) {
        return say(burst(bytes) + "=programPage " + arguments + "\r");
    }

    Target target;
    ErrorText error;
    Outcome last;
};

inline const std::string ok = "VQX_OK\r\n";

} // namespace vqxsim
