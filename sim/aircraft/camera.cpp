#include "sim/aircraft/camera.h"

#include <cstdio>
#include <utility>

#include "formats/hex.h"

namespace sim {

std::string seconds_text(Time time) {
    char text[32];
    std::snprintf(text, sizeof text, "%.3f", std::chrono::duration<double>(time).count());
    return text;
}

std::string Camera::find_fault(const Packet& packet, const CommandRow* row) {
    const CommandRow* const begun = std::exchange(expects_continuation_of_, nullptr);
    const std::uint16_t expected_sequence = static_cast<std::uint16_t>(
        last_sequence_.value_or(static_cast<std::uint16_t>(packet.sequence - 1)) + 1);
    last_sequence_ = packet.sequence;
    if (packet.sequence != expected_sequence) {
        return "sequence number " + std::to_string(packet.sequence) + " where " +
               std::to_string(expected_sequence) + " was due";
    }
    if (row == nullptr) {
        return "unknown command";
    }
    if (begun != nullptr && begun->details.then != row->name) {
        return std::string(begun->name) + " went without its second packet before this one";
    }
    if (row->details.continues && (begun == nullptr || begun->details.then != row->name)) {
        return "second packet without its first";
    }
    if (packet.payload.size() != row->payload_size) {
        return "payload of " + std::to_string(packet.payload.size()) + " bytes instead of " +
               std::to_string(row->payload_size);
    }
    if (packet.receiver != receiver_of(packet.set)) {
        return "wrong receiver";
    }
    if (packet.sender != row->details.sender) {
        return "wrong sender";
    }
    if (packet.type != row->details.type) {
        return "wrong command type";
    }
    return {};
}

void Camera::remember(const std::string& meaning, Time now) {
    if (!commands_.empty() && commands_.back().meaning == meaning) {
        ++commands_.back().times;
    } else {
        commands_.push_back({now, meaning, 1});
    }
}

std::vector<ReceivedPacket> Camera::receive(std::span<const std::uint8_t> transfer, Time now) {
    const std::lock_guard lock{mutex_};
    std::vector<ReceivedPacket> received;
    while (!transfer.empty()) {
        Packet packet;
        std::string fault;
        const std::size_t decoded = decode_packet(transfer, packet, fault);
        const auto bytes = transfer.first(decoded == 0 ? transfer.size() : decoded);
        transfer = transfer.subspan(bytes.size());
        std::string meaning;
        if (fault.empty()) {
            fault = act(packet, now, meaning);
        }
        if (!fault.empty()) {
            meaning = "COMPLAINT " + fault;
            complaints_.push_back(seconds_text(now) + " " + fault + ": " + formats::hex(bytes));
        } else {
            remember(meaning, now);
        }
        received.push_back({Bytes(bytes.begin(), bytes.end()), std::move(meaning)});
    }
    return received;
}

std::string Camera::act(const Packet& packet, Time now, std::string& meaning) {
    const CommandRow* const row = find_command(packet);
    std::string fault = find_fault(packet, row);
    if (!fault.empty()) {
        return fault;
    }
    advance(aircraft_, now);
    const Outcome outcome = row->act(aircraft_, packet.payload, now);
    expects_continuation_of_ = row->details.then.empty() ? nullptr : row;
    meaning = row->name;
    meaning += outcome.detail.empty() ? "" : " " + outcome.detail;
    meaning += outcome.verdict == Verdict::refused ? " (refused)" : "";
    return outcome.verdict == Verdict::not_understood ? meaning + " with a value that has no meaning" : "";
}

void Camera::expect_new_sequence() {
    const std::lock_guard lock{mutex_};
    last_sequence_.reset();
    expects_continuation_of_ = nullptr;
}

AircraftState Camera::state(Time now) {
    const std::lock_guard lock{mutex_};
    advance(aircraft_, now);
    return aircraft_.state;
}

std::vector<CommandRecord> Camera::commands() const {
    const std::lock_guard lock{mutex_};
    return commands_;
}

std::vector<std::string> Camera::complaints() const {
    const std::lock_guard lock{mutex_};
    return complaints_;
}

}  // namespace sim
