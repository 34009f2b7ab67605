#include "media/parameter_sets.h"

#include "media/bitstream.h"

namespace {

constexpr std::uint32_t start_code = 1;  // as a field of 24 bits

// Size in macroblocks less one, as the SPS codes it.
std::uint32_t MbsMinus1(int pixels) {
    return static_cast<std::uint32_t>(pixels / MacroblockSize - 1);
}

void WriteSps(bs_s& bs, int width, int height) {
    bs_write_bits(bs, 24, start_code);
    bs_write_bits(bs, 8, 0x67);          // nal_ref_idc 3, nal_unit_type 7
    bs_write_bits(bs, 8, 66);            // profile_idc: Baseline
    bs_write_bits(bs, 4, 0);             // constraint_set0_flag to constraint_set3_flag
    bs_write_bits(bs, 4, 0);             // reserved_zero_4bits
    bs_write_bits(bs, 8, 32);            // level_idc: the cameras' level, whatever the size
    bs_write_ue(bs, 0);                  // seq_parameter_set_id
    bs_write_ue(bs, 0);                  // log2_max_frame_num_minus4
    bs_write_ue(bs, 0);                  // pic_order_cnt_type
    bs_write_ue(bs, 1);                  // log2_max_pic_order_cnt_lsb_minus4
    bs_write_ue(bs, 1);                  // num_ref_frames
    bs_write_bits(bs, 1, 0);             // gaps_in_frame_num_value_allowed_flag
    bs_write_ue(bs, MbsMinus1(width));   // pic_width_in_mbs_minus1
    bs_write_ue(bs, MbsMinus1(height));  // pic_height_in_map_units_minus1
    bs_write_bits(bs, 1, 1);             // frame_mbs_only_flag
    bs_write_bits(bs, 1, 1);             // direct_8x8_inference_flag
    bs_write_bits(bs, 1, 0);             // frame_cropping_flag
    bs_write_bits(bs, 1, 0);             // vui_parameters_present_flag
    bs_write_trailing(bs);
}

void WritePps(bs_s& bs, bool deblocking_control) {
    bs_write_bits(bs, 24, start_code);
    bs_write_bits(bs, 8, 0x68);                        // nal_ref_idc 3, nal_unit_type 8
    bs_write_ue(bs, 0);                                // pic_parameter_set_id
    bs_write_ue(bs, 0);                                // seq_parameter_set_id
    bs_write_bits(bs, 1, 0);                           // entropy_coding_mode_flag: CAVLC
    bs_write_bits(bs, 1, 0);                           // pic_order_present_flag
    bs_write_ue(bs, 0);                                // num_slice_groups_minus1
    bs_write_ue(bs, 0);                                // num_ref_idx_l0_active_minus1
    bs_write_ue(bs, 0);                                // num_ref_idx_l1_active_minus1
    bs_write_bits(bs, 1, 0);                           // weighted_pred_flag
    bs_write_bits(bs, 2, 0);                           // weighted_bipred_idc
    bs_write_ue(bs, 0);                                // pic_init_qp_minus26; se(0) is ue(0)
    bs_write_ue(bs, 0);                                // pic_init_qs_minus26
    bs_write_ue(bs, 0);                                // chroma_qp_index_offset
    bs_write_bits(bs, 1, deblocking_control ? 1 : 0);  // deblocking_filter_control_present_flag
    bs_write_bits(bs, 1, 0);                           // constrained_intra_pred_flag
    bs_write_bits(bs, 1, 0);                           // redundant_pic_cnt_present_flag
    bs_write_trailing(bs);
}

}  // namespace

int create_sps_pps(int width, int height, int deblocking_off, unsigned char* buf, int size) {
    bs_s bs;
    bs_start(bs, buf, size);
    WriteSps(bs, width, height);
    WritePps(bs, deblocking_off == 0);
    return bs_length(bs);
}

int create_unit_delimiter(int primary_pic_type, unsigned char* buf, int size) {
    bs_s bs;
    bs_start(bs, buf, size);
    bs_write_bits(bs, 24, start_code);
    bs_write_bits(bs, 8, 9);  // nal_ref_idc 0, nal_unit_type 9
    bs_write_bits(bs, 3, static_cast<std::uint32_t>(primary_pic_type) & 7);
    bs_write_trailing(bs);
    return bs_length(bs);
}
