#include <fcntl.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "field/capture_parser.h"
#include "host/descriptor.h"
#include "usage.h"

namespace plendix {
namespace {

constexpr std::size_t buffer_size = 256U << 10U;
constexpr std::size_t growth = 64U << 10U;

CaptureReader::Source source_of(const std::filesystem::path& file) {
    const bool standard = file == "-";
    auto opened = std::make_shared<Descriptor>(standard ? fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0)
                                                        : open(file.c_str(), O_RDONLY | O_CLOEXEC));
    const std::string name = standard ? "standard input" : "'" + file.string() + "'";
    if (!*opened) throw Failure("cannot open " + name + ": " + error_text(errno));
    return [opened, name](std::uint8_t* to, std::size_t size) {
        ssize_t got = 0;
        do
            got = ::read(opened->get(), to, size);
        while (got < 0 && errno == EINTR);
        if (got < 0) throw Failure("cannot read " + name + ": " + error_text(errno));
        return static_cast<std::size_t>(got);
    };
}

/// What people have in place of a capture now and then.
std::string hint(const CaptureMagic& magic) {
    const auto begins = [&](std::initializer_list<std::uint8_t> with) {
        return std::equal(with.begin(), with.end(), magic.begin());
    };
    if (begins({0x1F, 0x8B})) return ": it is compressed, gunzip unpacks it";
    if (begins({0x28, 0xB5, 0x2F, 0xFD})) return ": it is compressed, unzstd unpacks it";
    return ": neither pcapng nor pcap";
}

std::unique_ptr<CaptureParser> parser_of(CaptureReader::Source source, const std::string& name) {
    CaptureInput input(std::move(source));
    CaptureMagic magic{};
    if (!input.read(magic.data(), magic.size()))
        throw Failure(name +
                      (input.got() == 0 ? " is empty" : " is no capture: it has less than four bytes"));
    auto parser = pcapng_parser(input, magic);
    if (!parser) parser = pcap_parser(input, magic);
    if (!parser) throw Failure(name + " is no capture" + hint(magic));
    return parser;
}

}  // namespace

CaptureInput::CaptureInput(CaptureReader::Source source) : source_(std::move(source)), buffer_(buffer_size) {}

bool CaptureInput::read(std::uint8_t* to, std::size_t size) {
    for (got_ = 0; got_ < size;) {
        if (begin_ == end_) {
            begin_ = 0;
            end_ = std::min(source_(buffer_.data(), buffer_.size()), buffer_.size());
            if (end_ == 0) return false;
        }
        const std::size_t part = std::min(size - got_, end_ - begin_);
        std::memcpy(to + got_, buffer_.data() + begin_, part);
        begin_ += part;
        got_ += part;
        position_ += part;
    }
    return true;
}

bool CaptureInput::read(Bytes& to, std::size_t size) {
    std::size_t have = 0;
    while (have < size) {
        const std::size_t part = std::min(size - have, growth);
        to.resize(have + part);
        if (!read(to.data() + have, part)) return false;
        have += part;
    }
    to.resize(size);
    return true;
}

std::uint16_t ByteOrder::word(const std::uint8_t* at) const {
    return static_cast<std::uint16_t>(big ? at[0] << 8U | at[1] : at[1] << 8U | at[0]);
}

std::uint32_t ByteOrder::number(const std::uint8_t* at) const {
    const std::uint32_t first = word(at), second = word(at + 2);
    return big ? first << 16U | second : second << 16U | first;
}

std::uint64_t ByteOrder::wide(const std::uint8_t* at) const {
    const std::uint64_t first = number(at), second = number(at + 4);
    return big ? first << 32U | second : second << 32U | first;
}

bool CaptureParser::end_short() {
    cut_short_ = true;
    return false;
}

bool CaptureParser::end_damaged(std::uint64_t position, const std::string& what) {
    damage_ = "damaged at byte " + std::to_string(position) + ": " + what;
    return false;
}

CaptureReader::CaptureReader(const std::filesystem::path& file)
    : CaptureReader(source_of(file), file == "-" ? "standard input" : "'" + file.string() + "'") {}

CaptureReader::CaptureReader(Source source, const std::string& name)
    : parser_(parser_of(std::move(source), name)) {}

CaptureReader::~CaptureReader() = default;
CaptureReader::CaptureReader(CaptureReader&&) noexcept = default;
CaptureReader& CaptureReader::operator=(CaptureReader&&) noexcept = default;

bool CaptureReader::next(CapturedPacket& packet) {
    return parser_->next(packet);
}

bool CaptureReader::cut_short() const {
    return parser_->cut_short();
}

const std::string& CaptureReader::damage() const {
    return parser_->damage();
}

std::optional<std::uint64_t> CaptureReader::missed() const {
    return parser_->missed();
}

}  // namespace plendix
