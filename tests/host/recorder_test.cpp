// Frames into files, the queue before them, and the check of what is on the disk.
#include <gtest/gtest.h>

#include <filesystem>

#include "host/arrival_queue.h"
#include "host/camera_recorder.h"
#include "host/decode_check.h"
#include "host/still.h"
#include "pictures.h"
#include "plugin/host_records.h"
#include "support/folder.h"

using namespace plendix;

TEST(CameraRecorder, EachFormatHasAFileAndDeltasNeedTheirKeyFrame) {
    const TemporaryFolder folder;
    CameraRecorder recorder(1);
    std::int64_t time = 1700000000000;
    const auto feed = [&](bool h264, std::size_t first, std::size_t end, int width, std::size_t gap) {
        const auto pictures = encode_pictures(h264, end, width);
        for (std::size_t i = first; i < end; ++i) {
            Arrival frame;
            frame.kind = EventKindVideo;
            frame.data_type = h264 ? DataTypeH264 : DataTypeJpeg;
            frame.camera = 1;
            frame.time_ms = time += 40;
            frame.key = !h264 || i % key_distance == 0;
            frame.after_gap = i == gap;
            frame.data = pictures[i];
            recorder.frame(frame);
        }
    };
    feed(false, 0, 3, 96, 2);  // every JPEG picture is a key frame
    feed(false, 0, 2, 128, 9);
    feed(true, 30, 66, 96, 40);  // two deltas, a key frame, seven deltas, a gap, the next key frame, a delta
    Arrival cut;
    cut.data_type = DataTypeJpeg;
    cut.data = {0xFF, 0xD8, 0xFF};
    recorder.frame(cut);
    recorder.close();

    ASSERT_EQ(recorder.files(),
              (std::vector<std::filesystem::path>{"camera-1.mkv", "camera-1-2.mkv", "camera-1-3.mkv"}));
    EXPECT_EQ(recorder.totals().unstarted, 2U + 24);
    EXPECT_EQ(recorder.totals().unreadable, 1U);
    EXPECT_EQ(recorder.totals().recorded, 15U);
    const std::uint64_t expected[] = {3, 2, 10};
    for (std::size_t i = 0; i < 3; ++i) {
        const DecodeResult result = check_file(recorder.files()[i]);
        EXPECT_EQ(result.packets, expected[i]);
        EXPECT_TRUE(result.clean()) << result.first_fault;
        EXPECT_GT(std::filesystem::file_size(write_still(recorder.files()[i])), 100U);
    }
}

TEST(CameraRecorder, CountsWhatWentWrong) {
    CameraRecorder recorder(3);
    for (const bool connected : {true, false, true, false, true})
        recorder.count({0, 3, EventKind::connection, {{"connected", connected}}});
    recorder.count({0, 3, EventKind::log, {{"timeout", true}}});
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
