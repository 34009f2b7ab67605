// Disks that fill, vanish, refuse and come back, and a wall clock that is set, under a recording that goes
// on.
#include <sched.h>
#include <sys/mount.h>
#include <sys/uio.h>

#include <csignal>
#include <fstream>
#include <future>

#include "camera/picture/gallery.h"
#include "host/clocks.h"
#include "host/write_failure.h"
#include "record/decode_check.h"
#include "record/movie_file.h"
#include "record/recorder.h"
#include "record/segment_files.h"
#include "record/still.h"
#include "support/camera_bench.h"
#include "support/folder.h"

using namespace plendix;
using namespace std::chrono_literals;
using testing::HasSubstr;
namespace fs = std::filesystem;

static std::atomic<bool> disks_fail{false};

extern "C" ssize_t __real_pwritev(int file, const iovec* parts, int count, off_t at);
/// Disks in folders named "error-5", for instance, return that error.
extern "C" ssize_t __wrap_pwritev(int file, const iovec* parts, int count, off_t at) {
    const std::string path = fs::read_symlink("/proc/self/fd/" + std::to_string(file));
    const std::size_t named = path.find("/error-");
    if (!disks_fail || named == std::string::npos) return __real_pwritev(file, parts, count, at);
    return errno = std::stoi(path.substr(named + 7)), -1;
}

static std::vector<fs::path> files_in(const fs::path& folder, const char* extension) {
    std::vector<fs::path> found;
    std::error_code none;
    for (const auto& entry : fs::recursive_directory_iterator(folder, none))
        if (entry.path().extension() == extension) found.push_back(entry.path());
    return found;
}

/// A recorder of two cameras.
struct Sink {
    Sink(const fs::path& root, const RecorderRules& rules) : folder(root), recorder(queue, root, rules) {
        recorder.start();
    }
    std::string told_last() const { return told.empty() ? "" : told.back().values.dump(); }
    /// All of its files are whole and together what was recorded. Returns what was not.
    std::uint64_t finish(std::uint64_t pushed, bool files_were_removed) {
        queue.finish();
        EXPECT_TRUE(recorder.stop(10s));
        std::uint64_t packets = 0, recorded = 0;
        for (const auto& movie : files_in(folder, ".mkv")) {
            const DecodeResult result = check_file(movie);
            EXPECT_TRUE(result.clean() && result.packets > 0) << movie << result.first_fault;
            packets += result.packets;
        }
        for (const auto& motion : files_in(folder, ".motion"))
            EXPECT_EQ(fs::file_size(motion) % 16, 0U) << motion;
        for (const auto& [camera, totals] : recorder.totals())
            recorded += totals.recorded;
        EXPECT_TRUE(files_were_removed ? packets > 0 && packets < recorded : packets == recorded) << folder;
        return pushed - recorded;
    }
    fs::path folder;
    OutputQueue queue{64U << 20U};
    Recorder recorder;
    std::vector<Event> told;
};

class Disk : public camera::test::CameraBench {
protected:
    void SetUp() override {
        if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
            GTEST_SKIP() << "nothing may be mounted here";
        put("disk", "none", "tmpfs", 0);
    }
    void TearDown() override {
        outputs.clear();
        while (umount2("disk", MNT_DETACH) == 0 || umount2("gone", MNT_DETACH) == 0)
            continue;
    }
    static void put(const char* place, const char* what, const char* type, unsigned long flags) {
        fs::create_directory(place);
        ASSERT_EQ(mount(what, place, type, flags, type != nullptr ? "size=64m" : nullptr), 0) << place;
    }
    /// Leaves so much of the disk to others.
    static void occupy(std::uint64_t left) {
        fs::remove("disk/other");
        std::ofstream("disk/other") << std::string(fs::space("disk").available - left, 'x');
    }
    Sink& record(const fs::path& root, RecorderRules rules) {
        return *outputs.emplace_back(std::make_unique<Sink>(root, rules));
    }
    /// Pictures of both cameras for all outputs, for so long or until these have told so many events.
    bool feed(std::chrono::milliseconds most, std::size_t events = 99, std::size_t first = 0) {
        const auto end = std::chrono::steady_clock::now() + most;
        const auto told = [&](const auto& output) {
            return output->told.size() == events || output->folder == "disk/removed";
        };
        bool done = false;
        for (; !done && std::chrono::steady_clock::now() < end; std::this_thread::sleep_for(20ms)) {
            const auto frame = std::make_shared<Frame>();
            frame->camera = 1 + static_cast<int>(pushed++ % 2);
            frame->key = true;
            frame->zones[0] = 1;
            frame->arrival_ms = milliseconds_of(std::chrono::steady_clock::now());
            frame->time_ms = utc_ms();
            frame->data = picture_;
            for (const auto& output : outputs) {
                output->queue.push(frame);
                for (Event& event : output->recorder.take_events())
                    output->told.push_back(std::move(event));
            }
            done = std::all_of(outputs.begin() + static_cast<std::ptrdiff_t>(first), outputs.end(), told);
        }
        return done;
    }

    const TemporaryFolder here;
    std::vector<std::unique_ptr<Sink>> outputs;
    std::uint64_t pushed = 0;

private:
    const Bytes picture_ = [] {
        camera::Gallery gallery(camera::generated_loop(), 100'000'000);
        camera::PictureRequest request;
        request.area = {0, 0, 640, 480};
        return *gallery.picture(request, request.area, 1)->file();  // some 13 kB
    }();
};

TEST_F(Disk, FullOnesPauseOnceAndGoOnByThemselves) {
    occupy(3 * 4096);  // for mark, events and a movie's header, not for a picture
    fs::create_directory("disk/r");
    std::ofstream("disk/r/events.jsonl") << "somebody's";
    RecorderRules rules;
    Sink& other = record("elsewhere", rules);
    Sink& full = record("disk/r", rules);
    EXPECT_TRUE(feed(10s, 2, 1));
    EXPECT_THAT(full.told_last(), HasSubstr("\"paused\":true,\"reason\":\"no room on the disk of"));
    EXPECT_TRUE(files_in("disk", ".mkv").empty()) << "no movie without a picture";
    occupy(900'000);
    feed(1500ms);
    EXPECT_EQ(full.told.size(), 2U) << "room for a few pictures is no news";
    occupy(2'500'000);
    EXPECT_TRUE(feed(10s, 4, 1));
    EXPECT_EQ(full.told_last(), "{\"paused\":false}");
    EXPECT_TRUE(feed(10s, 6, 1)) << "full again";

    EXPECT_GT(full.finish(pushed, false), 0U);
    EXPECT_EQ(other.finish(pushed, false) + other.told.size(), 0U);
    occupy(0);
    EXPECT_THROW(write_still(files_in("disk", ".mkv").front()), WriteFailure);
    EXPECT_TRUE(files_in("disk", ".jpg").empty());
    std::ifstream events("disk/r/events.jsonl");
    std::string line;
    std::getline(events, line);
    EXPECT_EQ(line, "somebody's");
    while (std::getline(events, line))
        EXPECT_TRUE(nlohmann::json::accept(line) && !events.eof()) << line;
}

TEST_F(Disk, FullOnesLoseTheOldestWhereTheyMay) {
    RecorderRules rules;
    rules.segment = 500ms;
    rules.limits.keep = 1h;
    occupy(5'000'000);
    Sink& kept = record("disk", rules);
    feed(6s);
    EXPECT_LT(kept.finish(pushed, true), pushed / 10);
    EXPECT_NE(kept.told_last().find("had to go before their time"), std::string::npos) << kept.told_last();
}

TEST_F(Disk, BrokenOnesPauseSayWhatToDoAndGoOn) {
    for (const char* name : {"disk/gone", "disk/ro"})
        fs::create_directory(name);
    put("gone", "disk/gone", nullptr, MS_BIND);
    const std::pair<const char*, const char*> rows[] = {{"gone/r", "/gone/r' is gone: mount it again"},
                                                        {"disk/ro", "/ro' is read-only: 'dmesg'"},
                                                        {"disk/error-5", "(Input/output"},
                                                        {"disk/error-122", "the quota is used up in"},
                                                        {"disk/removed", "was taken away"}};
    RecorderRules rules;
    for (const auto& [root, words] : rows) {
        rules.segment = root == rows[1].first ? 300ms : 0ms;  // a file that is open stays writable
        record(root, rules);
    }
    feed(500ms);
    ASSERT_EQ(umount2("gone", MNT_DETACH), 0);
    put("disk/ro", "disk/ro", nullptr, MS_BIND);
    put("disk/ro", "none", nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY);
    disks_fail = true;
    fs::remove_all("disk/removed");
    EXPECT_TRUE(feed(10s, 2));
    feed(1500ms);
    for (std::size_t i = 0; i < std::size(rows); ++i)
        EXPECT_THAT(outputs[i]->told_last(), HasSubstr(rows[i].second));
    EXPECT_TRUE(fs::is_empty("gone")) << "the bare place of the disk";
    put("gone", "disk/gone", nullptr, MS_BIND);
    ASSERT_EQ(umount2("disk/ro", 0), 0);
    disks_fail = false;
    EXPECT_TRUE(feed(10s, 4)) << "each goes on, and that is told once";
    for (const auto& output : outputs) {
        const bool removed = output->folder == "disk/removed";
        EXPECT_EQ(output->finish(pushed, removed) == 0, removed) << output->folder;
    }
}

#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)  // they want to be preloaded first
TEST_F(Disk, ClocksThatAreSetBeginSegmentsAndSpoilNothing) {
    constexpr std::int64_t s = 1000, now = 1'795'000'000 * s;  // 2026-11-18
    start(camera::test::sensor(640, 480), 1);
    const std::string command = "timeout 60 env LD_PRELOAD=" PLENDIX_WALL_CLOCK_LIBRARY
                                " PLENDIX_WALL_CLOCK=clock " PLENDIX_COMMAND
                                " record --plugin " PLENDIX_LIBRARY " --output out --keep 1h --check " +
                                camera::test::own_address(1) + " > table 2> screen";
    std::future<int> recorder;
    std::int64_t last = 0;
    std::size_t segments = 0;
    for (const std::int64_t wall_ms : {30 * s, now, now - 5 * s, now - 3605 * s, now + 82795 * s}) {
        last = wall_ms;
        const std::int64_t offset_ns = wall_ms * 1'000'000;
        std::fstream("clock", recorder.valid() ? std::ios::in | std::ios::out : std::ios::out)
            .write(reinterpret_cast<const char*>(&offset_ns), sizeof offset_ns);
        if (!recorder.valid()) recorder = std::async(std::launch::async, std::system, command.c_str());
        const auto end = std::chrono::steady_clock::now() + 20s;
        for (++segments; files_in("out", ".mkv").size() != segments; std::this_thread::sleep_for(10ms))
            ASSERT_LT(std::chrono::steady_clock::now(), end) << segments;
        std::this_thread::sleep_for(500ms);  // of this time
    }
    std::ifstream mark("out/.plendix");
    int process = 0;
    mark.ignore(27) >> process;  // "Plendix recording, process "
    ASSERT_GT(process, 1);
    kill(process, SIGTERM);
    EXPECT_EQ(recorder.get(), 0) << "all frames are in the files and decode";
    const std::int64_t uptime_ms = milliseconds_of(std::chrono::steady_clock::now());
    EXPECT_EQ(files_in("out", ".mkv").size(), segments);
    for (const fs::path& file : files_in("out", ".mkv")) {
        struct stat found {};
        ASSERT_EQ(stat(file.c_str(), &found), 0);
        EXPECT_LT(std::abs(changed_ms(found) - uptime_ms - last), 30 * s) << file << " by the right clock";
        MovieFile movie(file);
        const LibavPointer<AVPacket> packet(av_packet_alloc());
        for (std::int64_t before = -1; movie.read(*packet); before = packet->pts)
            EXPECT_TRUE(packet->pts > before && packet->pts < before + 1000) << file;
    }
    EXPECT_EQ(std::system("test $(grep -c 'the clock was set ' screen) = 4"), 0);
    EXPECT_EQ(std::system("test $(grep -c '\"kind\":\"clock\"' out/events.jsonl) = 4"), 0) << "in one file";
}
#endif
