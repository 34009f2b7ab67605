// The sending side of a camera: pace, order and faults of the datagrams to its clients.
#include <algorithm>

#include "camera/camera.h"

namespace plendix::camera {

namespace {

// What the link takes at once after a pause, so that the timer's grain does not cost throughput.
constexpr std::chrono::milliseconds credit{2};
// Clients that never repeat themselves give up after this time.
constexpr std::chrono::seconds patience{10};

}  // namespace

void Camera::acknowledged(const Endpoint& client, std::uint16_t block) {
    const auto found = sessions_.find(client);
    if (found == sessions_.end()) return;
    Session& session = found->second;
    if (hits(FaultKind::ack_loss)) {
        // Only a later acknowledgement could make up for it.
        if (session.transfer.newest(block) && !session.transfer.sent()) lose(session);
        return;
    }
    if (!session.transfer.accept(block)) return;
    state_.note_acknowledgement();
    pump(client);
}

/// Sends what is due, and forgets the transfer when all of it has arrived.
void Camera::pump(const Endpoint& client) {
    const auto found = sessions_.find(client);
    if (found == sessions_.end()) return;
    Session& session = found->second;
    while (session.transfer.due()) {
        if (held_up(client, session)) return;
        send_next(client, session);
    }
    if (session.transfer.finished()) sessions_.erase(found);
}

bool Camera::held_up(const Endpoint& client, Session& session) {
    const auto now = Clock::now();
    if (!session.delayed && session.not_before <= now && hits(FaultKind::delay)) {
        session.delayed = true;
        session.not_before = now + faults_.time(FaultKind::delay);
        if (faults_.time(FaultKind::delay) >= patience) lose(session);
    }
    auto earliest = session.not_before;
    if (surroundings_.behaviour.rate_mbit > 0) earliest = std::max(earliest, rate_free_);
    if (earliest <= now) return false;
    if (session.waiting) return true;
    session.waiting = true;
    surroundings_.agenda.at(earliest, [this, client, begun = session.begun] {
        const auto found = sessions_.find(client);
        if (found == sessions_.end() || found->second.begun != begun) return;
        found->second.waiting = false;
        if (!state_.silent()) pump(client);
    });
    return true;
}

void Camera::send_next(const Endpoint& client, Session& session) {
    Packet packet = session.transfer.take();
    session.delayed = false;
    send_strays(client);
    if (hits(FaultKind::loss)) {
        // Nobody acknowledges it; a camera that does not wait goes on with the next block.
        lose(session);
        if (packet.data()) session.transfer.accept(packet.number);
        return;
    }
    // Counted before the client can see it.
    if (packet.data()) state_.note_block(packet.bytes.size() - 4);
    send_faulty(client, session, packet);
}

/// Sends a packet that is not lost, changed and repeated as the faults will have it.
void Camera::send_faulty(const Endpoint& client, Session& session, Packet& packet) {
    if (session.transfer.answer().picture() && packet.data() && fails_in_transit(session, packet)) return;
    if (packet.last && session.transfer.answer().picture() && !session.lost)
        state_.note_frame(session.transfer.answer().key);
    transmit(client, packet);
    if (hits(FaultKind::duplicate)) transmit(client, packet);
    if (!session.held) return;
    transmit(client, *session.held);
    session.held.reset();
}

/// The faults of a picture's blocks. True when the block stays here for now.
bool Camera::fails_in_transit(Session& session, Packet& packet) {
    Transfer& transfer = session.transfer;
    if (!packet.last && !session.held && hits(FaultKind::reorder)) {
        // Behind the trailer a block comes too late.
        if (packet.number + 1 == transfer.last()) lose(session);
        transfer.accept(packet.number);
        session.held = std::move(packet);
        return true;
    }
    if (!packet.last && hits(FaultKind::corrupt)) faults_.corrupt(packet);
    if (hits(FaultKind::truncate)) {
        faults_.truncate(packet);
        lose(session);
    }
    if (hits(FaultKind::wrong_block)) {
        faults_.renumber(packet, transfer.last());
        lose(session);
        transfer.accept(packet.number);  // its acknowledgement will bear the wrong number
    }
    return false;
}

void Camera::transmit(const Endpoint& client, const Packet& packet) {
    transfers_.send(packet.bytes.data(), packet.bytes.size(), client);
    const double rate = surroundings_.behaviour.rate_mbit;
    if (rate <= 0) return;
    const std::chrono::duration<double, std::micro> cost(static_cast<double>(packet.bytes.size()) * 8 / rate);
    rate_free_ =
        std::max(rate_free_, Clock::now() - credit) + std::chrono::duration_cast<Clock::duration>(cost);
}

/// In front of the camera's own datagram, so that clients which answer to whoever sent last turn
/// back to the camera at once.
void Camera::send_strays(const Endpoint& client) {
    if (hits(FaultKind::garbage)) {
        const Bytes bytes = faults_.garbage(FaultKind::garbage);
        transfers_.send(bytes.data(), bytes.size(), client);
    }
    if (hits(FaultKind::foreign)) {
        const Bytes bytes = faults_.garbage(FaultKind::foreign);
        surroundings_.stranger->send(bytes.data(), bytes.size(), client);
    }
}

bool Camera::hits(FaultKind kind) {
    if (!faults_.hits(kind)) return false;
    state_.note_fault(kind);
    if (surroundings_.verbose) say(std::string("fault ") + fault_name(kind));
    return true;
}

void Camera::inject(const Fault& fault) {
    const bool whole = fault.kind == FaultKind::silent || fault.kind == FaultKind::reboot ||
                       fault.kind == FaultKind::mac_change;
    faults_.set(fault);
    if (!fault.once || !whole || !hits(fault.kind)) return;
    if (fault.kind == FaultKind::silent) fall_silent(fault.time);
    if (fault.kind == FaultKind::reboot) reboot(fault.time);
    if (fault.kind == FaultKind::mac_change) change_mac();
}

/// What was under way stays undone: the camera does not remember it when it comes back.
void Camera::fall_silent(std::chrono::milliseconds time) {
    for (auto& [client, session] : sessions_)
        if (!session.transfer.sent()) lose(session);
    sessions_.clear();
    state_.set_silent(true);
    silent_until_ = std::max(silent_until_, Clock::now() + time);
    surroundings_.agenda.at(silent_until_, [this] {
        if (Clock::now() >= silent_until_) state_.set_silent(false);
    });
}

void Camera::reboot(std::chrono::milliseconds time) {
    state_.reboot();
    pictures_->end_group();
    fall_silent(time);
}

void Camera::change_mac() {
    state_.set_mac_tail(faults_.address());
}

void Camera::lose(Session& session) {
    if (session.lost || !session.transfer.answer().picture()) return;
    session.lost = true;
    state_.note_lost_frame();
}

}  // namespace plendix::camera
