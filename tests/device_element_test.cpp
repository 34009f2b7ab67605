// The Device element, read and written, commands to it, and its trigger events as documents.
#include <gmock/gmock.h>
#include <tinyxml.h>

#include <cstring>

#include "device/device.h"
#include "input/mask.h"
#include "support/host.h"

namespace plendix {
namespace {

using testing::HasSubstr;

std::string quoted(std::string text) {
    std::replace(text.begin(), text.end(), '\'', '"');
    return text;
}
std::string input(const std::string& content) {
    return "<Video><Input Number='0' " + content + "</Input></Video>";
}
std::string channel(const std::string& content) {
    return "<Codec><Encoder><Channel Number='0' " + content + "</Channel></Encoder></Codec>";
}

class DeviceElement : public testing::Test {
protected:
    bool parse(const std::string& content) {
        TiXmlDocument document;
        document.Parse(("<Device " + content + "</Device>").c_str());
        return device.ParseDevice(document.RootElement());
    }
    std::string filled() {
        TiXmlElement element("Device");
        device.FillDevice(element);
        std::string text;
        text << element;
        return text;
    }
    RecordingHost host;
    CDevice device{7};
};

TEST_F(DeviceElement, IsTakenAsFarAsItIsCompleteAndDescribesTheCamera) {
    for (const char* part : {"Name='0' Serial='00-00-00-00-00-00' Firmware='0'>",
                             "Saturation='50' Sharpness='50'><Motion PreMotion='1000' /><Schedule>"
                             "<Entry FirstHour='0' LastHour='167' Record='1' /></Schedule>"
                             "<DigPTZ><Presets MaxPresets='16' /></DigPTZ></Input>",
                             "MaxStandard='0'><Framerate Min='1' Max='30' /><Encoder Number='0' Running='0'>",
                             "Width='0' Height='0' Standard='0' Framerate='0' Quality='4' Sensitivity='6' "})
        EXPECT_THAT(filled(), HasSubstr(quoted(part)));
    EXPECT_TRUE(parse("Enabled='2' ipAddress='127.0.0.1' username='u' password='p'>"));
    std::istringstream answers(
        "122 1203 123 61750 2 61 15 3 16 2 70 8 71 8 72 1608 73 1208 110 1843 111 200");
    for (int number = 0, value = 0; answers >> number >> value;)
        device.Parameter(static_cast<char>(number), static_cast<unsigned short>(value));
    EXPECT_THAT(filled(), HasSubstr(quoted("Width='1600' Height='1184' Standard='3' Framerate='20' ")));
    const std::pair<std::string, bool> cases[] = {
        // changed
        {"", false},
        {"<Trigger/>", true},
        {"<Trigger><Input Number='0' Name='a'/><Output Number='0' Name='a'/></Trigger>", true},
        {"<Trigger><Input Number='0' Name='Door' NormallyClosed='1'/></Trigger>", true},
        {"<Trigger><Input Number='1' Name='a' NormallyClosed='0'/></Trigger>", true},
        {"<Trigger><Output Number='0' Name='Lamp' NormallyLow='1'/></Trigger>", true},
        {"<Video><Input Number='1' Name='a'/></Video>", false},
        {input("Brightness='1' Saturation='0' Sharpness='-3'><Motion/>"), false},
        {input("><Motion PreMotion='0'/>"), true},
        {input("Name='A&amp;B'>"), true},
        {input("><OSD a='1'><b>c</b></OSD>"), true},
        {input("><Schedule/>"), true},
        {input("><DigPTZ/>"), true},
        {"<Codec><Encoder><Channel Number='1' Quality='3'/></Encoder></Codec>", false},
        {channel("Sensitivity='0' MaskWidth='9' ID='9'>"), false},
        {channel("Enabled='x' Standard='-' Framerate='' Quality='q'>"), false},
        {channel("Enabled='0'>"), true},
        {channel("Framerate='-1'>"), true},
        {channel("Quality='0'>"), true},
        {channel("Mask=' !!#$%&amp;&apos;()*+&lt;-&gt;/PQRSTUVWXYZ[\\]^_'>"), true},
        {channel("><Crop Top='300' Width='5000'/>"), true},  // this and the rest begin the stream afresh
        {channel("Standard=' 7h'>"), true},
        {channel("Width='800'>"), true},
        {channel("Height='-5'>"), true},
        {channel("><Crop Left='2500' Top='2147483648' Width='x'/>"), true}};
    for (const auto& [content, changed] : cases) {
        device.Open();
        EXPECT_EQ(parse("Number='9' Enabled='x'>" + content), changed) << content;
        EXPECT_EQ(device.m_Socket == -1, content.find("Channel Number='0'") != std::string::npos) << content;
        device.Close();
    }
    device.m_Input.m_dwKeyFrameTime = 1;
    std::memcpy(device.m_Input.m_MAC, "\x01\x23\x45\x67\x89\xAB", 6);
    // clang-format off
    EXPECT_EQ(filled(), quoted(
        "<Device Number='7' Enabled='1' ipAddress='127.0.0.1' username='' password='' Name='1203' "
        "Serial='01-23-45-67-89-AB' Firmware='61750'><Video Inputs='1'><Input Number='0' Name='A&amp;B' "
        "Brightness='1' Saturation='57' Sharpness='60'><Motion PreMotion='0' /><OSD a='1'><b>c</b></OSD>"
        "<Schedule /><DigPTZ /></Input></Video><Codec MinStandard='0' MaxStandard='3'>"
        "<Resolution Width='1200' Height='240' Name='1200x240' />"
        "<Resolution Width='600' Height='120' Name='600x120' /><Framerate Min='1' Max='20' />"
        "<Encoder Number='0' Running='1'><Channel Number='0' Enabled='0' Width='600' "
        "Height='120' Standard='5' Framerate='-1' Quality='1' Sensitivity='1' "
        "Mask=' !!#$%&amp;&apos;()*+&lt;-&gt;/PQRSTUVWXYZ[\\]^_' MaskWidth='112' MaskHeight='112' "
        "ID='2164480'><Crop Left='2500' Top='2147483647' Width='10000' Height='10000' /></Channel></Encoder></Codec>"
        "<Trigger Inputs='1' Outputs='1'><Input Number='0' Name='Door' NormallyClosed='1' />"
        "<Output Number='0' Name='Lamp' NormallyLow='1' Relay='0' /></Trigger></Device>"));
    // clang-format on
    parse(">" + channel("Quality='11' Sensitivity='11'>"));
    EXPECT_TRUE(device.m_Input.m_nQuality == 20 && device.m_Input.m_nSensitivity == 10);
}

TEST_F(DeviceElement, ForgetsTheCameraWhenItDisablesIt) {
    device.m_Sensor = {0, 0, 1600, 1200};
    device.Parameter(25, 1);
    device.Parameter(122, 105);
    device.m_Actions[1] = -1;
    EXPECT_TRUE(device.m_Input.m_Active.IsValid());
    EXPECT_TRUE(parse("Enabled='0'>"));
    EXPECT_EQ(device.m_wModel + device.m_wIO, 0);
    EXPECT_FALSE(device.m_Sensor.IsValid() || device.m_Input.m_Active.IsValid());
    EXPECT_TRUE(device.m_Actions.empty());
    device.Parameter(25, 1);
    EXPECT_EQ(host.documents(EventKindAlarm).size(), 2U);  // reported afresh
    device.FireTrigger("Output", 1, 62135596800000 + 1700000000123);
    EXPECT_EQ(
        host.documents(EventKindAlarm).back(),
        quoted("<?xml ?><Velm><Devices ID='2162688'><Device Number='7'><Trigger><Output Number='0' Alarm='1' "
               "Time='1700000000' Milliseconds='123' /></Trigger></Device></Devices></Velm>"));
}

TEST_F(DeviceElement, DecodesTheMask) {
    unsigned char(&mask)[24] = device.m_Input.m_Mask;
    EXPECT_TRUE(parse(">" + channel("Mask='" + std::string(28, ' ') + "'>")));
    EXPECT_TRUE(std::count(mask, mask + 24, 0) == 21 && mask[21] == 255);
    EXPECT_THAT(host.log_lines(), testing::ElementsAre("50 Camera invalid mask length 21"));
    EXPECT_TRUE(parse(">" + channel("Mask='" + std::string(35, ' ') + "'>")));  // the rest is ignored
    EXPECT_EQ(std::count(mask, mask + 24, 0), 24);
    EXPECT_EQ(uu_decode("&<>'\x1F\xFF\x7F\x01!!!", 11, mask, 7), 6U);  // not validated: FF, DF, 5F, E1
    const unsigned char expected[7] = {0x19, 0xC7, 0x87, 0xFD, 0xF7, 0xE1, 0};
    EXPECT_EQ(std::memcmp(mask, expected, 7), 0);
}

TEST_F(DeviceElement, CommandsNeedAllTheirAttributes) {
    // Without the attribute so many remain of the commands to the input and the output.
    const std::pair<const char*, std::size_t> cases[] = {{"Number", 0}, {"Time", 0},    {"Milliseconds", 0},
                                                         {"Action", 0}, {"Context", 1}, {"Record", 1},
                                                         {"Alarm", 1},  {"Other", 2}};
    const std::string attributes =
        "Number='0' Context='0' Time='1' Milliseconds='2' Action='-4' Record='0' Alarm='0'";
    for (const auto& [name, taken] : cases) {
        device.m_Input.m_Actions.clear();
        device.m_Actions.clear();
        const std::string left = std::regex_replace(attributes, std::regex(name), "Missing");
        TiXmlDocument document;
        document.Parse(
            ("<Device><Video><Input " + left + "/></Video><Trigger><Output " + left + "/></Trigger></Device>")
                .c_str());
        device.WriteDevice(document.RootElement());
        EXPECT_EQ(device.m_Input.m_Actions.size() + device.m_Actions.size(), taken) << name;
    }
    EXPECT_EQ(device.m_Actions, (ActionMap{{-4, 62135596801002}}));
    EXPECT_EQ(device.m_Input.m_Actions, device.m_Actions);
}

}  // namespace
}  // namespace plendix
