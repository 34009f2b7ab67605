// The Device element, read and written, and the trigger events as documents.
#include <gmock/gmock.h>
#include <tinyxml.h>

#include <cstring>

#include "device/device.h"
#include "support/host.h"

namespace plendix {
namespace {

std::string quoted(std::string text) {
    std::replace(text.begin(), text.end(), '\'', '"');
    return text;
}

class DeviceElement : public testing::Test {
protected:
    bool parse(const std::string& content) {
        TiXmlDocument document;
        document.Parse(("<Device " + content + "</Device>").c_str());
        return device->ParseDevice(document.RootElement());
    }
    std::string filled() {
        TiXmlElement element("Device");
        device->FillDevice(element);
        std::string text;
        text << element;
        return text;
    }
    void identify() {
        std::istringstream answers(
            "122 1203 123 61750 2 61 15 3 16 2 70 8 71 8 72 1608 73 1208 110 1843 111 200");
        for (int number = 0, value = 0; answers >> number >> value;)
            device->Parameter(static_cast<char>(number), static_cast<unsigned short>(value));
    }
    RecordingHost host;
    std::unique_ptr<CDevice> device = std::make_unique<CDevice>(7);
};

TEST_F(DeviceElement, DescribesTheCamera) {
    EXPECT_THAT(filled(), testing::HasSubstr(quoted("Name='0' Serial='00-00-00-00-00-00' Firmware='0'>")));
    EXPECT_THAT(filled(),
                testing::HasSubstr(quoted("MaxStandard='0'><Framerate Min='1' Max='30' /><Encoder ")));
    parse(
        "Enabled='2' ipAddress='a&lt;b' username='u' password='p'><Trigger><Input Number='0' Name='Door' "
        "NormallyClosed='1'/><Output Number='0' Name='Lamp' NormallyLow='1'/></Trigger>");
    identify();
    device->m_Input.m_dwKeyFrameTime = 1;
    std::memcpy(device->m_Input.m_MAC, "\x01\x23\x45\x67\x89\xAB", 6);
    // clang-format off
    EXPECT_EQ(filled(), quoted(
        "<Device Number='7' Enabled='1' ipAddress='a&lt;b' username='' password='' Name='1203' Serial='01-23-45-67-89-AB' "
        "Firmware='61750'><Video Inputs='1'><Input Number='0' Name='Camera' Brightness='31' Saturation='57' Sharpness='60'>"
        "<Motion PreMotion='1000' /><Schedule><Entry FirstHour='0' LastHour='167' Record='1' /></Schedule>"
        "<DigPTZ><Presets MaxPresets='16' /></DigPTZ></Input></Video><Codec MinStandard='0' MaxStandard='3'>"
        "<Resolution Width='1600' Height='1184' Name='1600x1184' /><Resolution Width='800' Height='592' Name='800x592' />"
        "<Framerate Min='1' Max='20' /><Encoder Number='0' Running='1'><Channel Number='0' Enabled='1' Width='1600' "
        "Height='1184' Standard='3' Framerate='20' Quality='4' Sensitivity='1' Mask='________________________________' "
        "MaskWidth='224' MaskHeight='224' ID='2164480'><Crop Left='0' Top='0' Width='10000' Height='10000' /></Channel>"
        "</Encoder></Codec><Trigger Inputs='1' Outputs='1'><Input Number='0' Name='Door' NormallyClosed='1' />"
        "<Output Number='0' Name='Lamp' NormallyLow='1' Relay='0' /></Trigger></Device>"));
    // clang-format on
}

TEST_F(DeviceElement, TakesWhatIsCompleteAndMeantForIt) {
    const std::tuple<const char*, bool, bool> cases[] = {
        // changed, link closed
        {"", false, false},
        {"<Trigger/>", true, false},
        {"<Trigger><Input Number='0' Name='a'/><Output Number='0' Name='a'/></Trigger>", true, false},
        {"<Trigger><Input Number='1' Name='a' NormallyClosed='1'/></Trigger>", true, false},
        {"<Video><Input Number='1' Name='a'/></Video>", false, false},
        {"<Video><Input Number='0' Name='a'/></Video>", true, false},
        {"<Codec><Encoder><Channel Number='1' Quality='3'/></Encoder></Codec>", false, false},
        {"<Codec><Encoder><Channel Number='0'/></Encoder></Codec>", false, true},
        {"<Codec><Encoder><Channel Number='0' Width='640'/></Encoder></Codec>", true, true}};
    device->m_bEnabled = true;
    device->m_sAddress = "127.0.0.1";
    identify();
    for (const auto& [content, changed, closed] : cases) {
        device->Open();
        EXPECT_EQ(parse("Number='7' Enabled='x'>" + std::string(content)), changed) << content;
        EXPECT_EQ(device->m_Socket == -1, closed) << content;
        EXPECT_TRUE(device->m_Input.m_Active.IsValid()) << content;
        device->Close();
    }
    EXPECT_EQ(device->m_sInputName + device->m_sOutputName, "TriggerAlarm");
    EXPECT_FALSE(device->m_bNormallyClosed || device->m_bNormallyLow);
    device->Parameter(25, 1);
    device->m_Actions[1] = -1;
    EXPECT_TRUE(parse("Enabled='0'>"));  // forgets the camera
    EXPECT_EQ(device->m_wModel + device->m_wIO, 0);
    EXPECT_FALSE(device->m_Sensor.IsValid() || device->m_Input.m_Active.IsValid());
    EXPECT_TRUE(device->m_Actions.empty());
    host.clear();
    device->Parameter(25, 1);
    EXPECT_EQ(host.documents(EventKindAlarm).size(), 1U);  // reported afresh
    device->FireTrigger("Output", 1, 62135596800000 + 1700000000123);
    EXPECT_EQ(
        host.documents(EventKindAlarm).back(),
        quoted("<?xml ?><Velm><Devices ID='2162688'><Device Number='7'><Trigger><Output Number='0' Alarm='1' "
               "Time='1700000000' Milliseconds='123' /></Trigger></Device></Devices></Velm>"));
}

}  // namespace
}  // namespace plendix
