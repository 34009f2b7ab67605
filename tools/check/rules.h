// The rules that a camera is checked by: names and words.
#pragma once

#include <array>
#include <cstddef>
#include <string>

namespace plendix::check {

enum class Rule : std::size_t {
    answers_all,
    answers_refused,
    answers_port,
    answers_sender,
    answers_packets,
    answers_once,
    answers_prompt,
    requests_mode,
    requests_options,
    requests_keys,
    requests_register,
    requests_file,
    requests_replace,
    requests_silence,
    options_acknowledged,
    options_size,
    options_other,
    options_wait,
    blocks_numbers,
    blocks_complete,
    blocks_wait,
    blocks_acks,
    blocks_repeat,
    blocks_full,
    blocks_end,
    blocks_room,
    registers_bytes,
    registers_model,
    registers_firmware,
    registers_sensor,
    registers_unread,
    registers_2,
    registers_15,
    registers_16,
    registers_109,
    registers_110,
    registers_111,
    registers_setup,
    registers_trigger,
    registers_relay,
    registers_kept,
    pictures_codec,
    pictures_trailer,
    pictures_mac,
    pictures_padding,
    jpeg_trailer,
    jpeg_area,
    jpeg_half,
    jpeg_quality,
    jpeg_markers,
    jpeg_end,
    jpeg_libjpeg,
    jpeg_libav,
    h264_trailer,
    h264_area,
    h264_half,
    h264_qp,
    h264_begins,
    h264_request,
    h264_ssn,
    h264_slices,
    h264_libav,
    stream_row,
    count
};

constexpr std::size_t rules = static_cast<std::size_t>(Rule::count);

struct RuleWords {
    std::string name;  // "blocks.numbers": group and rule
    std::string text;  // what is required
};

const std::array<RuleWords, rules>& rule_words();

}  // namespace plendix::check
