#include "faults/target.h"

#include "firmware/firmware.h"

#include <algorithm>

namespace vqxsim {

namespace {

Exchange beginExchange(const Target& target, std::string_view word) {
    Exchange exchange;
    exchange.number = target.exchanges + 1;
    exchange.word = word;
    return exchange;
}

void applyBurstFaults(Target& target) {
    if (!target.firmware.burst) {
        target.burstFaultsApplied = false;
        target.byteFault.reset();
    } else if (!target.burstFaultsApplied) {
        target.burstFaultsApplied = true;
        Exchange exchange = beginExchange(target, "burst");
        exchange.burstLength = target.firmware.burst->length;
        applyFaults(target.faults, FaultPhase::burst, exchange, target.random);
        target.byteFault = std::move(exchange.byteFault);
    }
}

Outcome carryOutWithFaults(Target& target, Request request) {
    Outcome outcome;
    outcome.request = std::move(request);
    outcome.exchange = beginExchange(target, requestWord(outcome.request));
    ++target.exchanges;
    Exchange& exchange = outcome.exchange;
    exchange.notes = std::move(target.notes);
    target.notes.clear();
    applyFaults(target.faults, FaultPhase::request, exchange, target.random);
    if (exchange.refusal) {
        exchange.answer = *exchange.refusal + "\r\n";
    } else {
        target.firmware.stuckBit = exchange.stuckBit ? &*exchange.stuckBit : nullptr;
        const Answer answer = execute(target.firmware, outcome.request);
        target.firmware.stuckBit = nullptr;
        exchange.answer = answer.text;
        outcome.busy = answer.busy;
        recordStuckBit(exchange);
    }
    if (!exchange.unplug)
        applyFaults(target.faults, FaultPhase::answer, exchange, target.random);
    return outcome;
}

/// The fault that occurs at the next byte to come; null if there is none.
Fault* nextAtByte(Target& target) {
    Fault* next = nullptr;
    for (Fault& fault : target.faults)
        if (fault.byte && fault.occurred == 0 && *fault.byte > target.received &&
            (next == nullptr || *fault.byte < *next->byte))
            next = &fault;
    return next;
}

/// Passes bytes to the firmware with the byte fault applied; returns how many it has taken.
std::size_t passBytes(Target& target, std::string_view bytes, std::optional<Request>& request) {
    if (!target.byteFault)
        return collectRequest(target.firmware, bytes, request);
    if (target.byteFault->offset > 0) {
        bytes = bytes.substr(
            0, static_cast<std::size_t>(std::min<std::uint64_t>(target.byteFault->offset, bytes.size())));
        target.byteFault->offset -= bytes.size();
        return collectRequest(target.firmware, bytes, request);
    }
    const ByteFault fault = *std::move(target.byteFault);
    target.byteFault.reset();
    ++fault.source->occurred;
    target.notes.push_back(fault.note);
    if (fault.kind == ByteFault::Kind::lose)
        return 1;
    const char byte = static_cast<char>(bytes[0] ^ (fault.kind == ByteFault::Kind::flip ? fault.mask : 0));
    const std::size_t taken = collectRequest(target.firmware, {&byte, 1}, request);
    return fault.kind == ByteFault::Kind::doubled ? 0 : taken;
}

} // namespace

std::size_t takeBytes(Target& target, std::string_view bytes, std::optional<Outcome>& outcome) {
    applyBurstFaults(target);
    Fault* const atByte = nextAtByte(target);
    if (atByte != nullptr)
        bytes = bytes.substr(0, static_cast<std::size_t>(
                                    std::min<std::uint64_t>(*atByte->byte - target.received, bytes.size())));
    std::optional<Request> request;
    const std::size_t taken = passBytes(target, bytes, request);
    target.received += taken;
    if (request)
        outcome = carryOutWithFaults(target, std::move(*request));
    if (atByte != nullptr && target.received == *atByte->byte) {
        if (!outcome)
            outcome.emplace();
        outcome->exchange.notes.push_back(atByte->kind->apply(*atByte, outcome->exchange, target.random));
        ++atByte->occurred;
    }
    return taken;
}

Outcome takeSilence(Target& target) {
    return carryOutWithFaults(target, requestAfterSilence(target.firmware));
}

} // namespace vqxsim
