// The recording's folder: names, motion files, retention, lock, replacement, repair, search and export.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include <fstream>
#include <thread>

#include "camera/picture/gallery.h"
#include "record/clip_export.h"
#include "record/clock_text.h"
#include "record/decode_check.h"
#include "record/folder_lock.h"
#include "record/matroska_writer.h"
#include "record/motion_file.h"
#include "record/motion_search.h"
#include "record/movie_file.h"
#include "record/open_segments.h"
#include "record/replacement.h"
#include "record/retention.h"
#include "record/segment_name.h"
#include "record/segment_repair.h"
#include "support/folder.h"
#include "usage.h"

using namespace plendix;
using namespace std::chrono_literals;
using testing::HasSubstr;
namespace fs = std::filesystem;

namespace {

constexpr std::int64_t noon = 1795435200000;  // 2026-11-23T12:00:00Z
const std::string today = "camera-1/2026-11-23/";

std::string content(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// A file of so many bytes, which take no space on the disk, last changed at a time.
void put(const fs::path& file, std::uintmax_t bytes, std::int64_t changed_ms) {
    if (file.has_parent_path()) fs::create_directories(file.parent_path());
    std::ofstream(file).flush();
    fs::resize_file(file, bytes);
    const timespec times[2] = {{0, UTIME_OMIT}, {changed_ms / 1000, changed_ms % 1000 * 1'000'000}};
    ASSERT_EQ(utimensat(AT_FDCWD, file.c_str(), times, 0), 0) << file;
}

std::vector<std::string> tree() {
    std::vector<std::string> files;
    for (const auto& entry : fs::recursive_directory_iterator("."))
        files.push_back(entry.path().string().substr(2));
    std::sort(files.begin(), files.end());
    return files;
}

/// Pictures of the generated scene, 40 ms apart, every 32nd a key frame with H.264. Closed at the end,
/// unless the writer is kept.
void movie(const fs::path& stem, std::int64_t start_ms, bool h264, std::size_t frames, int width = 96,
           std::unique_ptr<MatroskaWriter>* kept = nullptr) {
    fs::create_directories(stem.parent_path());
    camera::Gallery gallery(camera::generated_loop(), 100'000'000);
    camera::PictureRequest request;
    request.h264 = h264;
    request.area = {0, 0, width, 16};
    std::unique_ptr<MatroskaWriter> writer;
    for (std::size_t i = 0; i < frames; ++i) {
        const auto* picture = gallery.picture(request, request.area, i % 64);
        H264Frame frame;
        split_h264(*picture->file(), frame);
        const PictureFormat format = h264 ? h264_format(frame) : jpeg_format(*picture->file());
        if (!writer) writer = std::make_unique<MatroskaWriter>(stem.string() + ".mkv", format, start_ms);
        const Pieces whole{{picture->file()->data(), picture->file()->size()}};
        writer->write(h264 ? frame.picture : whole, picture->key(), 40 * static_cast<std::int64_t>(i));
    }
    if (kept != nullptr) *kept = std::move(writer);
}

std::vector<std::int64_t> times_of(const fs::path& file) {
    MovieFile movie(file);
    const LibavPointer<AVPacket> packet(av_packet_alloc());
    std::vector<std::int64_t> times;
    while (movie.read(*packet))
        times.push_back(movie.start_ms() + packet->pts);
    return times;
}

}  // namespace

TEST(SegmentName, SortsAsRecordedAndReadsBack) {
    const TemporaryFolder folder;
    EXPECT_EQ(segment_stem(1, noon + 7205999, TimeNames::utc), today + "14-00-05");
    setenv("TZ", "UTC-5:30", 1);
    tzset();
    tzset();
    EXPECT_EQ(segment_stem(255, noon + 6 * 3600000, TimeNames::local), "camera-255/2026-11-23/23-30-00");
    EXPECT_EQ(segment_stem(1, noon + 7 * 3600000, TimeNames::local), "camera-1/2026-11-24/00-30-00");
    EXPECT_EQ(parse_moment("", "2026-11-23T17:30", false, DayMeans::its_end), noon);
    EXPECT_EQ(moment_text(noon, false), "2026-11-23T17:30:00.000");
    unsetenv("TZ");
    tzset();
    tzset();
    EXPECT_EQ(parse_moment("", "2026-11-23", true, DayMeans::its_end), noon + 12 * 3600000);
    EXPECT_EQ(parse_moment("", "2026-11-23 12:00:05.25Z", false, DayMeans::its_end), noon + 5250);
    for (const char* bad : {"", "2026-02-30", "2026-11-23T", "2026-11-23T24:00", "1969-12-31", "12:00", "-1"})
        EXPECT_THROW(parse_moment("--to", bad, true, DayMeans::its_end), UsageError) << bad;

    std::vector<fs::path> stems;
    for (int i = 0; i < 12; ++i) {
        stems.push_back(free_stem(".", today + "14-00-05"));
        put(stems.back().string() + (i % 2 == 0 ? ".mkv" : ".motion"), 1, noon);
        ASSERT_TRUE(parse_stem(stems.back())) << stems.back();
        EXPECT_EQ(stem_path(*parse_stem(stems.back())), stems.back());
    }
    EXPECT_EQ(stems[1], today + "14-00-05_02");
    EXPECT_LT(today + "14-00-05.mkv", stems[1].string() + ".mkv");
    EXPECT_TRUE(std::is_sorted(stems.begin() + 1, stems.end()));
    for (const char* bad : {"camera-0/2026-11-23/14-00-05", "camera-01/2026-11-23/14-00-05", "14-00-05",
                            "camera-256/2026-11-23/14-00-05", "camera-1/2026-13-23/14-00-05", "",
                            "camera-1/2026-11-23/24-00-05", "camera-1/2026-11-23/14-00-05_1", "camera-1/",
                            "camera-1/2026-11-23/14-00-05_01", "camera-1/2026-11-23/14-00-05_002",
                            "camera-1/2026-11-23/14-00-05/", "./camera-1/2026-11-23/14-00-05"})
        EXPECT_FALSE(parse_stem(bad)) << bad;
}

TEST(MotionFile, KeepsWholeRecordsWhateverFollows) {
    const TemporaryFolder folder;
    const MotionZones zones{0x80, 0, 0, 0x18, 0, 0, 0, 0x01};
    const auto expect_records = [&](std::size_t count) {
        const MotionFile file("m.motion");
        ASSERT_EQ(file.size(), count);
        EXPECT_EQ(file.camera(), count == 0 ? file.camera() : 200);
        for (std::size_t i = 0; i < count; ++i) {
            const MotionRecord record = file.record(i);
            EXPECT_EQ(record.since_start_ms, static_cast<std::int64_t>(i) * 0x123456789A);
            EXPECT_EQ(record.enabled, i % 2 == 1);
            EXPECT_EQ(record.zones, zones);
        }
    };
    {
        MotionWriter writer("m.motion", 200, noon);
        EXPECT_FALSE(fs::exists("m.motion"));
        rlimit before{};
        getrlimit(RLIMIT_FSIZE, &before);
        signal(SIGXFSZ, SIG_IGN);
        for (std::int64_t i = 0; i < 3; ++i) {
            for (const rlim_t limit : {rlim_t{16 * static_cast<rlim_t>(i) + 21}, before.rlim_cur}) {
                const rlimit full{limit, before.rlim_max};  // a disk that takes half of it
                setrlimit(RLIMIT_FSIZE, &full);
                const MotionRecord record{i * 0x123456789A, i % 2 == 1, zones};
                if (limit == before.rlim_cur) {
                    writer.write(record);
                } else {
                    EXPECT_THROW(writer.write(record), Failure);
                    EXPECT_EQ(fs::file_size("m.motion"), i == 0 ? 0U : 16U * static_cast<unsigned>(i) + 16);
                }
            }
        }
        expect_records(3);
        EXPECT_THROW(MotionWriter("m.motion", 200, noon).write({}), Failure) << "the file is another's";
    }
    const std::string whole = content("m.motion");
    EXPECT_EQ(whole.substr(0, 24),
              std::string("PMot\x01\xC8\x10\0\0\xFE\x46\x08\xA2\x01\0\0\0\0\0\0\0\0\0\xA5", 24));
    for (std::size_t length = 0; length <= whole.size() + 40; ++length) {  // torn, or ended by zeros
        std::string bytes = whole.substr(0, length);
        bytes.resize(length);
        std::ofstream("m.motion") << bytes;
        if (length > 0 && length < 16) {
            EXPECT_THROW(MotionFile("m.motion"), Failure) << length;
            EXPECT_THROW(motion_bounds("m.motion"), Failure) << length;
        } else {
            expect_records(length < 16 ? 0 : std::min<std::size_t>((length - 16) / 16, 3));
            EXPECT_GE(motion_bounds("m.motion").last_ms, length < 16 ? 0 : noon);
        }
    }
    for (std::size_t at = 0; at < 16; ++at) {  // any header: refused or safe to read
        std::string bytes = whole;
        bytes[at] = static_cast<char>(bytes[at] ^ 0x81);
        std::ofstream("m.motion") << bytes;
        try {
            const MotionFile file("m.motion");
            EXPECT_LE(file.size(), 3U);
            EXPECT_GT(at, 4U);
        } catch (const Failure&) {
            EXPECT_TRUE(at < 5 || at == 6 || at > 12) << at;
        }
    }
}

TEST(Retention, RemovesTheOldestClosedSegmentsAndNothingElse) {
    const TemporaryFolder folder;
    constexpr std::int64_t hour = 3600000;
    const std::string old = "camera-1/2026-11-22/20-00-00", other = "camera-2/2026-11-23/";
    const std::string open = today + "11-00-00", early = today + "02-00-00", large = other + "01-00-00";
    const std::string foreign[] = {"camera-1/2026-11-22/notes.txt",          "camera-1/2026-11-22/20-00.mkv",
                                   "camera-2/2026-11-23/01-00-00.mkv.part",  "camera-2/clip.mkv",
                                   "camera-300/2026-11-22/20-00-00.mkv",     "events-2026-11-19.jsonl.gz",
                                   "camera-1/2026-11-21/01-00-00.mkv/a.mkv", "target"};
    for (const auto& file : foreign)
        put(file, 3000, 0);
    fs::create_symlink("../../target", "camera-1/2026-11-21/02-00-00.mkv");
    const struct {
        RetentionLimits limits;
        std::size_t removed;
        std::vector<std::string> gone;
    } cases[] = {
        {{24h, 0, false}, 0, {"events-2026-11-20.jsonl"}},
        {{9h + 30min, 0, false}, 2, {old + ".mkv", old + ".motion", old + ".jpg", large + ".mkv"}},
        {{0h, 1430, false}, 0, {}},
        {{0h, 1429, false}, 1, {old + ".mkv", old + ".motion", old + ".jpg"}},
        {{0h, 1399, false}, 2, {old + ".mkv", large + ".mkv"}},
        {{0h, 200, true}, 3, {old + ".mkv", early + ".mkv", large + ".mkv"}},
        {{0h, 1, false}, 5, {old + ".mkv", early + "_02.mkv", other + "09-00-00.mkv"}},
    };
    for (const auto& row : cases) {
        for (const char* extension : {".mkv", ".motion", ".jpg"})
            put(old + extension, 10, noon - 15 * hour);
        put(large + ".mkv", 1000, noon - 10 * hour);
        put(early + ".mkv", 100, noon - 9 * hour);
        put(early + "_02.mkv", 100, noon - 8 * hour);
        put("events-2026-11-20.jsonl", 5, noon - 60 * hour);
        for (const auto& file : {open, other + "09-00-00"})
            fs::remove(file + ".mkv");
        Retention retention(".", row.limits);
        put(open + ".mkv", 100, noon - 20 * hour);
        put(other + "09-00-00.mkv", 100, noon - 2 * hour);
        retention.added(other + "09-00-00", 1);
        EXPECT_EQ(retention.bytes(), 1330U);
        const Removed removed = retention.sweep(noon, {open});
        EXPECT_EQ(removed.segments, row.removed);
        EXPECT_EQ(removed.error, "");
        for (const std::string& file : row.gone)
            EXPECT_FALSE(fs::exists(file)) << file;
        EXPECT_EQ(retention.segments(), 5 - row.removed);
        EXPECT_TRUE(fs::exists(open + ".mkv"));
        EXPECT_EQ(retention.sweep(noon, {open}).segments, 0U);
    }
    for (const auto& file : foreign)
        EXPECT_EQ(fs::file_size(file), 3000U) << file;
    EXPECT_TRUE(fs::is_symlink("camera-1/2026-11-21/02-00-00.mkv"));
}

TEST(Retention, MakesRoomFollowsTheClockAndLivesWithWhatItCannotRemove) {
    const TemporaryFolder folder;
    constexpr std::uintmax_t terabyte = std::uintmax_t{1} << 40U;
    const FolderLock lock("r");
    Retention::Stems stems;
    std::optional<Retention> kept;
    put("r/camera-2/2026-11-23/09-00-00.mkv", terabyte, 10800000);  // later than the clock shows
    for (int i = 0; i < 6; ++i) {                                   // the first was there before
        stems.emplace_back("camera-1/1970-01-01/00-0" + std::to_string(i) + "-00");
        put("r/" + stems.back().string() + ".mkv", terabyte, 60000 * (i + 1));
        if (i == 0) kept.emplace("r", RetentionLimits{1h, 0, false}, ClockReading{70000, 1070000});
        if (i > 0) kept->added(stems.back(), 1000000 + 60000 * (i + 1));
    }
    Retention& retention = *kept;
    for (int twice = 0; twice < 2; ++twice)
        retention.follow_clock(noon + 400000, 1000000 + 400000);
    EXPECT_EQ(retention.newest_ms(), noon + 360000);
    EXPECT_EQ(retention.sweep(noon + 60000, {}).segments, 1U) << "the only one that ended before noon";
    EXPECT_EQ(Retention("r", {1h, 0, false}).sweep(noon + 60000, {}).segments, 0U)
        << "by the files' own times";

    const auto available = fs::space("r").available;
    EXPECT_TRUE(Retention("r", {}).free_space(available + terabyte, {}).segments == 0);
    EXPECT_EQ(retention.free_space(1, {}).segments, 0U);
    const Removed room = retention.free_space(available + terabyte + terabyte / 2, {});
    EXPECT_TRUE(room.enough);
    EXPECT_EQ(room.segments, 2U) << "and no more than that";

    const fs::path stuck = "r" / fs::path(stems[3].string() + ".mkv");
    fs::remove(stuck);
    fs::create_directory(stuck);
    fs::rename("r", "away");
    EXPECT_THAT(retention.sweep(noon * 2, {}).error, HasSubstr("'r/.plendix'"));
    EXPECT_EQ(retention.sweep(noon * 2, {}).error + std::to_string(retention.segments()), "4") << "told once";
    fs::rename("away", "r");
    const Removed rest = retention.sweep(noon * 2, {});
    EXPECT_EQ(rest.segments, 3U);
    EXPECT_THAT(rest.error, HasSubstr(stems[3].string()));
    EXPECT_EQ(retention.sweep(noon * 2, {}).error, "");
    fs::remove(stuck);
    put(stuck, 1, noon);
    EXPECT_FALSE(retention.free_space(UINT64_MAX / 2, {}).enough);
}

TEST(FolderLock, KeepsOthersOutAndEndsWithTheProcess) {
    const TemporaryFolder folder;
    int ready[2], end[2];
    ASSERT_TRUE(pipe(ready) == 0 && pipe(end) == 0);
    const pid_t child = fork();
    if (child == 0) {
        const FolderLock lock("r/s");
        char byte = 0;
        _exit(write(ready[1], &byte, 1) == 1 && read(end[0], &byte, 1) == 1 ? 0 : 1);
    }
    char byte = 0;
    ASSERT_EQ(read(ready[0], &byte, 1), 1);
    EXPECT_THAT([] { FolderLock("r/s"); },
                testing::ThrowsMessage<Failure>(
                    HasSubstr("'r/s' is being recorded into by process " + std::to_string(child) + ':')));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    const FolderLock lock("r/s");
    EXPECT_THROW(FolderLock("r/s"), Failure);
}

TEST(Replacement, IsAllOrNothingWheneverItEnds) {
    const TemporaryFolder folder;
    for (const char* file :
         {"camera-1/2026-11-22/20-00-00.mkv", "camera-1/2026-11-22/20-00-00.motion",
          "camera-1/2026-11-22/notes.txt", "camera-2/2026-11-22/20-00-00.mkv", "events.jsonl",
          "events-2026-11-22.jsonl", "events-mine.jsonl", "driver.log", "driver.log.1", "clip.mkv"})
        put(file, 1000, noon);
    const auto before = tree();
    const std::vector<std::string> foreign = {
        "camera-1", "camera-1/2026-11-22", "camera-1/2026-11-22/notes.txt", "clip.mkv", "events-mine.jsonl"};
    {
        const Replacement replacement(".");
        auto files = tree();
        files.erase(std::remove_if(files.begin(), files.end(), [](auto& f) { return f[0] == '.'; }),
                    files.end());
        EXPECT_EQ(files, foreign);
        fs::create_directories("camera-2/2026-11-22");
        put("events.jsonl", 5, noon);
    }
    EXPECT_EQ(tree(), before) << "nothing was recorded";
    EXPECT_EQ(fs::file_size("events.jsonl"), 1000U);
    for (const bool recorded : {false, true}) {
        const pid_t child = fork();
        if (child == 0) {
            const Replacement replacement(".");
            put("camera-2/2026-11-23/08-00-00.mkv", 0, noon);
            if (recorded) movie("camera-2/2026-11-23/09-00-00", noon, false, 2);
            kill(getpid(), SIGKILL);
        }
        waitpid(child, nullptr, 0);
        settle_replacement(".");
        EXPECT_EQ(fs::exists("camera-2/2026-11-22/20-00-00.mkv"), !recorded);
        EXPECT_EQ(fs::exists("camera-2/2026-11-23/09-00-00.mkv"), recorded);
        EXPECT_FALSE(fs::exists(".plendix-replaced"));
    }
    fs::create_directory(".plendix-unfinished");  // killed while it moved things there
    fs::rename("camera-2", ".plendix-unfinished/camera-2");
    {
        Replacement replacement(".");
        EXPECT_TRUE(fs::exists(".plendix-replaced/camera-2/2026-11-23/09-00-00.mkv"));
        replacement.commit();
    }
    EXPECT_EQ(tree(), foreign);
}

TEST(SegmentRepair, LeavesWholePicturesWhereverTheFileWasCut) {
    const TemporaryFolder folder;
    std::unique_ptr<MatroskaWriter> writer;
    movie(today + "12-00-00", noon, true, 40, 96, &writer);
    const std::string open = content(today + "12-00-00.mkv");
    writer.reset();
    const std::string closed = content(today + "12-00-00.mkv");
    ASSERT_EQ(repair_segment(today + "12-00-00"), Repair::none);
    EXPECT_EQ(content(today + "12-00-00.mkv"), closed);

    std::size_t frames = 0;
    for (std::size_t length = 0; length < closed.size(); length += length < 700 ? 1 : 97) {
        // Killed while recording, and, from the last picture on, while closing.
        std::string bytes = length <= open.size() ? open.substr(0, length) : closed.substr(0, length);
        if (length % 2 != 0) bytes.resize(length < 64 ? length + 50 : std::max(length + 50, open.size()));
        std::ofstream(today + "12-00-00.mkv") << bytes;
        std::ofstream(today + "12-00-00.motion") << "PMot";
        const std::string before = content(today + "12-00-00.mkv");
        const Repair repair = repair_segment(today + "12-00-00");
        ASSERT_EQ(fs::exists(today + "12-00-00.mkv"), repair != Repair::removed) << length;
        ASSERT_EQ(fs::exists(today + "12-00-00.motion"), repair != Repair::removed) << length;
        if (repair == Repair::removed) continue;
        EXPECT_EQ(repair == Repair::none, content(today + "12-00-00.mkv") == before);
        const DecodeResult result = check_file(today + "12-00-00.mkv");
        EXPECT_TRUE(result.clean()) << length << ' ' << result.first_fault;
        EXPECT_GE(result.packets, frames);
        EXPECT_EQ(times_of(today + "12-00-00.mkv").size(), result.packets);
        frames = result.packets;
        EXPECT_EQ(repair_segment(today + "12-00-00"), Repair::none);
    }
    EXPECT_EQ(frames, 40U);
    std::ofstream(today + "12-00-00.mkv") << open.substr(0, open.size() - 1);
    movie("camera-7/2026-11-23/12-00-00", noon, false, 2);
    put("camera-7/2026-11-22/12-00-00.mkv", 5000, noon);
    note_open_segment(".", 1, today + "12-00-00");
    for (const char* newer : {"13-00-00", "13-00-10"})  // since then the clock was set back
        movie(today + newer, noon, false, 2);
    const auto repaired = repair_newest_segments(".");
    ASSERT_EQ(repaired.size(), 2U);
    EXPECT_EQ(repaired[0].repair, Repair::cut);
    EXPECT_EQ(repaired[1].repair, Repair::foreign) << "zeros are left for people to look at";
}

TEST(Archive, IsSearchedByZonesAndExportedFrameByFrame) {
    const TemporaryFolder folder;
    const std::string second = today + "12-00-03", third = today + "12-00-10";
    std::unique_ptr<MatroskaWriter> writer;
    movie(today + "12-00-00", noon, true, 70);
    movie(second, noon + 3000, true, 70, 96, &writer);  // still being written
    std::ofstream(second + ".mkv", std::ios::app) << std::string("\x1F\x43\xB6\x75\x45\x51\xBF", 7);
    movie(third, noon + 10000, false, 3);
    movie("camera-2/2026-11-23/12-00-00", noon, false, 3);
    const MotionZones corner{0x80}, middle{0, 0, 0, 0x18};
    for (const auto& [stem, start] : {std::pair(today + "12-00-00", noon), {second, noon + 3000}}) {
        MotionWriter motion(stem + ".motion", 1, start);
        for (const std::int64_t at : {0, 40, 2000, 2800})
            motion.write({at, at > 1000, at == 0 ? corner : middle});
    }
    const auto spans = [](const std::vector<std::string>& zones, std::int64_t from, std::int64_t to,
                          std::int64_t gap, bool enabled = false) {
        std::vector<std::string> faults;
        std::string text;
        for (const MotionSpan& span :
             find_motion(".", {1, noon + from, noon + to, parse_zones(zones), enabled, gap}, faults))
            text += std::to_string(span.first_ms - noon) + '-' + std::to_string(span.last_ms - noon) + ' ';
        return text + std::to_string(faults.size());
    };
    EXPECT_EQ(spans({}, 0, 60000, 799), "0-40 2000-2000 2800-3040 5000-5000 5800-5800 0");
    EXPECT_EQ(spans({}, 0, 60000, 2000), "0-5800 0");
    EXPECT_EQ(spans({"0,0"}, 0, 60000, 100), "0-0 3000-3000 0");
    EXPECT_EQ(spans({"2-4,5-7", "3,4"}, 0, 60000, 900), "40-40 2000-3040 5000-5800 0");
    EXPECT_EQ(spans({"0,1-7", "1-7,0-2", "4-7,3-7"}, 0, 60000, 100), "0");
    EXPECT_EQ(spans({}, 40, 2800, 0, true), "2000-2000 0");
    EXPECT_EQ(spans({}, 100000000, 200000000, 0), "0");
    std::ofstream(third + ".motion") << "no motion file";
    EXPECT_EQ(spans({"0,0"}, 0, 60000, 100), "0-0 3000-3000 1");
    for (const char* bad : {"8,0", "0", "3-2,0", "0,0-8", "0,0,0", "", "-1,0"})
        EXPECT_THROW(parse_zones({bad}), UsageError) << bad;

    const auto go_on = [] { return false; };
    ClipPlan plan{".", 1, noon + 1500, noon + 4000, "clip.mkv", false, true};
    const Clip clip = export_clip(plan, go_on);
    std::vector<std::int64_t> expected;
    for (std::int64_t at = 1280; at < 4000; at = at == 2760 ? 3000 : at + 40)  // frame 32 is a key frame
        expected.push_back(noon + at);
    EXPECT_EQ(times_of("clip.mkv"), expected);
    EXPECT_EQ(clip.frames, expected.size());
    EXPECT_TRUE(check_file("clip.mkv").clean());
    EXPECT_THROW(export_clip(plan, go_on), UsageError) << "there is a clip";
    plan.replace = true;
    plan.from_ms = noon + 2900;  // between the segments
    plan.to_ms = noon + 10000;
    EXPECT_EQ(export_clip(plan, go_on).frames, 70U) << "up to the last whole picture";
    const std::string before = content("clip.mkv");
    plan.to_ms = noon + 10001;
    EXPECT_THAT([&] { export_clip(plan, go_on); },
                testing::ThrowsMessage<Failure>(
                    HasSubstr("changed from 96x16 H.264 to 96x16 JPEG at 2026-11-23T12:00:10.000")));
    EXPECT_THROW(export_clip(plan, [] { return true; }), Failure);
    EXPECT_THROW(check_clip(plan, [] { return true; }), Failure);
    // From the key frame at or before any moment on, whether the file has an index yet or not.
    ClipPlan part{".", 1, 0, 0, "part.mkv", true, true};
    for (const std::int64_t start : {noon, noon + 3000})
        for (std::int64_t from = 0; from < 2800; from += 150) {
            part.from_ms = start + from;
            part.to_ms = start + std::min<std::int64_t>(from + 400, 2800);
            check_clip(part, go_on);
            const std::int64_t key_ms = start + from / 1280 * 1280;
            std::vector<std::int64_t> times;
            for (std::int64_t at = key_ms; at < part.to_ms; at += 40)
                times.push_back(at);
            export_clip(part, go_on);
            EXPECT_EQ(times_of("part.mkv"), times) << start - noon << " + " << from;
        }
    fs::remove("part.mkv");
    plan.from_ms = noon + 11000;
    plan.to_ms = noon + 12000;
    EXPECT_THROW(export_clip(plan, go_on), Failure) << "nothing was recorded then";
    EXPECT_EQ(content("clip.mkv"), before);
    EXPECT_EQ(std::distance(fs::directory_iterator("."), {}), 3) << "two cameras and the clip";
}
