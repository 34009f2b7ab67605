#include "field/inspector.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "field/drop_note.h"
#include "link/words.h"

namespace plendix {
namespace {

// A capture may hold anything, such as a sweep through all addresses there are.
constexpr std::size_t most_cameras = 2048, most_clients = 8192, most_links = 4096, most_drops = 4096;

std::string format_text(const link::Trailer& trailer) {
    return std::to_string(trailer.width()) + 'x' + std::to_string(trailer.height()) +
           (trailer.h264 ? " H.264" : " JPEG");
}

}  // namespace

void Inspector::add(const Datagram& datagram, const std::string& comment) {
    if (findings_.datagrams++ == 0) findings_.first_ns = settled_ns_ = datagram.time_ns;
    findings_.last_ns = std::max(findings_.last_ns, datagram.time_ns);
    if (!comment.empty()) take_notes(datagram, comment);
    if (datagram.to.port == link::camera_port) {
        if (cameras_.size() < most_cameras) cameras_.try_emplace(datagram.to.address);
        if (datagram.size < datagram.original_size) ++findings_.cut_requests;
    }
    const auto camera = cameras_.find(datagram.from.address);
    if (camera != cameras_.end() && !datagram.atomic)
        camera->second.ids.add(datagram.ip_id, datagram.time_ns);
    reader_.add(datagram);
    take_transfers();
}

void Inspector::take_notes(const Datagram& datagram, const std::string& comment) {
    for (const DropNote& note : drop_notes(comment)) {
        findings_.dropped += note.added;
        Incident drop;
        drop.time_ns = datagram.time_ns;
        drop.kind = Incident::Kind::socket_drops;
        drop.block = static_cast<std::uint32_t>(std::min<std::uint64_t>(note.added, 0xFFFFFFFF));
        drop.last = note.socket.port;
        const auto found = camera_of_port_.find(note.socket.port);
        if (found != camera_of_port_.end()) drop.camera = found->second;
        capture_.incidents.add(std::move(drop));
        capture_.drops.push_back({datagram.time_ns, note.socket.port});
        if (capture_.drops.size() > most_drops) capture_.drops.pop_front();
    }
}

void Inspector::take_transfers() {
    Transfer transfer;
    while (reader_.take(transfer))
        take(transfer);
    if (nanoseconds_between(settled_ns_, findings_.last_ns) < 5 * second_in_ns) return;
    settled_ns_ = findings_.last_ns;
    settle();
}

void Inspector::take(const Transfer& transfer) {
    const Verdict verdict = judge(transfer);
    if ((!verdict.answered && led_astray(transfer)) || (only_ && *only_ != transfer.camera)) return;
    const auto camera = cameras_.find(transfer.camera);
    const bool known = links_.count({transfer.camera, transfer.client.address}) != 0;
    if (camera == cameras_.end() || (!known && links_.size() >= most_links)) return;
    Client& client = clients_[transfer.client];
    client.camera = camera_of_port_[transfer.client.port] = transfer.camera;
    client.stranger = verdict.strangers.address;
    if (clients_.size() > most_clients) clients_.clear();
    if (verdict.trailer) note_trailer(transfer, verdict, camera->second);
    unsettled_.insert({transfer.camera, transfer.client.address});
    link_of(transfer.camera, transfer.client.address).add(transfer, verdict, camera->second.ids);
}

/// The driver answers to whoever sent last: behind a stranger's datagram its next request goes there.
bool Inspector::led_astray(const Transfer& transfer) {
    const auto client = clients_.find(transfer.client);
    if (client == clients_.end() || client->second.stranger != transfer.camera || transfer.camera == 0)
        return false;
    const auto found = links_.find({client->second.camera, transfer.client.address});
    if (found == links_.end()) return false;
    if (!only_ || *only_ == client->second.camera) found->second.add_astray(transfer);
    return true;
}

void Inspector::note_trailer(const Transfer& transfer, const Verdict& verdict, Camera& camera) {
    Incident other;
    other.time_ns = verdict.end_ns;
    other.camera = transfer.camera;
    other.client = transfer.client.address;
    const link::Trailer& trailer = *verdict.trailer;
    if (camera.mac && *camera.mac != trailer.mac) {
        other.kind = Incident::Kind::other_mac;
        other.words = mac_text(trailer.mac) + ", before " + mac_text(*camera.mac);
        capture_.incidents.add(other);
    }
    camera.mac = trailer.mac;
    const std::string format = format_text(trailer);
    if (!camera.format.empty() && camera.format != format) {
        other.kind = Incident::Kind::other_format;
        other.words = format;
        capture_.incidents.add(other);
    }
    camera.format = format;
}

Link& Inspector::link_of(std::uint32_t camera, std::uint32_t client) {
    return links_.try_emplace({camera, client}, camera, client, capture_).first->second;
}

void Inspector::settle() {
    for (auto key = unsettled_.begin(); key != unsettled_.end();) {
        Link& link = links_.at(*key);
        link.settle(findings_.last_ns, cameras_[link.camera()].ids, false);
        key = link.settled() ? unsettled_.erase(key) : std::next(key);
    }
}

Findings Inspector::finish() {
    reader_.finish();
    Transfer transfer;
    while (reader_.take(transfer))
        take(transfer);
    for (auto& [key, link] : links_)
        link.settle(findings_.last_ns, cameras_[link.camera()].ids, true);
    for (auto& [key, link] : links_)
        link.conclude();
    for (const auto& [key, link] : links_)
        findings_.pairs.push_back({link.camera(), link.client(), link.counts()});
    findings_.unassigned = reader_.unassigned();
    findings_.incidents = std::move(capture_.incidents);
    return std::move(findings_);
}

}  // namespace plendix
