// Frames into files, the queue before them, documents built and read, values of the command line.
#include <gtest/gtest.h>

#include "camera/picture/gallery.h"
#include "host/command_values.h"
#include "host/document_builder.h"
#include "host/document_reader.h"
#include "host/event_json.h"
#include "record/camera_recorder.h"
#include "record/decode_check.h"
#include "record/event_text.h"
#include "record/movie_file.h"
#include "record/still.h"
#include "support/folder.h"
#include "usage.h"

using namespace plendix;

TEST(CameraRecorder, SegmentsBeginWithKeyFramesWhereTheyHaveTo) {
    const TemporaryFolder folder;
    RecordFolder root(".", TimeNames::utc);
    CameraRecorder recorder(1, root, std::chrono::seconds(2));
    std::int64_t wall = 1700000000000, arrival = 5000;
    std::uint32_t epoch = 0;
    /// Pictures of the generated scene, 40 ms apart, every 32nd a key frame.
    const auto feed = [&](FrameCodec codec, int width, std::size_t first, std::size_t end) {
        camera::Gallery gallery(camera::generated_loop(), 100'000'000);
        camera::PictureRequest request;
        request.h264 = codec == FrameCodec::h264;
        request.area = {0, 0, width, 16};
        for (std::size_t i = 0; i < end; ++i) {
            const auto* picture = gallery.picture(request, request.area, i);
            if (i < first) continue;
            Frame frame;
            frame.camera = 1;
            frame.codec = codec;
            frame.arrival_ms = arrival += 40;
            frame.time_ms = wall += 40;
            frame.clock_epoch = epoch;
            frame.key = picture->key();
            frame.zones[0] = i == first ? 0x80 : 0;
            frame.data = *picture->file();
            if (codec == FrameCodec::h264) frame.data.insert(frame.data.end(), {0, 0, 1, 9, 0x10});
            recorder.frame(frame, CameraRecorder::Time(std::chrono::milliseconds(arrival)));
        }
    };
    feed(FrameCodec::h264, 96, 30, 64);  // two deltas and a key frame
    wall -= 5000, ++epoch;               // the clock is set back
    feed(FrameCodec::h264, 96, 32, 34);
    feed(FrameCodec::jpeg, 96, 0, 3);
    feed(FrameCodec::jpeg, 128, 0, 52);  // two seconds are over with its 51st
    feed(FrameCodec::h264, 96, 31, 32);
    Frame cut;
    cut.data = {0xFF, 0xD8, 0xFF};
    recorder.frame(cut, {});
    recorder.close();
    EXPECT_EQ(recorder.totals().unstarted, 2U + 1);
    EXPECT_EQ(recorder.totals().unreadable, 1U);
    const auto stems = recorder.take_closed();
    const std::pair<const char*, std::array<std::uint64_t, 2>> expected[] = {{"22-13-20", {32, 1280}},
                                                                             {"22-13-16", {2, 80}},
                                                                             {"22-13-16_02", {3, 120}},
                                                                             {"22-13-16_03", {50, 2000}},
                                                                             {"22-13-18", {2, 80}}};
    ASSERT_EQ(stems.size(), std::size(expected));
    for (std::size_t i = 0; i < stems.size(); ++i) {
        EXPECT_EQ(stems[i], std::string("camera-1/2023-11-14/") + expected[i].first);
        const DecodeResult result = check_file(stems[i].string() + ".mkv");
        EXPECT_TRUE(result.clean()) << result.first_fault;
        EXPECT_EQ(result.packets, expected[i].second[0]) << i;
        EXPECT_GT(std::filesystem::file_size(write_still(stems[i].string() + ".mkv")), 100U);
        MovieFile movie(stems[i].string() + ".mkv");
        const LibavPointer<AVPacket> packet(av_packet_alloc());
        std::int64_t time = 0;
        for (; movie.read(*packet); time += 40)
            EXPECT_EQ(packet->pts, time);
        EXPECT_EQ(time, static_cast<std::int64_t>(expected[i].second[1])) << i;
    }
    EXPECT_EQ(MotionFile("camera-1/2023-11-14/22-13-16_03.motion").size(), 1U);
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
