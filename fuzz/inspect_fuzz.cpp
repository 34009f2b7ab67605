// What a capture tells: files of any content, and datagrams of clients, cameras and strangers in any order.
#include <algorithm>
#include <sstream>

#include "field/inspect_report.h"
#include "field/second_sight.h"
#include "fuzz.h"
#include "usage.h"

namespace {

using plendix::Datagram;
using plendix::Endpoint;
using plendix::Findings;
using plendix::Inspector;

constexpr Endpoint hosts[] = {{0x7F000001, 40001}, {0x7F000001, 40002}, {0x7F000009, 40001}, {0x7F000101, 69},
                              {0x7F000101, 3456},  {0x7F000102, 69},    {0x7F000102, 3456},  {0x7FFEFEFE, 5}};
constexpr const char* names[] = {"getreg?page=3;reg=122;", "setreg?page=3;reg=111;val=7;",
                                 "image?res=full;x0=0;y0=0;x1=64;y1=64;quality=8;",
                                 "h264?res=full;x0=0;y0=0;x1=64;y1=32;qp=29;iframe=1;ssn=1;",
                                 "h264?res=full;x0=0;y0=0;x1=64;y1=32;qp=29;iframe=0;ssn=1;"};

// A packet that somebody may send, with numbers and sizes that belong together often enough.
std::string Payload(Input& input, std::size_t& size) {
    const std::uint8_t kind = input.byte();
    const std::string number{static_cast<char>(kind & 128 ? input.byte() : 0),
                             static_cast<char>(input.byte() % 8)};
    std::string bytes;
    switch (kind % 8) {
        case 0:
        case 1:
            bytes = std::string("\0\1", 2) + names[input.byte() % 5] +
                    std::string("\0netascii\0blksize\0001450\0", 23);
            break;
        case 2:
            bytes = std::string("\0\6blksize\0", 10) + (kind & 64 ? "512" : "1450") + '\0';
            break;
        case 3:
        case 4:
            bytes = std::string("\0\4", 2) + number;
            break;
        case 5:
            bytes = std::string("\0\3", 2) + number + std::string(1450, kind & 32 ? '\0' : 'p');
            break;
        case 6:
            bytes = std::string("\0\3", 2) + number + std::string(82, '\0') +
                    std::string("\4\10\0\0\0\0\0\100\0\40\0\0\1", 13);
            break;
        default:
            bytes = std::string("\0\5", 2) + input.bytes(kind % 32);
    }
    size = bytes.size();
    if (kind % 32 == 31) bytes.resize(bytes.size() / 2);  // was not captured whole
    return bytes;
}

// Every picture is one thing, and nothing is counted twice.
void Check(const Findings& findings) {
    for (const auto& pair : findings.pairs) {
        const auto& counts = pair.counts;
        require(counts.pictures == counts.whole + counts.all_lost() + counts.unknown);
        require(counts.reads + counts.writes + counts.pictures <= counts.requests);
        require(counts.answered <= counts.requests && counts.either <= counts.all_lost());
    }
    std::ostringstream text;
    for (const bool all : {false, true}) {
        print_findings(text, findings, {"input", {}, all, true});
        for (const char c : text.str())
            require(c == '\n' || static_cast<unsigned char>(c) >= ' ');
    }
}

void InspectDatagrams(Input& input) {
    Inspector inspector;
    Datagram datagram;
    while (!input.empty()) {
        const std::uint8_t step = input.byte(), ends = input.byte();
        datagram.time_ns += step < 128 ? step * 1'000'000LL : (step - 128) * 1'000'000'000LL / 4;
        datagram.from = hosts[ends % 8];
        datagram.to = hosts[ends / 8 % 8];
        datagram.atomic = (ends & 64) != 0;
        datagram.ip_id = static_cast<std::uint16_t>(datagram.ip_id + (ends & 128 ? 2 : 1));
        const std::string payload = Payload(input, datagram.original_size);
        datagram.payload = reinterpret_cast<const std::uint8_t*>(payload.data());
        datagram.size = payload.size();
        inspector.add(datagram, ends == 77 ? "plendix: socket 0.0.0.0:40001 dropped 5 (+2)" : "");
    }
    Check(inspector.finish());
}

void InspectFile(Input& input) {
    plendix::CaptureReader reader(
        [&](std::uint8_t* to, std::size_t room) {
            const std::string part = input.bytes(room);
            std::copy(part.begin(), part.end(), to);
            return part.size();
        },
        "input");
    Inspector inspector;
    plendix::SecondSight sight;
    for (plendix::CapturedPacket packet; reader.next(packet);) {
        const auto datagram = plendix::datagram_of(packet);
        if (datagram && !sight.seen(packet, *datagram)) inspector.add(*datagram, packet.comment);
    }
    Check(inspector.finish());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    try {
        input.byte() % 4 == 0 ? InspectFile(input) : InspectDatagrams(input);
    } catch (const plendix::Failure&) {
        // No capture.
    }
    return 0;
}
