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

std::string input(const std::string& content) {
    return "><Video><Input Number='0' " + content + "</Input></Video>";
}
std::string channel(const std::string& content) {
    return "><Codec><Encoder><Channel Number='0' " + content + "</Channel></Encoder></Codec>";
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
        std::replace(text.begin(), text.end(), '"', '\'');
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
        EXPECT_THAT(filled(), HasSubstr(part));
    EXPECT_TRUE(parse("Enabled='2' ipAddress='127.0.0.1' username='u' password='p'>"));
    std::istringstream answers(
        "122 1203 123 61750 2 61 15 3 16 2 70 8 71 8 72 1608 73 1208 110 1843 111 200");
    for (int number = 0, value = 0; answers >> number >> value;)
        device.Parameter(static_cast<char>(number), static_cast<unsigned short>(value));
    EXPECT_THAT(filled(), HasSubstr("Width='1600' Height='1184' Standard='3' Framerate='20' "));
    const std::string other = "<Encoder><Channel Number='0' Quality='3'/></Encoder>";
    // The element, and what it does: c changes what the host sees, x closes the link, r (each) begins the
    // stream afresh, h leaves half resolution.
    const std::pair<std::string, std::string> cases[] = {
        {"Number='9' Enabled='x'>", ""},
        {"ipAddress='127.0.0.2'>", "c"},
        {"><Trigger/>", "c"},
        {"><Trigger><Input Number='0' Name='Door' NormallyClosed='1'/><Input Number='0' Name='a'/>"
         "<Input Number='1' Name='a' NormallyClosed='0'/><Input Number='0' NormallyClosed='0'/>"
         "<Output Number='0' Name='' NormallyLow='1'/><Output Number='0' Name='a'/>"
         "<Output Number='0' NormallyLow='0'/></Trigger>"
         "<Trigger><Input Number='0' Name='a' NormallyClosed='0'/></Trigger>",
         "c"},
        {"><Video><Input Number='1' Name='a'/></Video><Video><Input Number='0' Name='a'/></Video>", ""},
        {"><Codec><Encoder><Channel Number='1' Quality='3'/></Encoder></Codec>", ""},
        {"><Codec><Encoder/>" + other + "</Codec><Codec>" + other + "</Codec>", ""},
        {input("Brightness='1' Saturation='0' Sharpness='-3'><Motion/>"), ""},
        {input("><Motion PreMotion='0'/>"), "c"},
        {input("Name=''>"), "c"},
        {input("Name='A&amp;B'>"), "c"},
        {input("><OSD a='1'><b>c</b></OSD>"), "c"},
        {input("><Schedule/>"), "c"},
        {input("><DigPTZ/>"), "c"},
        {channel("Sensitivity='0' MaskWidth='9' ID='9'>"), "x"},
        {channel("Enabled='x' Width='' Standard='-' Framerate='' Quality='q'>"), "x"},
        {channel("Enabled='0'>"), "cx"},
        {channel("Framerate='-1'>"), "cx"},
        {channel("Quality='2'>"), "cx"},
        {channel("Mask=' !!#$%&amp;&apos;()*+&lt;-&gt;/PQRSTUVWXYZ[\\]^_'>"), "cx"},
        {channel("Standard=' 7h'>"), "cxr"},
        {channel("Height='-5'>"), "cxrh"},
        {channel("Width='99999999999999999999' Height='5000'>"), "cxrr"},  // the largest there is
        {channel("Quality='0' Width='800'>"), "cxrh"},
        {channel("><Crop Left='2500' Top='300' Width='5000' Height='6000'/>"), "cxrh"}};
    for (const auto& [content, effect] : cases) {
        device.Open();
        const int before = device.m_Input.m_wSsn;
        std::string seen = parse(content) ? "c" : "";
        if (device.m_Socket == -1) seen += "x";
        seen.append(static_cast<std::size_t>(device.m_Input.m_wSsn - before), 'r');
        EXPECT_EQ(seen + (device.m_Input.m_bHalf ? "h" : ""), effect) << content;
        EXPECT_TRUE(device.m_Input.m_Active.IsValid()) << content;
        device.Close();
    }
    device.m_Input.m_dwKeyFrameTime = 1;
    std::memcpy(device.m_Input.m_MAC, "\x01\x23\x45\x67\x89\xAB", 6);
    EXPECT_EQ(
        filled(),
        "<Device Number='7' Enabled='1' ipAddress='127.0.0.2' username='' password='' Name='1203' "
        "Serial='01-23-45-67-89-AB' Firmware='61750'><Video Inputs='1'><Input Number='0' Name='A&amp;B' "
        "Brightness='1' Saturation='57' Sharpness='60'><Motion PreMotion='0' /><OSD a='1'><b>c</b></OSD>"
        "<Schedule /><DigPTZ /></Input></Video><Codec MinStandard='0' MaxStandard='3'>"
        "<Resolution Width='768' Height='704' Name='768x704' />"
        "<Resolution Width='384' Height='352' Name='384x352' /><Framerate Min='1' Max='20' />"
        "<Encoder Number='0' Running='1'><Channel Number='0' Enabled='0' Width='384' "
        "Height='352' Standard='5' Framerate='-1' Quality='1' Sensitivity='1' "
        "Mask=' !!#$%&amp;&apos;()*+&lt;-&gt;/PQRSTUVWXYZ[\\]^_' MaskWidth='112' MaskHeight='112' "
        "ID='2164480'><Crop Left='2500' Top='300' Width='5000' Height='6000' /></Channel></Encoder></Codec>"
        "<Trigger Inputs='1' Outputs='1'><Input Number='0' Name='Door' NormallyClosed='1' />"
        "<Output Number='0' Name='' NormallyLow='1' Relay='0' /></Trigger></Device>");
    parse(channel("Quality='11' Sensitivity='11'><Crop Top='x' Left='-99999999999' Width='2147483648'/>"));
    EXPECT_THAT(filled(), HasSubstr("Quality='10' Sensitivity='10' "));
    EXPECT_THAT(filled(), HasSubstr("<Crop Left='-2147483648' Top='0' Width='2147483647' Height='10000' />"));
}

TEST_F(DeviceElement, ForgetsTheCameraWhenItDisablesIt) {
    for (const bool told : {true, false}) {  // or switched off by itself, its model not being supported
        device.m_bEnabled = told;
        device.m_Sensor = {0, 0, 1600, 1200};
        device.Parameter(25, 1);
        device.m_Input.Reset();
        EXPECT_TRUE(device.Parameter(2, 99) && device.m_Input.m_Active.IsValid());
        device.Parameter(122, 106);
        device.m_Actions[1] = -1;
        device.m_nOutputState = 1;
        EXPECT_EQ(parse(told ? "Enabled='0'>" : ">"), told);
        EXPECT_EQ(device.m_wModel + device.m_wIO, 0);
        EXPECT_EQ(device.m_nInputState + device.m_nOutputState, -2);
        EXPECT_FALSE(device.m_Sensor.IsValid() || device.m_Input.m_Active.IsValid());
        EXPECT_TRUE(device.m_Actions.empty());
    }
    EXPECT_EQ(host.documents(EventKindAlarm).size(), 2U);  // reported afresh
}

TEST_F(DeviceElement, DecodesTheMask) {
    unsigned char(&mask)[24] = device.m_Input.m_Mask;
    EXPECT_TRUE(parse(channel("Mask='" + std::string(28, ' ') + "'>")));
    EXPECT_TRUE(std::count(mask, mask + 24, 0) == 21 && mask[21] == 255);
    EXPECT_THAT(host.log_lines(), testing::ElementsAre("50 Camera invalid mask length 21"));
    EXPECT_TRUE(parse(channel("Mask='" + std::string(35, ' ') + "'>")));  // the rest is ignored
    EXPECT_EQ(std::count(mask, mask + 24, 0), 24);
    EXPECT_EQ(uu_decode("&<>'\x1F\xFF\x7F\x01!!!", 11, mask, 7), 6U);  // not validated: FF, DF, 5F, E1
    const unsigned char expected[7] = {0x19, 0xC7, 0x87, 0xFD, 0xF7, 0xE1, 0};
    EXPECT_EQ(std::memcmp(mask, expected, 7), 0);
}

TEST_F(DeviceElement, CommandsNeedAllTheirAttributes) {
    const ActionMap kept{{-4, 5}}, ended{{-4, 62135596801002}}, open{{-4, -1}};
    const std::tuple<const char*, const char*, ActionMap, ActionMap> cases[] = {
        // what is replaced by what, and the actions of the input and the output then
        {"Number", "x", kept, kept},       {"Time", "x", kept, kept},
        {"Milliseconds", "x", kept, kept}, {"Action", "x", kept, kept},
        {"Context", "x", kept, ended},     {"Number='0'", "Number='1'", kept, kept},
        {"Record", "x", kept, ended},      {"Record='0'", "Record='-1'", open, ended},
        {"Alarm", "x", ended, kept},       {"Alarm='0'", "Alarm='-1'", ended, open}};
    for (const auto& [name, other, input_actions, output_actions] : cases) {
        CDevice camera(7);
        camera.m_Actions = camera.m_Input.m_Actions = kept;
        const std::string attributes = std::regex_replace(
            std::string("Number='0' Context='0' Time='1' Milliseconds='2' Record='0' Alarm='0' Action='-"),
            std::regex(name), other);
        const std::string commands =
            "<Video><Input " + attributes + "4'/></Video><Trigger><Output " + attributes + "4'/></Trigger>";
        TiXmlDocument document;
        document.Parse(
            ("<Device>" + commands + std::regex_replace(commands, std::regex("-4"), "5") + "</Device>")
                .c_str());
        camera.WriteDevice(document.RootElement());
        EXPECT_EQ(camera.m_Input.m_Actions, input_actions) << name;
        EXPECT_EQ(camera.m_Actions, output_actions) << name;
    }
}

}  // namespace
}  // namespace plendix
