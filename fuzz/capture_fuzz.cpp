// Captures: files of either format, the datagrams and notes within, and what --no-pictures leaves.
#include <algorithm>
#include <cstring>
#include <vector>

#include "field/drop_note.h"
#include "field/picture_cutter.h"
#include "field/transfer.h"
#include "fuzz.h"
#include "usage.h"

namespace {

using plendix::CapturedPacket;
using plendix::CaptureReader;

constexpr std::size_t longest_kept = 4 + 128;  // of a block, without pictures

CaptureReader::Source Pieces(const std::uint8_t* data, std::size_t size, std::size_t piece) {
    std::size_t given = 0;
    return [=](std::uint8_t* to, std::size_t room) mutable {
        const std::size_t part = std::min({piece, room, size - given});
        std::copy(data + given, data + given + part, to);
        given += part;
        return part;
    };
}

void Notes(const std::string& comment) {
    for (const plendix::DropNote& note : plendix::drop_notes(comment)) {
        const auto again = plendix::drop_notes(plendix::drop_note(note));
        require(again.size() == 1 && again[0].socket == note.socket && again[0].total == note.total);
    }
}

void Cut(plendix::PictureCutter& cutter, CapturedPacket packet) {
    const std::size_t before = packet.data.size();
    cutter.cut(packet);
    require(packet.data.size() <= before && packet.data.size() <= packet.original_size);
    const auto left = plendix::datagram_of(packet);
    const bool block = left && left->size >= 2 && left->payload[0] == 0 && left->payload[1] == 3;
    require(!block || left->size <= longest_kept);
}

// The packets, one behind the other.
std::vector<std::uint8_t> Read(CaptureReader reader) {
    std::vector<std::uint8_t> all;
    CapturedPacket packet;
    plendix::PictureCutter cutter;
    plendix::TransferReader transfers(16);
    while (reader.next(packet)) {
        require(packet.data.size() <= plendix::largest_captured_packet);
        all.insert(all.end(), packet.data.begin(), packet.data.end());
        all.push_back(static_cast<std::uint8_t>(packet.time_ns));
        Notes(packet.comment);
        if (const auto datagram = plendix::datagram_of(packet)) {
            all.insert(all.end(), datagram->payload, datagram->payload + datagram->size);
            require(datagram->size <= datagram->original_size);
            transfers.add(*datagram);
        }
        Cut(cutter, packet);
    }
    require(!reader.next(packet) && (!reader.cut_short() || reader.damage().empty()));
    transfers.finish();
    return all;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    try {
        CaptureReader reader(Pieces(data, size, size), "input");
        const auto all = Read(std::move(reader));
        require(all == Read(CaptureReader(Pieces(data, size, 7), "input")));
    } catch (const plendix::Failure&) {
        // No capture.
    }
    return 0;
}
