#include "field/replay_capture.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "field/capture_file.h"
#include "field/second_sight.h"
#include "usage.h"

namespace plendix {
namespace {

/// Requests that nobody answered are no camera's.
bool answers(const std::vector<ReplayTransferPointer>& transfers) {
    return std::any_of(transfers.begin(), transfers.end(),
                       [](const auto& transfer) { return transfer->answered; });
}

/// Transfers are told in the order in which they ended, and the last may still have been under way.
void put_in_order(std::vector<ReplayTransferPointer>& transfers) {
    std::stable_sort(transfers.begin(), transfers.end(),
                     [](const auto& a, const auto& b) { return a->begin_ns < b->begin_ns; });
    if (!transfers.back()->taken && !transfers.back()->ended) transfers.pop_back();
}

CapturedCamera camera_of(std::uint32_t address, std::vector<ReplayTransferPointer> transfers) {
    CapturedCamera camera;
    camera.address = address;
    for (const auto& transfer : transfers) {
        if (!transfer->taken) ++camera.failed;
        if (transfer->name.picture()) ++camera.pictures;
        if (transfer->key && transfer->name.kind == link::Kind::h264) ++camera.keys;
        if (transfer->cut && transfer->name.picture()) ++camera.cut;
    }
    if (!transfers.empty()) camera.duration_ns = transfers.back()->begin_ns - transfers.front()->begin_ns;
    camera.transfers = std::move(transfers);
    return camera;
}

}  // namespace

ReplayCapture::ReplayCapture(const std::filesystem::path& file, const ReplayWishes& wishes)
    : file_(open(file.c_str(), O_RDONLY | O_CLOEXEC)) {
    struct stat status {};
    if (!file_ || fstat(file_.get(), &status) != 0)
        throw Failure("cannot open '" + file.string() + "': " + error_text(errno));
    if (!S_ISREG(status.st_mode))
        throw Failure("'" + file.string() + "' is no file: what is sent is read from it as it is sent");
    std::map<std::uint32_t, ByClient> found;
    read(file, found);
    choose(found, wishes);
    if (cameras_.empty())
        throw Failure("no camera in '" + file.string() +
                      "': nobody answers a read request to UDP port 69 in it" +
                      (wishes.client ? " that is of " + address_text(*wishes.client) : "") +
                      (remark_.empty() ? "" : "; it is " + remark_));
}

void ReplayCapture::read(const std::filesystem::path& file, std::map<std::uint32_t, ByClient>& found) {
    CaptureReader reader(
        [this](std::uint8_t* to, std::size_t size) {
            const ssize_t got = ::read(file_.get(), to, size);
            if (got < 0) throw Failure("cannot read the capture: " + error_text(errno));
            return static_cast<std::size_t>(got);
        },
        "'" + file.string() + "'");
    TransferReader transfers(replay_kept_bytes);
    const auto take = [&] {
        for (Transfer transfer; transfers.take(transfer);)
            found[transfer.camera][transfer.client.address].push_back(replay_of(transfer));
    };
    SecondSight sight;
    for (CapturedPacket packet; reader.next(packet); take()) {
        const auto datagram = datagram_of(packet);
        if (datagram && !sight.seen(packet, *datagram)) transfers.add(*datagram);
    }
    transfers.finish();
    take();
    remark_ = reader.cut_short() ? "cut short" : reader.damage();
}

void ReplayCapture::choose(std::map<std::uint32_t, ByClient>& found, const ReplayWishes& wishes) {
    for (const std::uint32_t wanted : wishes.cameras)
        if (found.count(wanted) == 0) throw Failure("no camera " + address_text(wanted) + " in the capture");
    for (auto& [address, clients] : found) {
        const bool wanted = wishes.cameras.empty() || std::find(wishes.cameras.begin(), wishes.cameras.end(),
                                                                address) != wishes.cameras.end();
        const auto most = std::max_element(clients.begin(), clients.end(), [](const auto& a, const auto& b) {
            return a.second.size() < b.second.size();
        });
        const auto chosen = wishes.client ? clients.find(*wishes.client) : most;
        if (!wanted || chosen == clients.end() || !answers(chosen->second)) continue;
        put_in_order(chosen->second);
        CapturedCamera& camera = cameras_.emplace_back(camera_of(address, std::move(chosen->second)));
        camera.client = chosen->first;
        for (const auto& [client, transfers] : clients)
            if (client != camera.client) camera.others[client] = transfers.size();
    }
}

bool ReplayCapture::read(const ReplayTransfer& transfer, const ReplaySend& send, link::Bytes& to) const {
    if (!transfer.made.empty()) {
        const auto begin = transfer.made.begin() + static_cast<std::ptrdiff_t>(send.position);
        to.assign(begin, begin + send.size);
        return true;
    }
    to.assign(send.size, 0);
    const std::size_t there = std::min(send.size, send.captured);
    const ssize_t got = pread(file_.get(), to.data(), there, static_cast<off_t>(send.position));
    return got == static_cast<ssize_t>(there);
}

}  // namespace plendix
