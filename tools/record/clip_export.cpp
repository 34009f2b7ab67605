#include "record/clip_export.h"

#include <fcntl.h>
#include <stdio.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/write_failure.h"
#include "record/clip_source.h"
#include "record/clock_text.h"
#include "record/matroska_writer.h"
#include "record/segment_name.h"
#include "usage.h"

namespace plendix {
namespace {

namespace fs = std::filesystem;

void require_wanted(const Stopped& stopped) {
    if (stopped()) throw Failure("interrupted: nothing was written");
}

/// Time of the key frame that a clip of this plan begins with; nothing when the source ends
/// before it.
std::optional<std::int64_t> first_key(const ClipSource& source, const ClipPlan& plan,
                                      const Stopped& stopped) {
    std::optional<std::int64_t> key_ms;
    ClipReader reader(source, plan.from_ms);
    while (reader.next()) {
        require_wanted(stopped);
        const std::int64_t time_ms = reader.time_ms();
        if (time_ms >= plan.to_ms) return std::nullopt;
        if (reader.key() && (time_ms <= plan.from_ms || !key_ms)) key_ms = time_ms;
        if (time_ms >= plan.from_ms && key_ms) return key_ms;
    }
    return std::nullopt;
}

std::string text_of(const PictureFormat& format) {
    return std::to_string(format.width) + 'x' + std::to_string(format.height) +
           (format.codec == FrameCodec::h264 ? " H.264" : " JPEG");
}

void require_one_format(const ClipPlan& plan, const std::vector<ClipSource>& sources) {
    for (std::size_t i = 1; i < sources.size(); ++i) {
        const PictureFormat &before = sources[i - 1].format, &now = sources[i].format;
        if (before == now) continue;
        const std::string time = moment_text(sources[i].start_ms, plan.utc);
        const std::string after = text_of(before) == text_of(now) ? "other parameter sets" : text_of(now);
        std::string text = "camera " + std::to_string(plan.camera) + " changed from " + text_of(before);
        text.append(" to ").append(after).append(" at ").append(time);
        throw Failure(text.append(", and a clip has one format: make one up to then and one from then on"));
    }
}

/// A clip among the segments would take the place of one, or look like one.
void require_outside(const ClipPlan& plan) {
    const fs::path place = fs::absolute(plan.output)
                               .lexically_normal()
                               .lexically_relative(fs::absolute(plan.folder).lexically_normal());
    if (!place.empty() && parse_camera_folder(place.begin()->string()) != 0)
        throw UsageError("'" + plan.output.string() + "' is among the segments: name a file elsewhere");
}

/// The output under its temporary name, which goes when nothing comes of it.
class TemporaryOutput {
public:
    explicit TemporaryOutput(const ClipPlan& plan)
        : plan_(plan), path_(plan.output.string() + ".part-" + std::to_string(::getpid())) {
        if (!plan.replace && fs::exists(plan.output)) refuse();
    }
    ~TemporaryOutput() { ::unlink(path_.c_str()); }
    TemporaryOutput(const TemporaryOutput&) = delete;
    TemporaryOutput& operator=(const TemporaryOutput&) = delete;

    const fs::path& path() const { return path_; }
    void keep() const {
        const unsigned flags = plan_.replace ? 0 : RENAME_NOREPLACE;
        if (::renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, plan_.output.c_str(), flags) == 0) return;
        if (errno == EEXIST) refuse();
        // Not every file system knows that call: the name was free a moment ago.
        if (errno != EINVAL || ::rename(path_.c_str(), plan_.output.c_str()) != 0)
            throw WriteFailure(plan_.output, errno);
    }

private:
    void refuse() const {
        throw UsageError("'" + plan_.output.string() + "' exists: name another file, or --replace it");
    }
    const ClipPlan& plan_;
    fs::path path_;
};

/// Copies frames from a moment on, segment after segment.
class ClipWriter {
public:
    ClipWriter(const ClipPlan& plan, fs::path file, const Stopped& stopped)
        : plan_(plan), file_(std::move(file)), stopped_(stopped) {}

    void copy(const ClipSource& source, std::int64_t from_ms) {
        ClipReader reader(source, from_ms);
        std::optional<std::int64_t>
            later_ms;  // where the clock was set back, the segment follows the one before
        while (reader.next() && reader.time_ms() < plan_.to_ms) {
            const std::int64_t time_ms = reader.time_ms();
            if (time_ms < from_ms) continue;
            require_wanted(stopped_);
            if (!later_ms)
                later_ms = clip_.frames == 0 ? 0 : std::max<std::int64_t>(clip_.last_ms + 1 - time_ms, 0);
            write(source, reader, time_ms + *later_ms);
        }
    }
    Clip close() {
        if (writer_) writer_->close();
        return clip_;
    }

private:
    void write(const ClipSource& source, const ClipReader& reader, std::int64_t time_ms) {
        if (!writer_) {
            writer_ = std::make_unique<MatroskaWriter>(file_, source.format, time_ms);
            clip_.first_ms = time_ms;
        }
        writer_->write(reader.picture(), reader.key(), time_ms - clip_.first_ms);
        clip_.last_ms = time_ms;
        ++clip_.frames;
    }

    const ClipPlan& plan_;
    fs::path file_;
    const Stopped& stopped_;
    std::unique_ptr<MatroskaWriter> writer_;
    Clip clip_;
};

struct Parts {
    std::vector<ClipSource> sources;
    std::int64_t key_ms = 0;  // of the picture in the first that a clip begins with
};

Parts parts_of(const ClipPlan& plan, const Stopped& stopped) {
    std::vector<ClipSource> sources = clip_sources(plan);
    std::optional<std::int64_t> key_ms;
    while (!sources.empty() && !(key_ms = first_key(sources.front(), plan, stopped)))
        sources.erase(sources.begin());  // it ends before the span
    if (!key_ms)
        throw Failure("camera " + std::to_string(plan.camera) + " has no picture from " +
                      moment_text(plan.from_ms, plan.utc) + " to " + moment_text(plan.to_ms, plan.utc) +
                      " in '" + plan.folder.string() + "'");
    require_one_format(plan, sources);
    return {std::move(sources), *key_ms};
}

}  // namespace

void check_clip(const ClipPlan& plan, const Stopped& stopped) {
    parts_of(plan, stopped);
}

Clip export_clip(const ClipPlan& plan, const Stopped& stopped) {
    require_outside(plan);
    const TemporaryOutput output(plan);
    const auto [sources, key_ms] = parts_of(plan, stopped);
    ClipWriter writer(plan, output.path(), stopped);
    for (const ClipSource& source : sources)
        writer.copy(source, &source == &sources.front() ? key_ms : plan.from_ms);
    const Clip clip = writer.close();
    output.keep();
    return clip;
}

}  // namespace plendix
