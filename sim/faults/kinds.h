#pragma once

#include "firmware/state.h"

#include <random>

namespace vqxsim {

using Random = std::mt19937_64;

struct FaultKind;

/// The chance of a fault that occurs whenever it can, in 1/10000 percent.
constexpr std::uint64_t certain = 1000000;

/// One fault of the command line. The table of kinds lists the settings of each kind.
struct Fault {
    const FaultKind* kind = nullptr;
    std::uint64_t at = 0; ///< occurs from this exchange on, counted from 1
    std::optional<std::uint64_t>
        count;                      ///< how often it occurs at most; none: once with `at`, else without limit
    std::uint64_t chance = certain; ///< compared with `certain`
    std::string command;            ///< only at requests with this word; empty: at every request
    std::string text = "Injected error";  ///< of an error status
    std::string status = "VQX_ERROR";     ///< first word of an error status
    std::string with = "LF";              ///< line end: CR, LF, CRLF or NUL
    std::string line = "empty";           ///< an ignored line: empty, repeat or zero
    std::optional<std::uint64_t> times;   ///< how many ignored lines; none: until the host closes the device
    std::optional<Duration> time;         ///< delay, hang, pause between bytes or lines
    std::optional<Duration> replug;       ///< the device comes back after this time
    std::optional<std::uint64_t> bytes;   ///< of noise, flood or a cut answer; UINT64_MAX: endless
    std::optional<std::uint64_t> offset;  ///< in the burst
    std::optional<std::uint64_t> byte;    ///< received so far, counted from 1
    std::optional<std::uint64_t> address; ///< of the stuck flash bit
    std::optional<std::uint64_t> bit;     ///< 0 to 7
    bool lines = true;                    ///< noise or flood has line ends
    bool silent = false;                  ///< the firmware does not notice
    std::uint64_t occurred = 0;           ///< how often it has occurred
    std::string given;                    ///< as the user gave it
};

/// A change of one byte of a burst.
struct ByteFault {
    enum class Kind { flip, lose, doubled } kind = Kind::flip;
    std::uint64_t offset = 0; ///< bytes of the burst before it that have not arrived
    std::uint8_t mask = 0;    ///< bits to flip
    Fault* source = nullptr;  ///< its fault; not owned
    std::string note;         ///< for the log
};

/// One exchange: what the faults read and change.
struct Exchange {
    std::uint64_t number = 0;
    std::string word;              ///< see `requestWord`
    std::uint64_t burstLength = 0; ///< of the burst that begins, in the burst phase

    std::optional<std::string> refusal; ///< status line, if the request is not carried out
    std::optional<StuckBit> stuckBit;
    Fault* stuckSource = nullptr; ///< the fault of the stuck bit; not owned
    std::optional<ByteFault> byteFault;
    Duration hang{0}; ///< before the request is carried out
    bool unplug = false;
    std::optional<Duration> replug;

    std::string answer; ///< up to the flood, if there is one
    Duration delay{0};
    std::optional<Duration> bytePause; ///< the answer comes in single bytes
    std::string floodText;             ///< repeated
    std::uint64_t floodBytes = 0;      ///< UINT64_MAX: endless
    Duration floodPause{0};            ///< before each repetition of the text
    std::string answerAfterFlood;

    std::vector<std::string> notes; ///< the effects of the faults, for the log
};

/// When faults of a kind occur: before a request is carried out, at the start of a burst, or at the answer.
enum class FaultPhase { request, burst, answer };

/// One row of the table of kinds.
struct FaultKind {
    std::string_view name;
    std::string_view settings; ///< other than at, count, chance and command
    std::string_view help;
    FaultPhase phase;
    std::string_view only; ///< the one request at which it occurs, empty for any
    /// Changes the exchange and returns the effect for the log; empty if there is none (yet).
    std::string (*apply)(Fault&, Exchange&, Random&);
};

/// The table of kinds.
[[nodiscard]] std::span<const FaultKind> faultKinds();

/// Applies the faults of a phase to an exchange.
void applyFaults(std::vector<Fault>& faults, FaultPhase phase, Exchange& exchange, Random& random);

/// After the request was carried out: counts and logs the stuck bit if it kept its value.
void recordStuckBit(Exchange& exchange);

} // namespace vqxsim
