#include "decode/raw_transfer.h"

#include <algorithm>
#include <array>
#include <cctype>

#include "decode/jpeg_scan.h"
#include "decode/slice_header.h"

namespace plendix {
namespace {

constexpr std::array<std::size_t, 6> usual_sizes{link::usual_block_size, 512, 1024, 1428, 4096, 8192};
constexpr std::size_t longest_trailer = 256;  // bytes
constexpr std::size_t usual_trailer = 100;    // bytes at most

std::string bytes_text(std::size_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

std::string content_complaint(link::View payload, const link::Trailer& trailer) {
    if (trailer.h264) {
        if (has_start_code(payload) || read_slice_header(payload)) return {};
        return "it does not begin with an H.264 slice";
    }
    const JpegScan scan = scan_jpeg(payload);
    if (scan.end == 0) return "the JPEG picture in it has no end (FF D9)";
    const auto* const end = payload.data + payload.size;
    const bool padded =
        std::all_of(payload.data + scan.end, end, [](std::uint8_t byte) { return byte == 0; });
    return padded ? "" : "other bytes than zeros are between its JPEG picture and its trailer";
}

/// With a trailer of so many bytes.
RawTransfer divided(const link::Bytes& file, std::size_t trailer_size) {
    RawTransfer transfer;
    const std::size_t size = file.size() - trailer_size;
    const auto trailer = link::parse_trailer({file.data() + size, trailer_size});
    if (!trailer) {
        transfer.trouble = "a trailer has 90 bytes or more, not " + std::to_string(trailer_size);
    } else if (trailer_size > longest_trailer) {
        transfer.trouble = "its last block has " + bytes_text(trailer_size) + ", too many for a trailer";
    } else if (size == 0) {
        transfer.trouble = "it has a trailer and no picture";
    } else {
        transfer.trailer = *trailer;
        transfer.trouble = link::trailer_complaint(*trailer);
        if (!transfer.trouble.empty()) transfer.trouble = "its trailer has " + transfer.trouble;
        if (transfer.trouble.empty()) transfer.trouble = content_complaint({file.data(), size}, *trailer);
        transfer.payload.assign(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(size));
    }
    return transfer;
}

/// A guess needs more than that nothing speaks against it: 93 bytes from the middle of a picture may look
/// like a trailer.
bool convincing(const RawTransfer& transfer, std::size_t trailer_size) {
    constexpr int macroblock = 16;
    const link::Trailer& trailer = transfer.trailer;
    const int unit = trailer.h264 ? macroblock : 1;
    return transfer.trouble.empty() && trailer_size <= usual_trailer && transfer.payload.back() == 0 &&
           trailer.width() > 0 && trailer.width() % unit == 0 && trailer.height() > 0 &&
           trailer.height() % unit == 0 && trailer.mac != decltype(trailer.mac){};
}

bool begins_with(const link::Bytes& file, std::initializer_list<std::uint8_t> bytes) {
    return file.size() >= bytes.size() && std::equal(bytes.begin(), bytes.end(), file.begin());
}

/// Of files that are something else.
std::string other_file(const link::Bytes& file) {
    if (file.empty()) return "it is empty";
    if (file.size() == 2)
        return "it is the answer of a register, " + std::to_string(file[0] << 8 | file[1]) +
               ", and no picture";
    if (begins_with(file, {0xFF, 0xD8, 0xFF})) return "it is a JPEG file already";
    if (begins_with(file, {0, 0, 1, 0x67}) || begins_with(file, {0, 0, 0, 1, 0x67}))
        return "it is an H.264 stream already";
    if (file.size() <= link::trailer_size)
        return bytes_text(file.size()) + " are too few for a picture and its trailer";
    return {};
}

std::string advice(std::size_t block_size) {
    return " (blocks of " + std::to_string(block_size) +
           " bytes): it was cut short, or fetched with another --block-size";
}

}  // namespace

RawTransfer read_raw_transfer(const link::Bytes& file, const RawHints& hints) {
    RawTransfer transfer;
    transfer.trouble = other_file(file);
    if (!transfer.trouble.empty()) return transfer;
    const std::size_t first = hints.block_size.value_or(usual_sizes.front());
    transfer = divided(file, file.size() % first);
    if (transfer.trouble.empty()) return transfer;
    std::vector<std::size_t> guesses;
    if (!hints.block_size)
        for (const std::size_t size : usual_sizes)
            guesses.push_back(file.size() % size);
    if (hints.codec != link::Kind::other)
        guesses.push_back(hints.codec == link::Kind::h264 ? link::h264_trailer_size : link::trailer_size);
    for (const std::size_t trailer_size : guesses) {
        RawTransfer guess = divided(file, trailer_size);
        if (convincing(guess, trailer_size)) return guess;
    }
    transfer.trouble += advice(first);
    return transfer;
}

link::FileName request_of(std::string_view file_name) {
    std::string name;
    for (std::size_t at = 0; at < file_name.size(); ++at) {
        const std::string_view escape = file_name.substr(at, 3);
        const bool question = escape == "%3F" || escape == "%3f",
                   semicolon = escape == "%3B" || escape == "%3b";
        const bool equals = escape == "%3D" || escape == "%3d";
        name += question ? '?' : semicolon ? ';' : equals ? '=' : file_name[at];
        if (question || semicolon || equals) at += 2;
    }
    return link::parse_file_name(name);
}

}  // namespace plendix
