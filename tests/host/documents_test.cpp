// Documents built and read, and values of the command line.
#include <gtest/gtest.h>

#include "host/command_values.h"
#include "host/document_builder.h"
#include "host/document_reader.h"
#include "host/event_log.h"
#include "usage.h"

using namespace plendix;

namespace {

std::string device_1(const std::string& content) {
    return R"(<?xml ?><Velm><Devices ID="2162688"><Device Number="1">)" + content +
           "</Device></Devices></Velm>";
}

}  // namespace

TEST(Documents, AreBuiltAsThePluginReadsThem) {
    const auto stream = [](const CameraSettings& camera) {
        const std::string text = configure_document({camera});
        const std::string head =
            R"(<?xml ?><Velm Delta="1"><Devices ID="2162688"><Device Number="7" Enabled="1" ipAddress="10.0.0.7">)"
            R"(<Video><Input Number="0" Name="Gate &amp; yard" /></Video>)"
            R"(<Codec><Encoder Number="0"><Channel Number="0" Enabled="1")";
        EXPECT_EQ(text.substr(0, head.size()), head);
        return text.substr(head.size());
    };
    const std::string tail = " /></Encoder></Codec></Device></Devices></Velm>";
    CameraSettings camera{7, "10.0.0.7", "Gate & yard"};
    EXPECT_EQ(stream(camera), tail);
    camera.codec = Codec::jpeg;  // without a size the camera would choose the codec
    EXPECT_EQ(stream(camera), R"( Width="65535" Height="65535" Standard="0")" + tail);
    camera = {7, camera.address, camera.name, Codec::h264, 12, 9, 640, 480};
    EXPECT_EQ(stream(camera), R"( Width="640" Height="480" Standard="5" Framerate="12" Quality="9")" + tail);
    EXPECT_NE(remove_all_document().find(R"(<Device Number="255" ipAddress="" />)"), std::string::npos);
    const std::string output =
        R"(<Output Number="0" Time="1700000000" Milliseconds="123" Action="3" Alarm="0" />)";
    EXPECT_EQ(relay_document(1, 3, false, 1700000000123), device_1("<Trigger>" + output + "</Trigger>"));
    const std::string mark =
        R"(<Input Number="0" Context="0" Time="0" Milliseconds="0" Action="4" Record="1" />)";
    EXPECT_EQ(recording_document(1, 4, true), device_1("<Video>" + mark + "</Video>"));
}

TEST(Documents, AreReadAsEvents) {
    const struct {
        std::string text, line;
    } cases[] = {
        {R"(<?xml ?><Velm Delta="0"><Modules><Module Name="Plendix" Version="9.2.3.1" /></Modules></Velm>)",
         R"("camera":0,"kind":"version","values":{"name":"Plendix","version":"9.2.3.1"}})"},
        {R"(<?xml ?><Velm Delta="0"><Devices ID="2162688">)"
         R"(<Device Number="1" Enabled="1" ipAddress="10.0.0.1" Name="105" Serial="02-50" Firmware="61750">)"
         R"(<Video><Input Number="0" Name="Camera 1"/></Video><Codec><Resolution/><Encoder>)"
         R"(<Channel Width="64" Height="48" Standard="5" Framerate="9" Quality="4"/></Encoder></Codec></Device>)"
         R"(<Device Number="2" ipAddress="10.0.0.2"><Video><Input Name="Camera 1 west"/></Video></Device></Devices></Velm>)",
         R"("camera":1,"kind":"config","values":{"name":"Camera 1","address":"10.0.0.1","enabled":true,)"
         R"("model":105,"firmware":61750,"serial":"02-50","codec":"h264",)"
         R"("width":64,"height":48,"framerate":9,"quality":4}})"},
        {device_1(R"(<Video><Input Number="0" Motion="1" Time="1" Milliseconds="7" Context="0" /></Video>)"),
         R"({"time":"1970-01-01T00:00:01.007Z","camera":1,"kind":"motion","values":{"active":true}})"},
        {device_1(R"(<Codec><Encoder><Channel Number="0" Connected="0" Time="2" /></Encoder></Codec>)"),
         R"({"time":"1970-01-01T00:00:02.000Z","camera":1,"kind":"connection","values":{"connected":false}})"},
        {device_1(R"(<Trigger><Input Number="0" Alarm="1" Time="3" Milliseconds="0" /></Trigger>)"),
         R"("camera":1,"kind":"trigger","values":{"active":true}})"},
        {device_1(R"(<Trigger><Output Number="0" Alarm="0" Time="3" Milliseconds="0" /></Trigger>)"),
         R"("camera":1,"kind":"relay","values":{"active":false}})"},
        {"<?xml ?><log_msg level=\"50\">Camera 1 west - did not receive block 3 of 9</log_msg>",
         R"("camera":2,"kind":"log","values":{"level":50,)"
         R"("text":"Camera 1 west - did not receive block 3 of 9","lost_block":3,"of":9}})"},
        {"<?xml ?><log_msg level=\"50\">10.0.0.1 timeout</log_msg>",
         R"("camera":1,"kind":"log","values":{"level":50,"text":"10.0.0.1 timeout","timeout":true}})"},
        {"<?xml ?><log_msg level=\"75\">10.0.0.11 timeout</log_msg>", R"("camera":0,"kind":"log")"},
        {R"(<?xml ?><Velm Delta="0"><Devices ID="2162688" /></Velm>)",
         R"("camera":1,"kind":"config","values":{"removed":true}})"},
        {"<Velm><Devices", R"("kind":"unknown","values":{"text":"<Velm><Devices"}})"},
        {"", R"("kind":"unknown","values":{"text":""}})"},
    };
    DocumentReader reader;
    for (const auto& item : cases) {
        const auto events = reader.read(item.text, 5);
        ASSERT_FALSE(events.empty()) << item.text;
        EXPECT_NE(json_line(events.front()).find(item.line), std::string::npos) << json_line(events.front());
    }
}

TEST(CommandValues, BadOnesAreRefused) {
    EXPECT_EQ(parse_size("1280x960"), std::make_pair(1280, 960));
    for (const char* bad : {"", "1280", "1280x", "x960", "0x960", "1280x960x", "-1x5", "99999x5", "1e3x5"})
        EXPECT_THROW(parse_size(bad), UsageError) << bad;
    for (const char* bad : {"", "camera", "10.0.0", "10.0.0.256", "::1"})
        EXPECT_THROW(parse_address(bad), UsageError) << bad;
    EXPECT_THROW(parse_codec("mjpeg"), UsageError);
    for (const double bad : {-1.0, 1e300})
        EXPECT_THROW(parse_seconds(bad), UsageError);
}
