#include "decode/decode.h"

#include <deque>
#include <fstream>
#include <iostream>
#include <iterator>

#include "decode/picture_decoder.h"
#include "decode/picture_group.h"
#include "host/jpeg_check.h"
#include "host/plain_text.h"
#include "host/still_file.h"
#include "host/still_image.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

constexpr std::uintmax_t largest_file = 64U << 20U;  // bytes, of a picture of at most 2 MiB or so

link::Bytes read_file(const fs::path& path) {
    std::error_code error;
    const auto size = fs::file_size(path, error);
    if (error) throw Failure("cannot be read: " + error.message());
    if (size > largest_file)
        throw Failure("it has " + std::to_string(size) + " bytes, too many for a picture");
    std::ifstream file(path, std::ios::binary);
    if (!file) throw Failure("cannot be read");
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

class Decoding {
public:
    explicit Decoding(const DecodePlan& plan) : plan_(plan) {}

    int run() {
        for (const fs::path& file : plan_.files)
            try {
                take(file);
            } catch (const Failure& failure) {
                fault(file, failure.what());
            }
        group_.end();
        if (!stream_.empty()) write(plan_.output, stream_);
        if (!std::cout.flush()) throw Failure("cannot write to standard output");
        return faults_ == 0 ? exit_done : exit_failed;
    }

private:
    void take(const fs::path& file) {
        RawHints hints = plan_.hints;
        if (hints.codec == link::Kind::other) hints.codec = request_of(file.filename().string()).kind;
        const RawTransfer transfer = read_raw_transfer(read_file(file), hints);
        if (!transfer.trouble.empty()) throw Failure("no raw transfer of a picture: " + transfer.trouble);
        if (!transfer.trailer.h264) return take_jpeg(file, transfer);
        if (plan_.raw) return take_raw(file, transfer);
        if (transfer.trailer.key) group_.end();
        const std::string trouble = group_.add(transfer);
        if (!trouble.empty()) throw Failure(trouble);
        waiting_.push_back(file);  // which is handed over with the next one, at the earliest
    }

    void take_jpeg(const fs::path& file, const RawTransfer& transfer) {
        if (plan_.files.size() > 1 && !plan_.output.empty())
            throw UsageError('\'' + printable(file.string()) +
                             "' is JPEG, and -o makes one stream of H.264 only: leave it out");
        const link::Bytes jpeg =
            link::make_picture({transfer.payload.data(), transfer.payload.size()}, transfer.trailer);
        if (plan_.raw || format_for(StillFormat::jpeg) == StillFormat::jpeg) {
            write(target(file, ".jpg"), jpeg);
            const std::string complaint = jpeg_complaint(jpeg.data(), jpeg.size());
            if (complaint.empty()) return;
            const std::string words = "libjpeg says of it: " + complaint;
            return plan_.raw ? tell(file, words) : fault(file, words);
        }
        const auto picture = decode_still(FrameCodec::jpeg, jpeg);
        if (!picture) throw Failure("it does not decode");
        write(target(file, ".png"), encode_still(*picture, StillFormat::png));
    }

    /// Several become one stream where one file is named for them.
    void take_raw(const fs::path& file, const RawTransfer& transfer) {
        const link::Bytes unit =
            link::make_picture({transfer.payload.data(), transfer.payload.size()}, transfer.trailer);
        if (plan_.output.empty()) return write(target(file, ".h264"), unit);
        stream_.insert(stream_.end(), unit.begin(), unit.end());
    }

    /// Of the file that waits longest.
    void take_decoded(const PictureGroup::Decoded& decoded) {
        const fs::path file = std::move(waiting_.front());
        waiting_.pop_front();
        try {
            if (!decoded.picture) throw Failure("it does not decode: " + decoded.trouble);
            const StillFormat format = format_for(StillFormat::png);
            const char* const extension = format == StillFormat::png ? ".png" : ".jpg";
            write(target(file, extension), encode_still(*decoded.picture, format));
        } catch (const Failure& failure) {
            fault(file, failure.what());
        }
    }

    StillFormat format_for(StillFormat usual) const {
        return plan_.output.empty() || plan_.output == "-" ? usual : still_format_of(plan_.output);
    }

    fs::path target(const fs::path& file, const char* extension) const {
        return plan_.output.empty() ? fs::path(file.string() + extension) : fs::path(plan_.output);
    }

    static void write(const fs::path& file, const link::Bytes& content) {
        if (file != "-") {
            write_whole_file(file, {content.data(), content.size()});
            std::cout << printable(file.string()) << '\n';
            return;
        }
        std::cout.write(reinterpret_cast<const char*>(content.data()),
                        static_cast<std::streamsize>(content.size()));
        if (!std::cout.flush()) throw Failure("cannot write to standard output");
    }

    void fault(const fs::path& file, const std::string& what) {
        ++faults_;
        tell(file, what);
    }

    static void tell(const fs::path& file, const std::string& what) {
        std::cerr << "plendix: " << printable(file.string() + ": " + what) << '\n';
    }

    const DecodePlan& plan_;
    PictureGroup group_{[this](const PictureGroup::Decoded& decoded) { take_decoded(decoded); }};
    std::deque<fs::path> waiting_;  // files of the group
    link::Bytes stream_;
    std::size_t faults_ = 0;
};

}  // namespace

int decode_files(const DecodePlan& plan) {
    av_log_set_level(AV_LOG_QUIET);  // a picture that does not decode is told in our words
    if (!plan.raw && plan.files.size() > 1 && !plan.output.empty())
        throw UsageError("-o names one picture, and there are " + std::to_string(plan.files.size()) +
                         " files: leave it out, or give --raw for one H.264 stream");
    if (!plan.raw && !plan.output.empty() && plan.output != "-") still_format_of(plan.output);
    return Decoding(plan).run();
}

}  // namespace plendix
