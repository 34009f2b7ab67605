#include <fcntl.h>
#include <limits.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>

#include "field/capture_file.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::size_t most_pending = 256U << 10U;
constexpr int look_ms = 100;  // at whether to go on waiting
constexpr std::size_t longest_option = 65532;
constexpr std::uint32_t section_block = 0x0A0D0D0A, interface_block = 1, statistics_block = 5,
                        packet_block = 6;
constexpr std::uint16_t comment_option = 1, interface_name = 2, interface_resolution = 9,
                        interface_filter = 11;
constexpr std::uint16_t statistics_received = 4, statistics_missed = 5, section_application = 4;

/// Adds a block to the end of `to`; its length is known when it ends.
class Block {
public:
    Block(Bytes& to, std::uint32_t type) : to_(to), begin_(to.size()) {
        number(type);
        number(0);
    }
    void word(std::uint16_t value) {
        to_.push_back(static_cast<std::uint8_t>(value));
        to_.push_back(static_cast<std::uint8_t>(value >> 8U));
    }
    void number(std::uint32_t value) {
        word(static_cast<std::uint16_t>(value));
        word(static_cast<std::uint16_t>(value >> 16U));
    }
    /// High half first, whatever the byte order.
    void time(std::int64_t time_ns) {
        number(static_cast<std::uint32_t>(static_cast<std::uint64_t>(time_ns) >> 32U));
        number(static_cast<std::uint32_t>(time_ns));
    }
    void padded(const std::uint8_t* data, std::size_t size) {
        to_.insert(to_.end(), data, data + size);
        to_.resize(to_.size() + (4 - size % 4) % 4);
    }
    void option(std::uint16_t code, const std::string& text) {
        if (text.empty()) return;
        const std::size_t size = std::min(text.size(), longest_option);
        word(code);
        word(static_cast<std::uint16_t>(size));
        padded(reinterpret_cast<const std::uint8_t*>(text.data()), size);
        options_ = true;
    }
    void option(std::uint16_t code, std::uint64_t value) {
        std::string bytes;
        for (unsigned shift = 0; shift < 64; shift += 8)
            bytes += static_cast<char>(value >> shift);
        option(code, bytes);
    }
    void end() {
        if (options_) number(0);
        const auto size = static_cast<std::uint32_t>(to_.size() - begin_ + 4);
        number(size);
        for (std::size_t i = 0; i < 4; ++i)
            to_[begin_ + 4 + i] = to_[to_.size() - 4 + i];
    }

private:
    Bytes& to_;
    std::size_t begin_;
    bool options_ = false;
};

void begin_section(Bytes& to, const std::string& comment) {
    Block block(to, section_block);
    block.number(0x1A2B3C4D);
    block.word(1);
    block.word(0);
    block.number(0xFFFFFFFF);  // of unknown length
    block.number(0xFFFFFFFF);
    block.option(comment_option, comment);
    block.option(section_application, "plendix");
    block.end();
}

/// Root by way of sudo makes files for whoever asked.
void give_to_sudo_user(int file) {
    const auto number = [](const char* name) {
        const char* const text = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): nobody changes it
        return text == nullptr ? 0UL : std::strtoul(text, nullptr, 10);
    };
    const unsigned long user = number("SUDO_UID"), group = number("SUDO_GID");
    if (geteuid() != 0 || user == 0) return;
    [[maybe_unused]] const int ignored = fchown(file, static_cast<uid_t>(user), static_cast<gid_t>(group));
}

/// For nobody else to read: it shows what cameras see.
Descriptor opened(const std::filesystem::path& file) {
    if (file == "-") return Descriptor(fcntl(STDOUT_FILENO, F_DUPFD_CLOEXEC, 0));
    require_new(file);
    Descriptor made(open(file.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!made) throw Failure("cannot make '" + file.string() + "': " + error_text(errno));
    give_to_sudo_user(made.get());
    return made;
}

bool is_file(const Descriptor& descriptor, struct stat& status) {
    return fstat(descriptor.get(), &status) == 0 && S_ISREG(status.st_mode);
}

/// Of the bytes that were written last takes so many back, unless there is something behind them: standard
/// output may have been somebody's file before, which is appended to.
void take_back(const Descriptor& descriptor, std::size_t bytes) {
    struct stat status {};
    const off_t end = lseek(descriptor.get(), 0, SEEK_CUR);
    if (!is_file(descriptor, status) || status.st_size != end || end < static_cast<off_t>(bytes)) return;
    if (ftruncate(descriptor.get(), end - static_cast<off_t>(bytes)) != 0) return;
    lseek(descriptor.get(), end - static_cast<off_t>(bytes), SEEK_SET);
}

}  // namespace

void require_new(const std::filesystem::path& file) {
    std::error_code ignored;
    if (std::filesystem::exists(std::filesystem::symlink_status(file, ignored)))
        throw Failure("'" + file.string() + "' exists, and is not written over");
}

CaptureWriter::CaptureWriter(const std::filesystem::path& file, CaptureDescription description,
                             Patience patience)
    : file_(file),
      description_(std::move(description)),
      descriptor_(opened(file)),
      patience_(std::move(patience)),
      waits_([this] {
          struct stat status {};
          return file_ == "-" && !is_file(descriptor_, status);
      }()) {
    if (!descriptor_) throw Failure("standard output is closed");
    begin_section(pending_, description_.comment);
}

CaptureWriter::~CaptureWriter() {
    try {
        flush();
    } catch (const Failure&) {
        // Who wanted to know has flushed before.
    }
}

void CaptureWriter::begin_interface(int link_type) {
    link_types_.push_back(link_type);
    Block block(pending_, interface_block);
    block.word(static_cast<std::uint16_t>(link_type));
    block.word(0);
    block.number(largest_captured_packet);
    block.option(interface_name, description_.interface);
    block.option(interface_resolution, std::string(1, '\x09'));
    // The first byte says that it is text.
    if (!description_.filter.empty())
        block.option(interface_filter, std::string(1, '\0') + description_.filter);
    block.end();
}

void CaptureWriter::write(const CapturedPacket& packet) {
    auto found = std::find(link_types_.begin(), link_types_.end(), packet.link_type);
    if (found == link_types_.end()) {
        begin_interface(packet.link_type);
        found = link_types_.end() - 1;
    }
    const std::size_t size = std::min(packet.data.size(), largest_captured_packet);
    Block block(pending_, packet_block);
    block.number(static_cast<std::uint32_t>(found - link_types_.begin()));
    block.time(last_time_ns_ = packet.time_ns);
    block.number(static_cast<std::uint32_t>(size));
    block.number(static_cast<std::uint32_t>(std::max(packet.original_size, size)));
    block.padded(packet.data.data(), size);
    block.option(comment_option, packet.comment);
    block.end();
    if (pending_.size() >= most_pending) flush();
}

void CaptureWriter::flush() {
    std::size_t done = 0;
    if (waits_ && pending_.empty()) wait_for_reader(0);
    while (!reader_gone_ && done < pending_.size())
        done += write_some(done);
    size_ += done;
    pending_.clear();
}

std::size_t CaptureWriter::write_some(std::size_t done) {
    if (waits_) wait_for_reader(done);
    if (reader_gone_) return 0;
    // A pipe that has room has it for so much; more would wait for the reader.
    const std::size_t most = waits_ ? PIPE_BUF : pending_.size();
    const ssize_t part =
        ::write(descriptor_.get(), pending_.data() + done, std::min(most, pending_.size() - done));
    if (part >= 0) return static_cast<std::size_t>(part);
    reader_gone_ = waits_ && (errno == EPIPE || errno == ECONNRESET);
    if (!reader_gone_ && errno != EINTR && errno != EAGAIN) give_up(done, error_text(errno));
    return 0;
}

/// Returns when there is room or the reader has gone; with nothing to write, at once.
void CaptureWriter::wait_for_reader(std::size_t done) {
    const bool writes = !pending_.empty();
    pollfd room{descriptor_.get(), static_cast<short>(writes ? POLLOUT : 0), 0};
    while (poll(&room, 1, writes ? look_ms : 0) <= 0) {
        if (!writes) return;
        if (patience_ && !patience_()) give_up(done, "its reader takes nothing");
    }
    reader_gone_ = (room.revents & POLLOUT) == 0 || (room.revents & POLLERR) != 0;
}

/// Takes back what is no whole block, which a pipe does not do.
void CaptureWriter::give_up(std::size_t done, const std::string& why) {
    pending_.clear();
    take_back(descriptor_, done);
    throw Failure("cannot write " + (file_ == "-" ? "standard output" : "'" + file_.string() + "'") + ": " +
                  why);
}

void CaptureWriter::finish(const CaptureCounts& counts) {
    if (link_types_.empty()) begin_interface(link_ethernet);
    Block block(pending_, statistics_block);
    block.number(0);
    block.time(last_time_ns_);
    block.option(statistics_received, counts.received);
    block.option(statistics_missed, counts.missed);
    block.end();
    flush();
}

}  // namespace plendix
