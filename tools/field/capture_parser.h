// The parts of reading a capture: bytes in order with a bound, and one parser for each format.
#pragma once

#include <array>
#include <vector>

#include "field/capture_file.h"

namespace plendix {

/// The file as it comes, buffered, with its position for messages.
class CaptureInput {
public:
    explicit CaptureInput(CaptureReader::Source source);

    /// False when the file ends before; how many were there is then in `got`.
    bool read(std::uint8_t* to, std::size_t size);
    /// Into so many bytes of `to`, which grows with what is really there.
    bool read(Bytes& to, std::size_t size);
    std::size_t got() const { return got_; }
    std::uint64_t position() const { return position_; }

private:
    CaptureReader::Source source_;
    Bytes buffer_;
    std::size_t begin_ = 0, end_ = 0;
    std::size_t got_ = 0;
    std::uint64_t position_ = 0;
};

/// Numbers of a file in its byte order.
struct ByteOrder {
    bool big = false;
    std::uint16_t word(const std::uint8_t* at) const;
    std::uint32_t number(const std::uint8_t* at) const;
    std::uint64_t wide(const std::uint8_t* at) const;
};

class CaptureParser {
public:
    virtual ~CaptureParser() = default;
    virtual bool next(CapturedPacket& packet) = 0;

    bool cut_short() const { return cut_short_; }
    const std::string& damage() const { return damage_; }
    std::optional<std::uint64_t> missed() const { return missed_; }

protected:
    explicit CaptureParser(CaptureInput input) : input_(std::move(input)) {}

    bool ended() const { return cut_short_ || !damage_.empty(); }
    /// Both return false, for a parser's own return.
    bool end_short();
    bool end_damaged(std::uint64_t position, const std::string& what);

    CaptureInput input_;
    std::optional<std::uint64_t> missed_;

private:
    bool cut_short_ = false;
    std::string damage_;
};

using CaptureMagic = std::array<std::uint8_t, 4>;

/// Each takes what follows the first four bytes; nothing when they are not of its format.
std::unique_ptr<CaptureParser> pcap_parser(CaptureInput& input, const CaptureMagic& magic);
std::unique_ptr<CaptureParser> pcapng_parser(CaptureInput& input, const CaptureMagic& magic);

}  // namespace plendix
