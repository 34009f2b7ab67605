// Frames into files, the queue before them, documents built and read, values of the command line.
#include <gtest/gtest.h>

#include "camera/picture/gallery.h"
#include "host/arrival_queue.h"
#include "host/command_values.h"
#include "host/document_builder.h"
#include "host/document_reader.h"
#include "host/event_log.h"
#include "plugin/host_records.h"
#include "record/camera_recorder.h"
#include "record/decode_check.h"
#include "record/event_text.h"
#include "record/movie_file.h"
#include "record/still.h"
#include "support/folder.h"
#include "usage.h"

using namespace plendix;

TEST(CameraRecorder, EachFormatHasAFileAndDeltasNeedTheirKeyFrame) {
    const TemporaryFolder folder;
    CameraRecorder recorder(1);
    std::int64_t time = 1700000000000;
    const std::uint8_t dri[] = {0xFF, 0xDD, 0, 4};  // restart markers every 16 MCUs: none in these pictures
    /// Pictures of the generated scene, 40 ms apart, every 32nd a key frame, the last of a narrow one cut.
    const auto feed = [&](bool h264, int width, std::size_t first, std::size_t end) {
        camera::Gallery gallery(camera::generated_loop(), 100'000'000);
        camera::PictureRequest request;
        request.h264 = h264;
        request.area = {0, 0, width, 16};
        for (std::size_t i = 0; i < end; ++i) {
            const auto* picture = gallery.picture(request, request.area, i);
            if (i < first) continue;
            Arrival frame;
            frame.data_type = h264 ? DataTypeH264 : DataTypeJpeg;
            frame.time_ms = (time += 40) - (i == 35 ? 5000 : 0);  // the clock set back for once
            frame.key = picture->key();
            frame.after_gap = !h264 || i == 40;  // every JPEG picture is a key frame
            frame.data = *picture->file();
            if (h264) frame.data.insert(frame.data.end(), {0, 0, 1, 9, 0x10});  // the next unit's delimiter
            if (!h264 && i == 1) std::search(frame.data.begin(), frame.data.end(), dri, dri + 4)[5] = 4;
            if (width == 96 && i + 1 == end) frame.data.resize(frame.data.size() / 2);
            recorder.frame(frame);
        }
    };
    feed(true, 96, 30, 64);  // two deltas, a key frame, seven deltas, a gap, more deltas
    feed(true, 96, 0, 2);    // again a key frame and a delta
    feed(false, 96, 0, 3);
    feed(false, 128, 0, 1);
    feed(true, 96, 30, 32);  // deltas of the picture before those
    Arrival cut;
    cut.data_type = DataTypeJpeg;
    cut.data = {0xFF, 0xD8, 0xFF};
    recorder.frame(cut);
    recorder.close();
    for (const bool connected : {true, false, true, false, true})
        recorder.count({0, 1, EventKind::connection, {{"connected", connected}}});
    recorder.count({0, 1, EventKind::log, {{"timeout", true}, {"lost_block", 3}}});
    EXPECT_EQ(recorder.totals().reconnections(), 2U);
    EXPECT_EQ(recorder.totals().timeouts + recorder.totals().lost_blocks, 2U);
    ASSERT_EQ(recorder.files(),
              (std::vector<std::filesystem::path>{"camera-1.mkv", "camera-1-2.mkv", "camera-1-3.mkv"}));
    EXPECT_EQ(recorder.totals().unstarted, 2U + 24 + 2);
    EXPECT_EQ(recorder.totals().unreadable, 1U);
    EXPECT_EQ(recorder.totals().recorded, 14U);
    const std::array<std::uint64_t, 3> expected[] = {{10, 9, 1}, {3, 1, 2}, {1, 1, 0}};
    for (std::size_t i = 0; i < 3; ++i) {
        const DecodeResult result = check_file(recorder.files()[i]);
        EXPECT_EQ((std::array{result.packets, result.decoded, result.faulty}), expected[i]) << i;
        EXPECT_GT(std::filesystem::file_size(write_still(recorder.files()[i])), 100U);
    }
    std::vector<double> parts;
    const DecodeResult begun = check_file(recorder.files()[0], [&parts](double part) {
        parts.push_back(part);
        return parts.size() < 3;
    });
    EXPECT_TRUE(begun.ended && !begun.clean() && begun.packets == 3 && parts[1] > parts[0] && parts[2] < 1);
    MovieFile movie(recorder.files()[0]);
    const LibavPointer<AVPacket> packet(av_packet_alloc());
    for (const int at : {0, 40, 80, 80, 160, 200, 240, 280, 1280, 1320}) {
        ASSERT_TRUE(movie.read(*packet));
        EXPECT_EQ(packet->pts, at);
        EXPECT_EQ((packet->flags & AV_PKT_FLAG_KEY) != 0, at == 0 || at == 1280);
    }
}

TEST(ArrivalQueue, RefusesFramesBeforeDocumentsAndMarksTheGap) {
    ArrivalQueue queue(250);
    const std::vector<std::uint8_t> data(100);
    _EventParmsIn frame{};
    frame.Kind = EventKindVideo;
    frame.SourceId = PluginId | 9U << 8U;
    frame.FrameSeconds = 1700000000;
    frame.FrameMilliseconds = 7;
    frame.FrameType = FrameTypeKey;
    frame.Data = data.data();
    frame.DataLength = 100;
    _EventParmsIn document = frame;
    document.Kind = EventKindLog;
    EXPECT_TRUE(queue.push(frame) && queue.push(frame));
    EXPECT_FALSE(queue.push(frame));
    EXPECT_TRUE(queue.push(document));
    EXPECT_EQ(queue.refused(9), 1U);
    const std::chrono::milliseconds now(0);
    for (int i = 0; i < 3; ++i)
        EXPECT_FALSE(queue.pop(now)->after_gap);
    EXPECT_FALSE(queue.pop(now).has_value());
    EXPECT_TRUE(queue.push(frame) && queue.push(frame));
    const auto next = queue.pop(now);
    EXPECT_TRUE(next->after_gap && next->key);
    EXPECT_EQ(next->time_ms, 1700000000007);
    EXPECT_FALSE(queue.pop(now)->after_gap) << "told once";
}

static std::string device_1(const std::string& content) {
    return R"(<?xml ?><Velm><Devices ID="2162688"><Device Number="1">)" + content +
           "</Device></Devices></Velm>";
}

TEST(Documents, AreReadAsEvents) {
    const std::pair<std::string, std::string> cases[] = {
        {R"(<?xml ?><Velm Delta="0"><Devices ID="2162688">)"
         R"(<Device Number="1" Enabled="1" ipAddress="10.0.0.1" Name="105" Serial="02-50" Firmware="61750">)"
         R"(<Video><Input Number="0" Name="Camera 1"/></Video><Codec><Resolution/><Encoder><Channel )"
         R"(Width="64" Height="48" Standard="5" Framerate="9" Quality="4"/></Encoder></Codec></Device>)"
         R"(<Device Number="2"><Video><Input Name="Camera 1 west"/></Video></Device></Devices></Velm>)",
         R"("camera":1,"kind":"config","values":{"name":"Camera 1","address":"10.0.0.1","enabled":true,)"
         R"("model":105,"firmware":61750,"serial":"02-50","codec":"h264",)"
         R"("width":64,"height":48,"framerate":9,"quality":4}})"
         "00:00:00  camera 1: settings 64x48 H.264 9 fps, model 105, firmware 61750"},
        {device_1(R"(<Video><Input Number="0" Motion="1" Time="1" Milliseconds="7" Context="0" /></Video>)"),
         R"({"time":"1970-01-01T00:00:01.007Z","camera":1,"kind":"motion","values":{"active":true}})"},
        {device_1(R"(<Codec><Encoder><Channel Number="0" Connected="0" Time="2" /></Encoder></Codec>)"),
         R"("1970-01-01T00:00:02.000Z","camera":1,"kind":"connection","values":{"connected":false}})"},
        {device_1(R"(<Trigger><Input Number="0" Alarm="1" Time="3" Milliseconds="0" /></Trigger>)"),
         R"("camera":1,"kind":"trigger","values":{"active":true}})"},
        {"<?xml ?><log_msg level=\"50\">Camera 1 west - did not receive block 3 of 9</log_msg>",
         R"("camera":2,"kind":"log","values":{"level":50,)"
         R"("text":"Camera 1 west - did not receive block 3 of 9","lost_block":3,"of":9}})"},
        {"<?xml ?><log_msg level=\"50\">10.0.0.1 timeout</log_msg>",
         R"("camera":1,"kind":"log","values":{"level":50,"text":"10.0.0.1 timeout","timeout":true}})"},
        {"<?xml ?><log_msg level=\"75\">10.0.0.11 timeout</log_msg>", R"("camera":0,"kind":"log")"},
        {R"(<?xml ?><Velm Delta="0"><Devices ID="2162688" /></Velm>)",
         R"("camera":1,"kind":"config","values":{"removed":true}})"},
        {R"(<Velm Delta="0"><Devices><Device Number="1" Enabled="1" Name="105"><Codec><Encoder>)"
         R"(<Channel Width="65535" Height="65535" Framerate="9"/></Encoder></Codec></Device></Devices></Velm>)",
         R"("width":0,"height":0,"framerate":9,"quality":0}}00:00:00  camera 1: settings model 105)"},
        {"<Velm><Devices", R"("kind":"unknown","values":{"text":"<Velm><Devices"}})"},
    };
    EXPECT_NE(relay_document(1, 3, false).find(R"(Time="0" Milliseconds="0" Action="3" Alarm="0")"),
              std::string::npos);
    EXPECT_NE(remove_all_document().find(R"(<Device Number="255" ipAddress="" />)"), std::string::npos);
    DocumentReader reader;
    for (const auto& [text, line] : cases) {
        const auto events = reader.read(text, 5);
        ASSERT_FALSE(events.empty()) << text;
        const std::string told = json_line(events.front()) + human_line(events.front());
        EXPECT_NE(told.find(line), std::string::npos) << told;
    }
}

TEST(CommandValues, BadOnesAreRefused) {
    EXPECT_EQ(parse_size("1280x960"), std::make_pair(1280, 960));
    for (const char* bad : {"1280", "1280x", "x960", "0x960", "1280x960x", "-1x5", "99999x5", "1e3x5",
                            "camera", "10.0.0", "10.0.0.256", "::1"}) {
        EXPECT_THROW(parse_size(bad), UsageError) << bad;
        EXPECT_THROW(parse_address(bad), UsageError) << bad;
        EXPECT_THROW(parse_codec(bad), UsageError) << bad;
    }
    for (const double bad : {-1.0, 1e300})
        EXPECT_THROW(parse_seconds(bad), UsageError);
}
