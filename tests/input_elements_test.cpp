#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <tinyxml.h>

#include "input/input.h"
#include "input/mask.h"
#include "support/host.h"

namespace {

struct InputElements : testing::Test {
    /// Applies the one element of the text; what the parser said.
    bool parse(const std::string& text) {
        TiXmlDocument document;
        document.Parse(text.c_str());
        TiXmlElement* const element = document.RootElement();
        if (element->ValueStr() == "Input") return input.ParseInput(element);
        if (element->ValueStr() == "Channel") return input.ParseChannel(element);
        input.WriteInput(element);
        return false;
    }
    std::string filled(const char* name, unsigned short zone = 352) {
        TiXmlElement element(name);
        if (element.ValueStr() == "Input") input.FillInput(element);
        if (element.ValueStr() == "Channel") input.FillChannel(element, zone);
        if (element.ValueStr() == "Codec") input.AddResolutions(element);
        std::string text;
        return text << element;
    }
    plendix::RecordingHost host;
    CInput input{255, 0};
};

TEST_F(InputElements, InputElement) {
    EXPECT_EQ(
        filled("Input"),
        R"(<Input Number="0" Name="Camera" Brightness="50" Saturation="50" Sharpness="50"><Motion PreM)"
        R"(otion="1000" /><Schedule><Entry FirstHour="0" LastHour="167" Record="1" /></Schedule><DigPTZ>)"
        R"(<Presets MaxPresets="16" /></DigPTZ></Input>)");
    EXPECT_FALSE(parse(R"(<Input Brightness="1" Saturation="0" Sharpness="-3"><Motion /></Input>)"));
    for (const char* text : {R"(<Input><Motion PreMotion="0" /></Input>)", R"(<Input Name="A&amp;B" />)",
                             R"(<Input><OSD a="1"><b>c</b></OSD></Input>)", "<Input><Schedule /></Input>",
                             "<Input><DigPTZ /></Input>"})
        EXPECT_TRUE(parse(text)) << text;
    EXPECT_EQ(filled("Input"),
              R"(<Input Number="0" Name="A&amp;B" Brightness="1" Saturation="50" Sharpness="50"><Motion PreM)"
              R"(otion="0" /><OSD a="1"><b>c</b></OSD><Schedule /><DigPTZ /></Input>)");
}

TEST_F(InputElements, ChannelElement) {
    EXPECT_EQ(
        filled("Channel"),
        R"(<Channel Number="0" Enabled="1" Width="0" Height="0" Standard="0" Framerate="0" Quality="4" )"
        R"(Sensitivity="6" Mask="________________________________" MaskWidth="352" MaskHeight="352" )"
        R"(ID="2227968"><Crop Left="0" Top="0" Width="10000" Height="10000" /></Channel>)");
    input.m_bConnected = true;
    input.m_nCropTop = input.m_nCropWidth = 77;
    EXPECT_FALSE(
        parse(R"(<Channel Width="800" Height="-5" Standard="1" Sensitivity="0" MaskWidth="9" ID="9">)"
              R"(<Crop Left="2500" Width="x" /></Channel>)"));
    EXPECT_EQ(input.m_wSsn, 5);  // four resets, one disconnection
    EXPECT_EQ(host.documents(EventKindAlarm).size(), 1U);
    for (const char* text : {R"(<Channel Enabled="0" />)", R"(<Channel Framerate="-1" />)",
                             R"(<Channel Quality="15" />)", R"(<Channel Mask="&amp;&lt;&gt;'" />)"})
        EXPECT_TRUE(parse(text)) << text;
    EXPECT_FALSE(parse(R"(<Channel Enabled="x" Width="" Standard="-" Framerate=" " Quality="q" />)"));
    input.m_bHalf = true;
    EXPECT_EQ(
        filled("Channel", 353),
        R"(<Channel Number="0" Enabled="0" Width="800" Height="-5" Standard="5" Framerate="-1" Quality="10" )"
        R"(Sensitivity="1" Mask="&amp;&lt;&gt;&apos;____________________________" MaskWidth="176" )"
        R"(MaskHeight="176" ID="2227968"><Crop Left="2500" Top="0" Width="10000" Height="10000" /></Channel>)");
    EXPECT_TRUE(input.m_Mask[0] == 0x19 && input.m_Mask[1] == 0xC7 && input.m_Mask[2] == 0x87);
    parse(R"(<Channel Quality="0" Sensitivity="11" />)");
    EXPECT_TRUE(input.m_nQuality == 2 && input.m_nSensitivity == 10);
    EXPECT_EQ(filled("Codec"), "<Codec />");
    CRectangle& active = input.m_Active;
    std::tie(active.x0, active.y0, active.x1, active.y1) = std::make_tuple(1, 1, 2562, 1921);
    EXPECT_EQ(filled("Codec"), R"(<Codec><Resolution Width="2561" Height="1920" Name="2561x1920" />)"
                               R"(<Resolution Width="1280" Height="960" Name="1280x960" /></Codec>)");
}

TEST_F(InputElements, MaskText) {
    const auto zeros = [this] { return std::count(input.m_Mask, input.m_Mask + 24, 0); };
    EXPECT_TRUE(parse("<Channel Mask=\"" + std::string(28, ' ') + "\" />"));
    EXPECT_TRUE(zeros() == 21 && input.m_Mask[21] == 255);
    EXPECT_THAT(host.log_lines(), testing::ElementsAre("50 Camera invalid mask length 21"));
    EXPECT_TRUE(parse("<Channel Mask=\"" + std::string(35, ' ') + "\" />"));  // the rest is ignored
    EXPECT_EQ(zeros(), 24);
    unsigned char decoded[4] = {7, 7, 7, 7};
    EXPECT_EQ(uu_decode("\x1F\xFF\x7F\x01!!!", 7, decoded, 4), 3U);  // not validated: groups FF, DF, 5F, E1
    EXPECT_EQ(std::vector<int>(decoded, decoded + 4), (std::vector<int>{0xFD, 0xF7, 0xE1, 7}));
    char text[9] = "........";
    EXPECT_EQ(
        uu_encode(decoded, 4, text, 7) + uu_encode(decoded, 2, text, 8) + uu_encode(decoded, 4, text, 3), 4U);
    EXPECT_STREQ(text, "_??A....");
}

TEST_F(InputElements, RecordingCommandsNeedAllAttributes) {
    const std::string names[] = {"Context", "Time", "Milliseconds", "Action", "Record"};
    for (const std::string& missing : names) {
        TiXmlElement command("Input");
        for (const std::string& name : names)
            command.SetAttribute(name, name == missing ? "x" : "1");
        input.WriteInput(&command);
    }
    EXPECT_TRUE(input.m_Actions.empty());
    parse(R"(<R Context="0" Time="1" Milliseconds="2" Action="-4" Record="0" />)");
    parse(R"(<R Context="0" Time="1" Milliseconds="2" Action="9" Record="-1" />)");
    EXPECT_EQ(input.m_Actions, (ActionMap{{-4, 62135596801002}, {9, -1}}));
}

}  // namespace
