#include "container/matroska_cluster.h"

#include <libdeflate.h>

#include "container/ebml.h"
#include "container/matroska_ids.h"

namespace plendix {
namespace {

constexpr std::size_t cluster_head_bytes = 55;  // up to the picture
constexpr std::size_t checked_from = 25;        // behind ID, size and checksum
constexpr std::size_t checksum_bytes = 4;
constexpr std::size_t block_head_bytes = 4;
constexpr std::size_t length_bytes = 4;  // of a unit

}  // namespace

const Pieces& MatroskaCluster::build(const Pieces& picture, bool key, std::int64_t time_ms) {
    gather(picture, key, time_ms);
    put_checksum();
    return pieces_;
}

/// Fills pieces_ with the whole cluster; the checksum is still to come, behind its head.
void MatroskaCluster::gather(const Pieces& picture, bool key, std::int64_t time_ms) {
    const std::size_t lengths = units_ ? picture.size() * length_bytes : 0;
    std::uint64_t bytes = lengths;
    for (const Piece& piece : picture)
        bytes += piece.size;
    head_.clear();
    put_id(head_, id_cluster);
    put_size(head_, cluster_head_bytes - 12 + bytes);
    put_id(head_, id_checksum);
    put_size(head_, checksum_bytes);
    put_big_endian(head_, 0, checksum_bytes);
    put_number(head_, id_timestamp, static_cast<std::uint64_t>(time_ms));
    put_id(head_, id_simple_block);
    put_size(head_, block_head_bytes + bytes);
    // Track 1, at the cluster's time.
    head_.insert(head_.end(), {0x81, 0, 0, static_cast<std::uint8_t>(key ? 0x80 : 0)});
    if (units_)
        for (const Piece& piece : picture)
            put_big_endian(head_, piece.size, length_bytes);

    pieces_.assign(1, {head_.data(), cluster_head_bytes});
    for (std::size_t i = 0; i < picture.size(); ++i) {
        if (units_) pieces_.push_back({head_.data() + cluster_head_bytes + i * length_bytes, length_bytes});
        pieces_.push_back(picture[i]);
    }
}

void MatroskaCluster::put_checksum() {
    std::uint32_t sum = libdeflate_crc32(0, head_.data() + checked_from, cluster_head_bytes - checked_from);
    for (std::size_t i = 1; i < pieces_.size(); ++i)
        sum = libdeflate_crc32(sum, pieces_[i].data, pieces_[i].size);
    for (std::size_t i = 0; i < checksum_bytes; ++i)  // little-endian, of all things
        head_[checked_from - checksum_bytes + i] = static_cast<std::uint8_t>(sum >> (8 * i));
}

}  // namespace plendix
