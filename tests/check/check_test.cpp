// Which rules hold for cameras as they should be, for those with one fault each, and for what is no camera.
#include <future>
#include <sstream>
#include <thread>

#include "check/check_report.h"
#include "made_camera.h"

namespace plendix::camera::test {
namespace {

using namespace std::chrono_literals;
using check::CheckOptions;
using check::CheckReport;
using check::Rule;
using check::Verdict;
using testing::IsEmpty;
using testing::IsSupersetOf;
using Names = std::vector<std::string>;

Names rules_with(const CheckReport& report, Verdict verdict) {
    Names names;
    for (std::size_t i = 0; i < check::rules; ++i)
        if (report.findings.of(static_cast<Rule>(i)).verdict == verdict)
            names.push_back(check::rule_words().at(i).name);
    return names;
}

std::string text_of(const CheckReport& report) {
    std::ostringstream text;
    print_report(text, report);
    return text.str();
}

class CheckTest : public CameraBench {
protected:
    CheckReport examine(CheckOptions options = {}) {
        options.address = own_address(1);
        options.patience = std::min<std::chrono::milliseconds>(options.patience, 1s);
        options.withheld = 60ms;
        options.abandoned = 100ms;
        return check::examine(options);
    }
    std::vector<int> registers() {
        std::vector<int> values;
        for (const int number : {2, 15, 16, 109, 110, 111})
            values.push_back(client.read(number));
        return values;
    }
};

TEST_F(CheckTest, FindsNothingWrongWithSimulatedCamerasAndLeavesThemAsTheyWere) {
    struct Case {
        unsigned width, height;
        std::size_t count;  // five and more share pictures that are coded once
        Names skipped;
    };
    const Case cases[] = {{1600, 1200, 1, {}},
                          {648, 486, 5, {}},
                          {64, 32, 1, {"jpeg.area", "h264.area"}},
                          {40, 32, 1, {"pictures.codec"}}};
    for (const Case& one : cases) {
        SCOPED_TRACE(one.width);
        Config camera = sensor(one.width, one.height);
        camera.registers = {{2, 51}, {109, 1}, {111, 0x1110}};
        start(camera, one.count);
        const auto before = registers();
        CheckOptions options;
        options.relay = true;
        const CheckReport report = examine(options);
        EXPECT_THAT(rules_with(report, Verdict::fail), IsEmpty()) << text_of(report);
        const Names skipped = rules_with(report, Verdict::skip);
        EXPECT_THAT(skipped, IsSupersetOf(one.skipped)) << text_of(report);
        const bool pictures = one.width >= 64;
        EXPECT_TRUE(!pictures || skipped.size() == one.skipped.size()) << text_of(report);
        EXPECT_TRUE(report.clean());
        EXPECT_EQ(registers(), before);
        EXPECT_EQ(fleet->relay(0), 0);
    }
}

struct FaultCase {
    const char* faults;
    std::uint64_t from;  // pictures sent; 0: from the beginning
    Names wrong;         // rules that it breaks
    Names perhaps = {};  // and such as it may break, as chance has it
};

void PrintTo(const FaultCase& one, std::ostream* out) {
    *out << one.faults;
}

class FaultCheck : public CheckTest, public testing::WithParamInterface<FaultCase> {};

TEST_P(FaultCheck, FindsTheRuleThatItBreaks) {
    const FaultCase& one = GetParam();
    Behaviour behaviour;
    if (one.from == 0) behaviour.faults = parse_faults(one.faults);
    start(sensor(320, 240), 1, behaviour);
    const auto later = std::async(std::launch::async, [&] {
        const auto end = Clock::now() + 20s;
        while (one.from > 0 && fleet->counters(0).frames < one.from && Clock::now() < end)
            std::this_thread::sleep_for(1ms);
        for (const Fault& fault : parse_faults(one.from > 0 ? one.faults : ""))
            fleet->inject(0, fault);
    });
    const CheckReport report = examine();
    Names wrong;
    for (const std::string& name : rules_with(report, Verdict::fail))
        if (std::find(one.perhaps.begin(), one.perhaps.end(), name) == one.perhaps.end())
            wrong.push_back(name);
    EXPECT_THAT(wrong, testing::UnorderedElementsAreArray(one.wrong)) << text_of(report);
    const Names skipped = rules_with(report, Verdict::skip);
    EXPECT_TRUE(!one.perhaps.empty() || skipped == Names{"registers.relay"}) << text_of(report);
}

INSTANTIATE_TEST_SUITE_P(
    Of, FaultCheck,
    testing::Values(
        FaultCase{"loss", 0, {"answers.all"}}, FaultCase{"ack-loss", 0, {"blocks.acks"}},
        FaultCase{"duplicate", 0, {"answers.once"}}, FaultCase{"reorder", 0, {"blocks.wait"}},
        FaultCase{"delay=15%/110ms", 0, {"answers.prompt"}},
        FaultCase{"corrupt=100%",
                  0,
                  {"jpeg.libjpeg", "jpeg.libav", "h264.libav"},
                  {"pictures.padding", "jpeg.markers", "jpeg.end", "jpeg.quality", "h264.slices", "h264.qp"}},
        FaultCase{"truncate", 0, {"blocks.full"}}, FaultCase{"garbage", 0, {"answers.packets"}},
        FaultCase{"foreign", 0, {"answers.sender"}}, FaultCase{"wrong-block", 0, {"blocks.numbers"}},
        FaultCase{"no-oack", 0, {"options.acknowledged"}}, FaultCase{"oack-512", 0, {"options.size"}},
        FaultCase{"error", 0, {"answers.refused"}}, FaultCase{"silent=300ms", 0, {"answers.all"}},
        FaultCase{"reboot=300ms", 2, {"registers.kept"}, {"answers.all", "blocks.complete"}},
        FaultCase{"mac-change", 2, {"pictures.mac"}}),
    [](const auto& one) {
        const std::string faults = one.param.faults;
        std::string name = faults.substr(0, faults.find('='));
        std::replace(name.begin(), name.end(), '-', '_');
        return name;
    });

TEST_F(CheckTest, JudgesNothingBehindTheEndAndPutsBackWhatItChanged) {
    start(sensor(320, 240));
    const auto before = registers();
    CheckOptions options;
    options.stopped = [&] { return fleet->counters(0).frames >= 2; };  // 111 is another then
    const CheckReport report = examine(options);
    EXPECT_THAT(rules_with(report, Verdict::fail), IsEmpty()) << text_of(report);
    EXPECT_EQ(report.findings.of(Rule::stream_row).note, "ended before its time");
    EXPECT_EQ(registers(), before);

    fleet.reset();
    options.stopped = {};
    options.patience = 100ms;
    const CheckReport nobody = examine(options);
    EXPECT_FALSE(nobody.heard || nobody.clean());
}

struct DefectCase {
    std::string title;
    std::function<void(MadeCamera&)> make;
    Names wrong;  // no others; what cannot be judged then is left out
};

TEST_F(CheckTest, FindsEachDefectOfACameraByItsRule) {
    using File = const std::string&;
    const std::vector<DefectCase> cases{
        {"none", [](MadeCamera&) {}, {}},
        {"JPEG only", [](MadeCamera& it) { it.h264 = false; }, {}},
        {"less granted", [](MadeCamera& it) { it.granted = "1400"; }, {"blocks.full"}},
        {"more granted", [](MadeCamera& it) { it.granted = "2000"; }, {"options.size"}},
        {"one size",
         [](MadeCamera& it) { it.refuses = [](File text) { return text.find("1024") != text.npos; }; },
         {"answers.refused"}},
        {"from 69", [](MadeCamera& it) { it.from_request_port = true; }, {"answers.port"}},
        {"hurried",
         [](MadeCamera& it) {
             it.hurried = true;
             it.h264 = false;
         },
         {"options.wait", "blocks.wait"}},
        {"restless",
         [](MadeCamera& it) {
             it.restless = true;
             it.h264 = false;
         },
         {"blocks.repeat"}},
        {"beyond", [](MadeCamera& it) { it.beyond = true; }, {"blocks.end"}},
        {"octet",
         [](MadeCamera& it) { it.refuses = [](File text) { return text.find("octet") != text.npos; }; },
         {"requests.mode"}},
        {"tsize",
         [](MadeCamera& it) { it.refuses = [](File text) { return text.find("tsize") != text.npos; }; },
         {"requests.options"}},
        {"keys",
         [](MadeCamera& it) { it.refuses = [](File text) { return text.find("zoom") != text.npos; }; },
         {"requests.keys"}},
        {"unknown register",
         [](MadeCamera& it) { it.mute = [](File name) { return name.find("9999") != name.npos; }; },
         {"requests.register", "answers.all"}},
        {"unknown file",
         [](MadeCamera& it) { it.mute = [](File name) { return name[0] == 'n'; }; },
         {"requests.file", "answers.all"}},
        {"model", [](MadeCamera& it) { it.stuck[122] = 150; }, {"registers.model"}},
        {"firmware", [](MadeCamera& it) { it.stuck[123] = 61704; }, {"registers.firmware"}},
        {"no sensor", [](MadeCamera& it) { it.stuck[72] = 0; }, {"registers.sensor", "registers.unread"}},
        {"unread", [](MadeCamera& it) { it.registers[15] = 65535; }, {"registers.unread"}},
        {"stuck",
         [](MadeCamera& it) {
             it.stuck = {{2, 11}, {110, 4}, {79, 0}, {25, 48}};
         },
         {"registers.2", "registers.110", "registers.setup", "registers.trigger"}},
        {"not to be put back",  // 111 takes a value once for its own rule, once for registers.kept
         [](MadeCamera& it) {
             it.refuses = [left = 3](File text) mutable {
                 return text.find("setreg?page=3;reg=111;") != text.npos && --left < 0;
             };
         },
         {"registers.kept", "answers.refused"}},
        {"MAC",
         [](MadeCamera& it) { it.spoil_trailer = [](Bytes& t) { std::fill_n(t.begin() + 6, 6, 0); }; },
         {"pictures.mac"}},
        {"trailer",
         [](MadeCamera& it) { it.h264 = false, it.spoil_trailer = [](Bytes& t) { t.resize(89); }; },
         {"pictures.trailer"}},
        {"trailers of JPEG",
         [](MadeCamera& it) { it.spoil_trailer = [](Bytes& t) { t.resize(90); }; },
         {"h264.trailer"}},
        {"no quality",
         [](MadeCamera& it) { it.spoil_trailer = [](Bytes& t) { t[81] = 27; }; },
         {"jpeg.trailer"}},
        {"outside",
         [](MadeCamera& it) {
             it.spoil_trailer = [](Bytes& t) {
                 t[83] = 1;
                 t[87] = 129;
             };
         },
         {"jpeg.area", "h264.area"}},
        {"a block of zeros",
         [](MadeCamera& it) {
             it.spoil_blocks = [](auto& all) { all.insert(all.end() - 1, Bytes(all[0].size())); };
         },
         {"pictures.padding"}},
        {"other padding",
         [](MadeCamera& it) { it.spoil_jpeg = [](Bytes& jpeg) { jpeg.push_back(1); }; },
         {"pictures.padding"}},
        {"no restart",
         [](MadeCamera& it) {
             it.spoil_jpeg = [](Bytes& jpeg) { jpeg.erase(jpeg.begin() + 42, jpeg.begin() + 44); };
         },
         {"jpeg.markers", "jpeg.libjpeg"}},
        {"no end",
         [](MadeCamera& it) { it.spoil_jpeg = [](Bytes& jpeg) { jpeg.resize(jpeg.size() - 2); }; },
         {"jpeg.end", "jpeg.libjpeg"}},
        {"no key frame", [](MadeCamera& it) { it.key_on_request = false; }, {"h264.request"}},
        {"one stream", [](MadeCamera& it) { it.ssn_matters = false; }, {"h264.ssn"}},
        {"numbers",
         [](MadeCamera& it) {
             it.spoil_slice = [](Bytes& slice, bool key) {
                 if (!key) slice[1] ^= 0x80;
             };
         },
         {"h264.slices"}}};
    for (const DefectCase& one : cases) {
        SCOPED_TRACE(one.title);
        MadeCamera camera;
        one.make(camera);
        const Answering answering(std::ref(camera));
        const CheckReport report = examine();
        EXPECT_THAT(rules_with(report, Verdict::fail), testing::UnorderedElementsAreArray(one.wrong))
            << text_of(report);
    }
}

TEST_F(CheckTest, EndsWithAFailureWhateverAnswers) {
    std::uint16_t block = 0;
    std::uint32_t random = 1;
    const auto noise = [&random](std::size_t size) {
        Bytes bytes(size);
        for (std::uint8_t& byte : bytes)
            byte = static_cast<std::uint8_t>((random = random * 1664525 + 1013904223) >> 24);
        return bytes;
    };
    const auto data = [](std::uint16_t number, std::size_t size) {
        return Answer{test::data(number, Bytes(size, 0x1B))};
    };
    const std::vector<std::pair<std::string, Answering::Answers>> strangers{
        {"answers.packets", [&](const Bytes&) { return std::vector<Answer>(8, {noise(700)}); }},
        {"answers.packets", [](const Bytes& datagram) { return std::vector<Answer>{{datagram}}; }},
        {"answers.refused",
         [](const Bytes&) {
             return std::vector<Answer>{{{0, 5, 0, 1, 27, '[', '2', 'J', 7, 0x9B, 0}}};
         }},
        {"options.size", [&](const Bytes&) { return std::vector<Answer>{{oack(std::string(65000, '9'))}}; }},
        {"options.size",
         [&](const Bytes&) {
             return std::vector<Answer>{{oack("1")}, {noise(4)}};
         }},
        {"registers.bytes",
         [&](const Bytes& datagram) {
             if (datagram[1] == 1) block = 0;
             return std::vector<Answer>{datagram[1] == 1 ? Answer{oack("1450")} : data(++block, 1450)};
         }},
        {"registers.bytes",
         [&](const Bytes& datagram) {
             return std::vector<Answer>{datagram[1] == 1 ? Answer{oack("1450")} : data(1, 0)};
         }},
        {"blocks.full",
         [&](const Bytes& datagram) {
             return std::vector<Answer>{datagram[1] == 1 ? Answer{oack("1450")} : data(1, 60000)};
         }},
        {"registers.model", [&](const Bytes& datagram) {  // any register and any picture is two bytes
             return std::vector<Answer>{datagram[1] == 1 ? Answer{oack("1450")} : data(1, 2)};
         }}};
    for (const auto& [rule, answers] : strangers) {
        SCOPED_TRACE(rule);
        const Answering answering(answers);
        CheckOptions options;
        options.patience = 100ms;
        options.budget = 4s;
        const CheckReport report = examine(options);
        EXPECT_THAT(rules_with(report, Verdict::fail), IsSupersetOf({rule})) << text_of(report);
        EXPECT_LT(report.took.count(), 10.0);
        const std::string text = text_of(report);
        EXPECT_TRUE(std::none_of(text.begin(), text.end(), [](char c) {
            return (static_cast<unsigned char>(c) < 32 && c != '\n') || c == 127;
        })) << text;
    }
}

}  // namespace
}  // namespace plendix::camera::test
