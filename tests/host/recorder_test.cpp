// Frames into files, the queue before them, and the check of what is on the disk.
#include <gtest/gtest.h>

#include <filesystem>

#include "host/arrival_queue.h"
#include "host/camera_recorder.h"
#include "host/decode_check.h"
#include "host/process_state.h"
#include "host/still.h"
#include "pictures.h"
#include "plugin/host_records.h"

using namespace plendix;

namespace {

Arrival arrival(std::vector<std::uint8_t> data, bool h264, bool key, std::int64_t time_ms) {
    Arrival made;
    made.kind = EventKindVideo;
    made.data_type = h264 ? DataTypeH264 : DataTypeJpeg;
    made.camera = 1;
    made.time_ms = time_ms;
    made.key = key;
    made.data = std::move(data);
    return made;
}

}  // namespace

TEST(CameraRecorder, EachFormatHasAFileAndDeltasNeedTheirKeyFrame) {
    const auto folder = std::filesystem::path(testing::TempDir()) / "formats";
    std::filesystem::remove_all(folder);
    const WorkingDirectory inside(folder);
    CameraRecorder recorder(1);
    std::int64_t time = 1700000000000;
    const auto feed = [&](bool h264, int count, int width, int first) {
        const auto pictures = encode_pictures(h264, count, width, 64);
        for (int i = first; i < count; ++i)
            recorder.frame(arrival(pictures[size_t(i)], h264, !h264 || i % 10 == 0, time += 40));
    };
    feed(false, 3, 96, 0);
    feed(false, 2, 128, 0);
    feed(true, 12, 96, 8);  // two deltas, the key frame, one delta
    recorder.frame(arrival({0xFF, 0xD8, 0xFF}, false, true, time));
    recorder.close();

    ASSERT_EQ(recorder.files(),
              (std::vector<std::filesystem::path>{"camera-1.mkv", "camera-1-2.mkv", "camera-1-3.mkv"}));
    EXPECT_EQ(recorder.totals().unstarted, 2U);
    EXPECT_EQ(recorder.totals().unreadable, 1U);
    EXPECT_EQ(recorder.totals().recorded, 7U);
    const std::uint64_t expected[] = {3, 2, 2};
    for (std::size_t i = 0; i < 3; ++i) {
        const DecodeResult result = check_file(recorder.files()[i]);
        EXPECT_EQ(result.packets, expected[i]);
        EXPECT_TRUE(result.clean()) << result.first_fault;
        EXPECT_GT(std::filesystem::file_size(write_still(recorder.files()[i])), 100U);
    }
}

TEST(CameraRecorder, CountsWhatWentWrong) {
    CameraRecorder recorder(3);
    Event event{0, 3, EventKind::connection};
    for (const bool connected : {true, false, true, false, true}) {
        event.values["connected"] = connected;
        recorder.count(event);
    }
    event = {0, 3, EventKind::log};
    event.values["timeout"] = true;
    recorder.count(event);
    EXPECT_EQ(recorder.totals().reconnections(), 2U);
    EXPECT_EQ(recorder.totals().timeouts, 1U);
    EXPECT_EQ(recorder.totals().lost_blocks, 0U);
}

TEST(ArrivalQueue, RefusesFramesBeforeDocumentsAndMarksTheGap) {
    ArrivalQueue queue(250);
    const std::vector<std::uint8_t> data(100);
    _EventParmsIn frame{};
    frame.Kind = EventKindVideo;
    frame.SourceId = PluginId | 9U << 8U;
    frame.Data = data.data();
    frame.DataLength = 100;
    _EventParmsIn document = frame;
    document.Kind = EventKindLog;
    EXPECT_TRUE(queue.push(frame));
    EXPECT_TRUE(queue.push(frame));
    EXPECT_FALSE(queue.push(frame));
    EXPECT_TRUE(queue.push(document));
    EXPECT_EQ(queue.refused(9), 1U);
    const std::chrono::milliseconds now(0);
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(queue.pop(now)->after_gap);
    EXPECT_FALSE(queue.pop(now).has_value());
    EXPECT_TRUE(queue.push(frame));
    EXPECT_TRUE(queue.pop(now)->after_gap);
}
