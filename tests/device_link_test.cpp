// The link to one camera, packet by packet; what the camera is asked, and what its answers change.
#include <sys/resource.h>
#include <tinyxml.h>

#include <algorithm>
#include <random>

#include "media/jpeg_header.h"
#include "support/scripted_camera.h"

namespace plendix {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;

using DeviceLink = Bench;

TEST_F(DeviceLink, TakesWhatBelongsToTheTransferFromTheTransferPort) {
    EXPECT_EQ(request(), "\0\1getreg?page=3;reg=122;\0netascii\0blksize\0001450\0"s);
    send("\0\3\0\1\0\x69"s, "");  // no options acknowledged yet
    for (const unsigned opcode : {0U, 1U, 2U, 4U, 5U, 7U, 0x103U, 0x600U})
        send(word(opcode) + word(1) + "no", "");
    answer(205);
    expect("getreg?page=3;reg=123;");  // on port 69 again
    send("\0\3\0\2\xF2\0"s, "");       // a stray block of the transfer before
    EXPECT_EQ(device->m_wModel, 205);
    EXPECT_EQ(device->m_wFirmware, 0);
    EXPECT_TRUE(host.events().empty());
    device->Read(static_cast<char>(200));  // numbered alike whether char is signed or not
    expect("getreg?page=3;reg=-56;");
    device->Write(static_cast<char>(255), 65535);
    expect("setreg?page=3;reg=-1;val=65535;");
}

TEST_F(DeviceLink, TakesTheBlockSizeFromOptionsInsideTheDatagramOnly) {
    std::string lists =  // with / for NUL
        "blksize/1024/=1024 tsize/9/blksize/8/x/y/=8 blksize/66986/=1450 blksize/1024=1024 blksize/0/=0 "
        "blksize/512/=512 tsize/9/=512 blksize/=512 blksize=512 tsize=512 /blksize/1024/=512 //=512 ";
    std::replace(lists.begin(), lists.end(), '/', '\0');
    std::istringstream cases(lists);
    std::string list;
    for (int size = 0; std::getline(cases, list, '=') && cases >> size; cases.get()) {
        renew();
        begin();
        grant();  // leaves a longer, valid list behind in the receive buffer
        device->m_wBlockSize = 512;
        options(list);
        EXPECT_EQ(device->m_wBlockSize, size) << list;
        if (size != 512) data(1, "ab");
    }
}

TEST_F(DeviceLink, TakesRepliesOfAnyLength) {
    begin();
    for (std::size_t length = 0; length < 4; ++length) {  // no packet at all
        send(std::string("\0\3\0", length), "");
        begin();
        expect_log("50 " + own_address() + " received invalid packet length " + std::to_string(length));
    }
    grant();
    data(1, word(105) + std::string(1448, 'x'));
    EXPECT_EQ(device->m_wModel, 105);
    expect("");  // a full block is not the last one
    data(2, "");
    for (const auto& [payload, value] : {std::pair{"", 0}, {"\xF2", 0xF200}}) {
        expect("getreg?page=3;reg=123;");
        grant();
        data(1, payload);
        EXPECT_EQ(device->m_wFirmware, value);
    }
}

TEST_F(DeviceLink, ClosesOnFailuresAndTriesAgain) {
    begin();
    grant();
    char packet[] = "\0\3\0\2\0\x69";
    EXPECT_EQ(device->Dispatch(packet, 6, {AF_INET, 0, {}, {}}), 0);  // port 0 takes no acknowledgement
    expect_log("75 " + own_address() + " send error 22");
    EXPECT_EQ(device->m_wModel, 0);
    for (const bool resolvable : {false, true, false}) {
        device->m_sAddress = resolvable ? "255.255.255.255" : "bad..host";
        pass();
        if (resolvable) pass();  // opened first, then asked
        expect_log(resolvable ? "75 255.255.255.255 send error " : "75 bad..host get host by name error ");
        EXPECT_EQ(device->m_Socket, -1);
    }
    device->m_sAddress = own_address();
    const rlimit limit = {FD_SETSIZE + 100, FD_SETSIZE + 100};
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0) GTEST_SKIP() << "may not open more files than select watches";
    std::vector<int> taken(FD_SETSIZE);
    std::generate(taken.begin(), taken.end(), [] { return dup(1); });
    EXPECT_FALSE(device->Open());
    expect_log("75 " + own_address() + " create socket error 24");
    EXPECT_EQ(dup(1), taken.back() + 1);  // nothing was left open
    std::for_each(taken.begin(), taken.end(), close);
    device->Open();
    device->Request(std::string(5000, 'n').c_str());
    expect_log("75 " + own_address() + " request name too long");
    begin();
}

class DeviceService : public Bench {
protected:
    void settle() {  // and stream JPEG: the next request is for a picture
        quiet = true;
        ASSERT_EQ(serve(agreeing), "h264?res=full;x0=0;y0=0;x1=1600;y1=1184;qp=29;iframe=1;ssn=1;");
        device->m_Input.m_nFramerate = device->m_Input.m_nStandard = 0;
        finish_picture();
        expect(picture);
        finish_picture();
    }
    void finish_picture() {  // a JPEG of 16 x 16 pixels
        grant();
        data(1, std::string(1450, 'p'));
        data(2, std::string(80, '\0') + "\4\x8\0\0\0\0\0\x10\0\x10"s);
    }
    // Expects a write of the register that is due 501 ms after the given time, and pictures before.
    void expect_due(std::uint32_t& time, unsigned value, unsigned reply) {
        quiet = false;
        device->m_dwPollTime = device->m_dwOutputTime = timeGetTime();
        time -= 500;
        expect(picture);
        finish_picture();
        time -= 1;
        expect("setreg?page=3;reg=25;val=" + std::to_string(value) + ";");
        quiet = true;
        answer(reply);
    }
    const std::string picture = "image?res=full;x0=0;y0=0;x1=1600;y1=1184;quality=8;doublescan=0;";
};

TEST_F(DeviceService, AsksAFreshCameraInOrder) {
    std::istringstream steps(  // each request, the answer, and whether the host gets the configuration then
        "g122; 105 0 g123; 61705 0 g2; 100 1 s2;val=99; 99 1 g15; 7 1 s15;val=6; 6 1 g16; 5 1 s16;val=4; 4 1 "
        "g70; 0 0 g71; 0 0 g72; 1600 0 g73; 1200 1 g109; 1282 0 s109;val=1283; 1283 0 g110; 37428 0 "
        "s110;val=38708; 38708 0 g111; 773 1 s111;val=4357; 4357 1 s111;val=4356; 4356 1 "
        "s79;val=12308; 12308 0 s25;val=48; 48 0 g25; 1 0 s25;val=32; 32 0");
    testing::internal::CaptureStdout();
    device->Parameter(static_cast<char>(200), 65535);
    uptime += 101;
    std::string name;
    bool seen = false;
    for (unsigned value = 0; steps >> name >> value >> seen; changed = false) {
        expect(name.substr(0, 1) + "etreg?page=3;reg=" + name.substr(1));
        answer(value);
        EXPECT_EQ(changed, seen) << name;
    }
    expect("h264?res=full;x0=0;y0=0;x1=1600;y1=1184;qp=29;iframe=1;ssn=1;");
    EXPECT_EQ(
        testing::internal::GetCapturedStdout(),
        "received register -56 val 65535\n\nsensor 1600x1200\n\nmotion detail 5, mode 1, enable 0\n\n"
        "motion detail 5, mode 1, enable 1\n\nmotion zones 2 zone size 52\n\nmotion zones 7 zone size 52\n\n"
        "motion threshold 5 exposure sensitivity 3\n\nmotion threshold 5 exposure sensitivity 17\n\n"
        "motion threshold 4 exposure sensitivity 17\n\n");
    EXPECT_THAT(host.documents(EventKindAlarm | EventKindLog),
                ElementsAre(HasSubstr(R"(<Input Number="0" Alarm="1" Time="1700000000" Mill)"),
                            R"(<?xml ?><Velm><Devices ID="2162688"><Device Number="7"><Trigger><Output )"
                            R"(Number="0" Alarm="0" Time="1700000000" Milliseconds="123" /></Trigger>)"
                            "</Device></Devices></Velm>"));
}

TEST_F(DeviceService, SettlesOnTheCamerasItSupports) {
    // Registers, what is asked in the end, the zone scale and half the zones by then, and the log.
    const std::tuple<Registers, std::string, int, std::string> cases[] = {
        {{{122, 106}}, "", 0, "50 Model 106 is not supported"},
        {{{122, 99}}, "", 0, "50 Model 99 is not supported"},
        {{{123, 61704}}, "", 0, "50 Version 61704 is not supported"},
        {{{122, 1200}, {123, 61705}}, "x1=1600;y1=1184;", 0x711, ""},
        {{{72, 1200}, {73, 1600}}, "x1=1152;y1=1600;", 0x711, ""},
        {{{72, 2560}, {73, 1920}}, "x1=2560;y1=1920;", 0xA18, ""},
        {{{72, 65534}, {73, 65534}}, "x1=65472;y1=65504;", 0xF20, ""},
        {{{72, 64}, {73, 32}}, "x1=64;y1=32;", 0x101, ""},
        {{{72, 32}, {73, 16}}, "", 0x100, ""},  // no whole picture block
        {{{70, 100}, {71, 100}, {72, 100}, {73, 100}}, "", 0x100, ""},
        {{{70, 200}, {72, 100}}, "", 0xF08, ""},
        {{{2, 0}}, "not settled", 0, ""},
        {{{111, 0}}, "not settled", 0x700, ""}};
    for (auto [registers, name, zones, log] : cases) {
        renew();
        registers.insert(agreeing.begin(), agreeing.end());
        const std::string last = serve(registers);
        EXPECT_THAT(last, HasSubstr(name));
        EXPECT_EQ(last.empty(), name.empty());
        EXPECT_EQ((device->m_wZones & 0xF00) + (device->m_wThreshold >> 8), zones) << last;
        EXPECT_EQ(device->m_Socket == -1, !log.empty()) << log;
        EXPECT_EQ(host.log_lines(), std::vector<std::string>(log.empty() ? 0 : 1, log));
    }
}

TEST_F(DeviceService, PacesPicturesAndWritesChanges) {
    settle();
    CInput& input = device->m_Input;
    input.m_nFramerate = 1;
    uptime += 999;
    expect("");
    uptime += 1;
    expect(picture);
    written.clear();
    std::tie(input.m_nBrightness, input.m_nSaturation, input.m_nSharpness) = std::tuple(60, 100, 100);
    std::tie(input.m_nFramerate, input.m_bEnabled) = std::tuple(0, false);
    device->Close();
    EXPECT_EQ(serve({}), "");  // and no pictures any more
    EXPECT_THAT(written, ElementsAre(Pair(2, 119), Pair(15, 6), Pair(16, 4)));
    for (int threshold = 0; threshold < 256; ++threshold) {
        device->Parameter(111, static_cast<unsigned short>(0x1100 + threshold));
        EXPECT_EQ(input.m_nSensitivity, std::clamp((33 - threshold) / 3 + 1, 1, 10));
    }
    for (const int level : {10, 9, 8, 7, 6, 5, 4, 3, 2, 1}) {
        input.m_nSensitivity = level;
        serve({});
        EXPECT_EQ(written[111], 0x1100U + 34 - 3 * static_cast<unsigned>(level));
    }
}

// Blocks are received where they belong while they come in order, and only then is it known what came.
TEST_F(DeviceService, FilesEveryBlockWhereItBelongsWhateverElseComes) {
    constexpr std::size_t size = 128;
    settle();
    quiet = true;
    device->m_Input.m_nFramerate = 0;
    std::mt19937 generator(1);
    const auto chance = [&] { return static_cast<unsigned>(generator()); };
    const auto noise = [&](std::size_t length) {
        std::string bytes(length, '\0');
        for (char& byte : bytes)
            byte = static_cast<char>(chance() % 255 + 1);
        return bytes;
    };
    std::string space(100 * size, '\0');  // block b at b * size
    const auto file = [&](unsigned block, std::size_t length) {
        const std::string bytes = noise(length);
        data(block, bytes);
        space.replace(block * size, length, bytes);
    };
    for (int round = 0; round < 400; ++round) {
        ASSERT_EQ(asked(), picture);
        options("blksize\000128\0"s);
        const unsigned blocks = 1 + chance() % 12;
        bool counted = false;
        for (unsigned block = 1; block <= blocks; ++block) {
            const unsigned turn = chance() % 40;
            if (turn == 0) send("\0\5\0\1"s + noise(chance() % 3000), "");  // may lie over many blocks
            if (turn == 1) options("tsize\0"s + noise(200));
            if (turn == 2) file(1 + chance() % block, size);  // again, or early
            if (turn == 3 && block < blocks) file(block + 1, size);
            if (turn == 6)
                options("blksize\00064\0"s), send("\0\5\0\1"s + noise(3000), ""),
                    options("blksize\000128\0"s);
            if (turn == 5) file(0, size), counted = true;  // as one more, whatever lies behind the last
            file(block, turn == 4 && block < blocks ? size + 1 + chance() % size : size);
        }
        host.clear();
        data(blocks + 1, std::string(80, '\0') + "\4\x8\0\0\0\0\0\x10\0\x10"s);
        const std::vector<RecordedEvent> frames = host.frames();
        ASSERT_EQ(frames.size(), 1U);
        const std::size_t length = blocks * size - 2;
        ASSERT_EQ(frames[0].data.substr(JpegHeaderSize, length), space.substr(size + 2, length)) << round;
        ASSERT_EQ(frames[0].data.size() > JpegHeaderSize + length, counted) << round;
    }
}

TEST_F(DeviceService, ReadsThePassesClockAgainBehindASlowHost) {
    settle();
    CDevice second(8);
    static_cast<CRegisterRecords&>(second) = *device;
    second.m_bEnabled = true;
    second.m_sAddress = own_address();
    second.m_Input.m_Active = device->m_Input.m_Active;
    ASSERT_TRUE(second.Open());
    second.m_dwPollTime = second.m_dwOutputTime = device->m_dwPollTime = timeGetTime();
    device->m_dwOutputTime = timeGetTime() - 501;
    device->m_nOutputState = -1;  // so that the host is told
    ConnectHost([](_EventParmsIn*, _EventParmsOut*) { return uptime += 400, 0; });
    fd_set read = {};
    CPassClock clock;
    const std::uint32_t before = clock.Now();
    device->Set(read, clock);
    second.Set(read, clock);
    EXPECT_EQ(second.m_Input.m_dwRequestTime, timeGetTime());
    EXPECT_GE(second.m_Input.m_dwRequestTime - before, 400U);
}

TEST_F(DeviceService, GivesAStalledTransferUp) {
    settle();
    device->Parameter(25, 1);
    device->m_Actions[1] = -1;
    device->m_nOutputState = 1;
    uptime = 1LL << 32;  // the millisecond clock shows 0
    host.clear();
    expect(picture);
    uptime += 9'999;
    expect("");
    EXPECT_TRUE(host.events().empty());
    uptime += 1LL << 31;  // a worker held for 24.8 days
    changed = false;
    pass();
    EXPECT_FALSE(changed);
    written.clear();
    reads.clear();
    EXPECT_EQ(serve(agreeing), picture);  // after all the registers
    EXPECT_THAT(reads, ElementsAre(122, 123, 2, 15, 16, 70, 71, 72, 73, 109, 110, 111));
    EXPECT_THAT(written, ElementsAre(Pair(79, 12308)));
    device->Parameter(25, 1);  // the level that the host knows
    EXPECT_TRUE(device->m_Actions.size() == 1 && device->m_nOutputState == 1);
    EXPECT_THAT(host.documents(EventKindAlarm), ElementsAre(HasSubstr(" Connected=\"0\" ")));
    uptime += 10'000;
    grant();  // the acknowledgement begins the time anew
    uptime += 10'000;
    expect("");
    EXPECT_THAT(host.log_lines(), ElementsAre("50 " + own_address() + " timeout"));
    uptime += 1;
    begin();
}

TEST_F(DeviceService, DecodesTheTriggerInputAndDrivesTheRelay) {
    std::istringstream inputs("0 48 -1 0 49 -1 0 17 -1 0 33 -1 0 1 1 0 129 1 0 0 0 0 65486 0 1 0 1 1 1 0");
    unsigned short value = 0;
    for (int closed = 0, state = 0; inputs >> closed >> value >> state;) {
        device->m_bNormallyClosed = closed != 0;
        EXPECT_FALSE(device->Parameter(25, value)) << value;
        EXPECT_EQ(device->m_nInputState, state) << value;
    }
    settle();
    expect_due(device->m_dwPollTime, 48, 49);
    device->m_cRegister = 2;  // of a request that was not sent
    expect(picture);          // no reading follows: the poll was not confirmed
    finish_picture();
    const std::int64_t now = 62135596800000 + calendar;
    const std::pair<ActionMap, int> cases[] = {
        {{}, 0}, {{{1, -1}}, 1}, {{{1, now}, {2, now + 1}}, 1}, {{{1, now}, {2, now - 1}}, 0}};
    const unsigned values[2][2] = {{32, 16}, {16, 32}};  // by NormallyLow and state
    for (const bool low : {false, true}) {
        device->m_bNormallyLow = low;
        for (const auto& [actions, state] : cases) {
            device->m_Actions = actions;
            expect_due(device->m_dwOutputTime, values[low][state], values[low][state]);
            EXPECT_EQ(device->m_nOutputState, state);
        }
    }
    EXPECT_EQ(host.documents(EventKindAlarm).size(), 4U + 2 + 5);  // input, picture, relay
    EXPECT_EQ(host.frames().size(), 2U + 1 + 1 + 8);               // by every turn at the end
}

TEST_F(DeviceService, TellsPicturesWithTheirTimesAfterJanuary2038) {
    const std::pair<std::uint32_t, std::string> cases[] = {
        {2147483647, "2147483647"}, {2147483648, "-2147483648"}, {4102444800, "-192522496"}};
    const std::regex envelope(
        "<\\?xml \\?><Velm><Devices ID=\"2162688\"><Device Number=\"255\">(.*)</Device></Devices></Velm>");
    for (const auto& [seconds, attribute] : cases) {
        calendar = seconds * std::int64_t{1000} + 123;
        host.clear();
        CInput input(255, 0);
        input.m_Actions = {{1, -1}, {2, 62135596800000 + calendar}};  // the 2nd ends
        char frame[] = "frame";
        input.FireVideo(frame, 5, 64, FrameTypeDelta, true, nullptr, 24);
        EXPECT_EQ(input.m_Actions.size(), 1U);
        input.Reset();
        std::vector<std::string> sent;
        for (const RecordedEvent& event : host.events())
            sent.push_back(std::regex_replace(event.data, envelope, "$1"));
        const std::string time = "Time=\"" + attribute + "\"";
        const std::string channel = "<Codec><Encoder Number=\"0\"><Channel Number=\"0\" Connected=";
        EXPECT_THAT(sent, ElementsAre(channel + "\"1\" " + time + " /></Encoder></Codec>",
                                      "<?xml ?><log_msg level=\"25\">Camera receiving video</log_msg>",
                                      "<Video><Input Number=\"0\" Motion=\"1\" " + time +
                                          " Milliseconds=\"123\" Context=\"0\" /></Video>",
                                      "frame", channel + "\"0\" " + time + " /></Encoder></Codec>"));
        const _EventParmsIn in = host.frames().at(0).record;
        EXPECT_TRUE(in.Data == frame && in.FrameSeconds == seconds && in.FrameMilliseconds == 123);
        EXPECT_THAT((std::vector<unsigned>{in.SourceId, in.Kind, in.DataType, in.DataLength, in.VideoSize,
                                           in.VideoVersion, in.FrameType, in.FrameFlags, in.MotionLength}),
                    ElementsAre(0x21FF00, 1, 0x1000040, 5, 152, 1, 2, 0xC0, 0));
    }
}

}  // namespace
}  // namespace plendix
