// Element IDs of Matroska files.
#pragma once

#include <cstdint>

namespace plendix {

enum MatroskaId : std::uint32_t {  // RFC 9559, 5.1
    id_ebml = 0x1A45DFA3,
    id_ebml_version = 0x4286,
    id_ebml_read_version = 0x42F7,
    id_ebml_longest_id = 0x42F2,
    id_ebml_longest_size = 0x42F3,
    id_doc_type = 0x4282,
    id_doc_type_version = 0x4287,
    id_doc_type_read_version = 0x4285,
    id_segment = 0x18538067,
    id_seek_head = 0x114D9B74,
    id_seek = 0x4DBB,
    id_seek_id = 0x53AB,
    id_seek_position = 0x53AC,
    id_info = 0x1549A966,
    id_timestamp_scale = 0x2AD7B1,
    id_duration = 0x4489,
    id_date = 0x4461,
    id_muxing_app = 0x4D80,
    id_writing_app = 0x5741,
    id_tracks = 0x1654AE6B,
    id_track = 0xAE,
    id_track_number = 0xD7,
    id_track_uid = 0x73C5,
    id_track_type = 0x83,
    id_lacing = 0x9C,
    id_language = 0x22B59C,
    id_codec = 0x86,
    id_codec_private = 0x63A2,
    id_video = 0xE0,
    id_width = 0xB0,
    id_height = 0xBA,
    id_cluster = 0x1F43B675,
    id_checksum = 0xBF,
    id_timestamp = 0xE7,
    id_simple_block = 0xA3,
    id_cues = 0x1C53BB6B,
    id_cue_point = 0xBB,
    id_cue_time = 0xB3,
    id_cue_positions = 0xB7,
    id_cue_track = 0xF7,
    id_cue_cluster = 0xF1,
};

}  // namespace plendix
