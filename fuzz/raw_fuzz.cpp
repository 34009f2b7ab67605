// Files that may be raw transfers, and the pictures in them, up to the decoder.
#include "decode/jpeg_scan.h"
#include "decode/picture_group.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr plendix::link::Kind codecs[] = {plendix::link::Kind::other, plendix::link::Kind::jpeg,
                                              plendix::link::Kind::h264};
    plendix::PictureGroup group;
    while (size > 4) {  // several files: how it was fetched, how long it is, its bytes
        plendix::RawHints hints;
        hints.codec = codecs[data[0] % 3];
        if (data[1] > 0) hints.block_size = 93U + data[1];
        const std::size_t length = std::min<std::size_t>(data[2] << 8U | data[3], size - 4);
        const plendix::link::Bytes file(data + 4, data + 4 + length);
        data += 4 + length, size -= 4 + length;
        const plendix::RawTransfer transfer = plendix::read_raw_transfer(file, hints);
        if (!transfer.trouble.empty()) continue;
        if (transfer.trailer.h264)
            group.add(transfer);
        else
            plendix::restart_complaint(plendix::scan_jpeg({transfer.payload.data(), transfer.payload.size()}),
                                       transfer.trailer.width(), transfer.trailer.height());
    }
    return 0;
}
