#include "field/live_capture.h"

#include <net/if.h>
#include <pcap/pcap.h>
#include <poll.h>

#include <algorithm>

#include "host/plain_text.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr int kernel_buffer = 64 << 20;  // bytes: seconds of many cameras while a disk is busy
constexpr int snapshot = 65535 + 64;     // the largest datagram and what is in front of it
constexpr int delay_ms = 100;            // until the kernel hands over what is no full buffer
constexpr int raw_ip_type = 12;          // what libpcap calls it here; 101 in files

std::string interfaces_there() {
    std::string names;
    if (struct if_nameindex* const all = if_nameindex()) {
        for (const struct if_nameindex* each = all; each->if_name != nullptr; ++each)
            names += std::string(names.empty() ? "" : ", ") + each->if_name;
        if_freenameindex(all);
    }
    return names;
}

/// What is to be done about a capture that does not begin.
std::string advice(int status, const std::string& interface, const std::string& words) {
    if (status == PCAP_ERROR_PERM_DENIED || status == PCAP_ERROR_PROMISC_PERM_DENIED)
        return "no right to capture: run it as root, or give the command the right once, as root: setcap "
               "cap_net_raw+ep $(command -v plendix)";
    if (status == PCAP_ERROR_NO_SUCH_DEVICE)
        return "there is no interface '" + printable(interface) + "': give any, or one of " +
               interfaces_there();
    if (status == PCAP_ERROR_IFACE_NOT_UP) return "interface '" + printable(interface) + "' is not up";
    return "cannot capture on '" + printable(interface) + "': " + printable(words);
}

int link_type_of(int type, const std::string& interface) {
    for (const int known : {link_bsd_loopback, link_ethernet, link_open_loopback, link_raw_ip, link_cooked,
                            link_ipv4, link_cooked2})
        if (type == known) return type;
    if (type == raw_ip_type) return link_raw_ip;
    const char* const name = pcap_datalink_val_to_name(type);
    throw Failure("interface '" + printable(interface) + "' carries " +
                  (name == nullptr ? "something" : name) + ", which is not known here: give any");
}

}  // namespace

struct LiveCapture::Handle {
    explicit Handle(const std::string& interface);
    ~Handle() { pcap_close(pcap); }
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;

    void activate(const std::string& interface);
    void set_filter(const std::string& filter);
    std::string words() const { return pcap_geterr(pcap); }

    pcap_t* pcap = nullptr;
    int link_type = 0;
};

LiveCapture::Handle::Handle(const std::string& interface) {
    char error[PCAP_ERRBUF_SIZE] = "";
    pcap = pcap_create(interface.c_str(), error);
    if (pcap == nullptr)
        throw Failure("cannot capture on '" + printable(interface) + "': " + printable(error));
}

void LiveCapture::Handle::activate(const std::string& interface) {
    pcap_set_snaplen(pcap, snapshot);
    pcap_set_buffer_size(pcap, kernel_buffer);
    pcap_set_timeout(pcap, delay_ms);
    pcap_set_tstamp_precision(pcap, PCAP_TSTAMP_PRECISION_NANO);
    pcap_set_promisc(pcap, interface != "any");  // a switch's mirror port carries what is others'
    const int status = pcap_activate(pcap);
    if (status < 0) throw Failure(advice(status, interface, words()));
    // Cooked headers of the second version tell of the interface.
    if (pcap_datalink(pcap) == DLT_LINUX_SLL) pcap_set_datalink(pcap, DLT_LINUX_SLL2);
    link_type = link_type_of(pcap_datalink(pcap), interface);
    char error[PCAP_ERRBUF_SIZE] = "";
    if (pcap_setnonblock(pcap, 1, error) != 0) throw Failure("cannot capture: " + printable(error));
}

void LiveCapture::Handle::set_filter(const std::string& filter) {
    bpf_program program{};
    if (pcap_compile(pcap, &program, filter.c_str(), 1, PCAP_NETMASK_UNKNOWN) != 0)
        throw Failure("cannot capture: " + printable(words()));
    const int status = pcap_setfilter(pcap, &program);
    pcap_freecode(&program);
    if (status != 0) throw Failure("cannot capture: " + printable(words()));
}

LiveCapture::LiveCapture(const std::string& interface, const std::vector<std::string>& addresses)
    : handle_(std::make_unique<Handle>(interface)), filter_(capture_filter(addresses)) {
    handle_->activate(interface);
    handle_->set_filter(filter_);
}

LiveCapture::~LiveCapture() = default;

void LiveCapture::wait(std::chrono::milliseconds longest) const {
    pollfd waiting{pcap_get_selectable_fd(handle_->pcap), POLLIN, 0};
    poll(&waiting, 1, static_cast<int>(std::clamp<std::int64_t>(longest.count(), 0, 1000)));
}

bool LiveCapture::next(CapturedPacket& packet) {
    pcap_pkthdr* header = nullptr;
    const std::uint8_t* data = nullptr;
    const int status = pcap_next_ex(handle_->pcap, &header, &data);
    if (status < 0) throw Failure("the capture ended: " + printable(handle_->words()));
    if (status == 0) return false;
    packet.time_ns = std::int64_t{header->ts.tv_sec} * 1'000'000'000 + header->ts.tv_usec;  // nanoseconds
    packet.link_type = handle_->link_type;
    packet.original_size = header->len;
    packet.data.assign(data, data + header->caplen);
    packet.comment.clear();
    return true;
}

CaptureCounts LiveCapture::counts() const {
    pcap_stat counts{};
    if (pcap_stats(handle_->pcap, &counts) != 0) return {};
    return {counts.ps_recv, counts.ps_drop};
}

}  // namespace plendix
