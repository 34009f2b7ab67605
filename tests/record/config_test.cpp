// Configuration files: what is refused, what becomes of the rest in a real driver, and reloads.
#include <condition_variable>
#include <fstream>

#include "host/configuration_reader.h"
#include "host/document_builder.h"
#include "host/document_reader.h"
#include "host/plugin_library.h"
#include "host/process_state.h"
#include "plugin/host_records.h"
#include "record/config_file.h"
#include "record/config_probe.h"
#include "support/camera_bench.h"
#include "support/folder.h"
#include "usage.h"

namespace plendix::camera::test {
namespace {

using namespace std::chrono_literals;

RecorderConfig read_text(const std::string& text) {
    std::ofstream("c.toml") << text;
    return read_config("c.toml");
}

TEST(ConfigFile, IsRefusedWithTheLineAndWhatWouldBeRight) {
    const TemporaryFolder folder;
    const std::string camera = "[[camera]]\naddress = '10.0.0.1'\n",
                      second = "[[camera]]\naddress = '10.0.0.2'\n";
    const std::string row = "########\n", quotes = "'''\n";
    std::string many;
    for (int i = 0; i < 256; ++i)
        many += "[[camera]]\naddress = '10.0.1." + std::to_string(i) + "'\n";
    const std::pair<std::string, std::string> cases[] = {
        {camera + "rat = 9", "c.toml:3: key 'rat' is not known in [[camera]]: did you mean 'rate'?"},
        {"[recrd]\n" + camera, "c.toml:1: key 'recrd' is not known: did you mean 'record'?"},
        {camera + "\nrate = 99", "c.toml:4: rate 99 is not from 1 to 60"},
        {camera + "rate = '9'", "c.toml:3: rate is a text, not a whole number"},
        {camera + "enabled = 1", "c.toml:3: enabled is a number, not true or false"},
        {camera + "crop = 5", "c.toml:3: crop is a number, not a table"},
        {camera + "crop = { lft = 5 }", "c.toml:3: key 'lft' is not known in crop: did you mean 'left'?"},
        {camera + "crop = { left = 9, width = 9999 }",
         "left and width are 10008 together, not at most 10000"},
        {camera + "size = 'big'", "c.toml:3: size 'big' is not WIDTHxHEIGHT"},
        {camera + "codec = 'mpeg'", "c.toml:3: codec 'mpeg' is neither jpeg nor h264"},
        {camera + "name = \"a\\nb\"", "c.toml:3: name has control characters"},
        {camera + "relay = { name = '' }", "c.toml:3: name has 0 bytes: 1 to 64 are right"},
        {camera + "mask = " + quotes + row + "###x####\n'''", "c.toml:5: row 2 of the mask has a 'x': # is"},
        {camera + "mask = '''" + row + "###\n'''", "c.toml:4: row 2 of the mask has 3 zones, not 8"},
        {camera + "mask = " + quotes + row + "'''", "c.toml:3: mask has 1 rows, not 8"},
        {camera + second + "number = 1", "c.toml:5: number 1 is taken by camera 'Camera 1'"},
        {camera + "number = 300", "c.toml:3: number 300 is not from 1 to 255"},
        {camera + camera, "c.toml:4: address 10.0.0.1 is camera 1's, too"},
        {camera + "name = 'A'\n" + second + "name = 'A'", "c.toml:6: name 'A' is camera 1's, too"},
        {"[[camera]]\naddress = 'gate'", "c.toml:2: address 'gate' is not a dotted IPv4 address"},
        {"\n[[camera]]\nrate = 5", "c.toml:2: a camera needs an address"},
        {"[camera]", "c.toml:1: camera is a table, not tables of the form [[camera]]"},
        {"[defaults]\nname = 'A'", "c.toml:2: name is each camera's own"},
        {"[record]\nsegment = '10x'", "c.toml:2: segment: duration '10x' is not a number of seconds"},
        {"[record]\nsegment = 0.5", "c.toml:2: segment '0.500000' is under a second"},
        {"[record]\nkeep_size = '-1G'", "c.toml:2: keep_size: size '-1G' is not a number of bytes"},
        {"[record]\nnames = 'cet'", "c.toml:2: names 'cet' is neither utc nor local"},
        {"[record]\nrate = 5",
         "c.toml:2: key 'rate' is not known in [record]: known are output, state, plugin,"},
        {"[record\n", "c.toml:1: "},
        {"[record]", "c.toml: no camera"},
        {many, "c.toml:511: more than 255 cameras"},
    };
    for (const auto& one : cases)
        EXPECT_THAT([&] { read_text(one.first); },
                    testing::ThrowsMessage<UsageError>(testing::HasSubstr(one.second)));
    EXPECT_EQ(read_text(camera + "enabled = false\n" + camera).cameras.size(), 2U) << "one at a time";
    EXPECT_THROW(read_config("nothing.toml"), UsageError);
    EXPECT_THROW(read_config("."), UsageError);
}

/// Everything set, in a way that the driver and its camera of 1600 x 1200 pixels take to the letter.
std::string full_text() {
    return "[record]\noutput = 'there'\nsegment = '10m'\nkeep = '7d'\nkeep_size = '2G'\nkeep_per_camera = "
           "true\n"
           "names = 'local'\nduration = 1.5\ncheck = false\nmotion_hold = '2s'\nquiet = true\n"
           "[defaults]\nrate = 7\nquality = 9\ncodec = 'h264'\nrelay = { normally_low = true, name = 'Lamp' "
           "}\n"
           "[[camera]]\naddress = '" +
           own_address(1) +
           "'\nname = 'Gate <&\"7'\nnumber = 200\nsize = '384x592'\n"
           "crop = { left = 2500, width = 5000 }\nbrightness = 61\nsaturation = 71\nsharpness = 80\n"
           "sensitivity = 8\ntrigger = { name = 'Door', normally_closed = true }\n"
           "mask = '''\n  #.......\n  .#......\n  ..#.....\n  ...#....\n  ....#...\n  ......#.\n  .......#\n"
           "  ########\n'''\n"
           "[[camera]]\naddress = '" +
           own_address(2) +
           "'\ncodec = 'jpeg'\nsize = '1600x1184'\nrate = 30\n"
           "quality = 1\nbrightness = 50\nsaturation = 57\nsharpness = 60\nsensitivity = 3\n"
           "trigger = { name = 'Bell' }\nrelay = { name = 'Horn', normally_low = false }\n";
}

class Configured : public CameraBench {
protected:
    TemporaryFolder folder;
};

TEST_F(Configured, CamerasReportWhatTheFileSaysInItsOwnForm) {
    start({}, 2);
    const RecorderConfig wanted = read_text(full_text());
    EXPECT_EQ(wanted.options.keep, 7 * 24h);
    EXPECT_EQ(wanted.options.keep_size, std::uint64_t{2} << 30U);
    EXPECT_TRUE(wanted.options.check == false && wanted.options.duration == 1500ms);
    std::vector<CameraSettings> reported;
    for (const auto& camera : probe_cameras(PLENDIX_LIBRARY, wanted.cameras, 30s)) {
        EXPECT_TRUE(camera.settled && camera.report.model == 105 && camera.report.firmware == 61750);
        reported.push_back(camera.report.settings);
    }
    const std::string text = config_text(reported, {{2, "remark"}});
    EXPECT_EQ(text.find("# remark\n[[camera]]\nnumber = 2\n"), 0U);
    EXPECT_TRUE(read_text(text).cameras == wanted.cameras) << text;
    EXPECT_THAT(fleet->requested(0), testing::Contains("setreg?page=3;reg=2;val=121;"));
    Config strange;
    strange.model = 150;
    start(strange);
    const auto refused = probe_cameras(PLENDIX_LIBRARY, {wanted.cameras.back()}, 30s);
    EXPECT_TRUE(refused.size() == 1 && !refused[0].settled && !refused[0].report.settings.enabled);
}

/// A host that keeps cameras as they are wanted, and knows what the driver last said of them.
class Keeper {
public:
    explicit Keeper(const std::vector<CameraSettings>& cameras) : now(cameras) {
        plugin.configure(configure_document(cameras));
        plugin.open();
    }
    /// Makes the change, and waits until the driver reports these cameras and pictures come.
    bool change(const std::vector<CameraSettings>& after, const std::vector<CameraSettings>& expected) {
        std::unique_lock lock(mutex);
        const std::string document = change_document(now, after);
        now = after;
        frames.clear();
        lock.unlock();
        send(document);
        lock.lock();
        return news.wait_for(lock, 20s, [&] {
            const auto live = [&](const auto& camera) {
                return !camera.enabled || frames[camera.number] >= 5;
            };
            return reported == expected && std::all_of(now.begin(), now.end(), live);
        });
    }
    int beginnings(int camera) {
        const std::lock_guard lock(mutex);
        return connections[camera];
    }

private:
    void send(const std::string& document) {
        if (!document.empty()) plugin.configure(document);
    }
    bool take(const _EventParmsIn& event) {
        const std::lock_guard lock(mutex);
        if (event.Kind == EventKindVideo) ++frames[static_cast<int>(event.SourceId >> 8U & 255U)];
        const std::string text(static_cast<const char*>(event.Data), event.DataLength);
        if (const auto cameras = read_configuration(text)) {
            reported.clear();
            for (const auto& camera : *cameras)
                reported.push_back(camera.settings);
        }
        for (const Event& fact : DocumentReader().read(text, 0)) {
            if (fact.kind != EventKind::connection || fact.values["connected"] != true) continue;
            ++connections[fact.camera];
            for (const auto& camera : now)
                if (camera.number == fact.camera) send(picture_document(camera));
        }
        news.notify_one();
        return true;
    }

    std::mutex mutex;
    std::condition_variable news;
    std::vector<CameraSettings> now, reported;
    std::map<int, int> frames, connections;
    PluginLibrary plugin{PLENDIX_LIBRARY, [this](const auto& event) { return take(event); }};
};

TEST_F(Configured, ReloadsTouchWhatChangedAndPutBackWhatWasSet) {
    start({}, 3);
    const OutputToFile driver_log("driver.log");
    CameraSettings plain;
    plain.number = 1;
    plain.address = own_address(1);
    plain.name = "Yard";
    CameraSettings shown = plain;  // what the driver reports of it
    shown.trigger_name = "Trigger";
    shown.relay_name = "Alarm";
    std::tie(shown.codec, shown.rate, shown.quality) = std::tuple(Codec::h264, 20, 4);
    std::tie(shown.width, shown.height) = std::tuple(1600, 1184);
    std::tie(shown.brightness, shown.saturation, shown.sharpness, shown.sensitivity) =
        std::tuple(50, 57, 60, 6);
    std::vector<CameraSettings> wanted{plain, read_text(full_text()).cameras.front()};
    ASSERT_EQ(wanted[1].number, 2);
    std::vector<CameraSettings> expected{shown, wanted[1]};
    Keeper keeper(wanted);
    const auto expect = [&](const char* step, int beginnings) {
        EXPECT_TRUE(keeper.change(wanted, expected)) << step;
        EXPECT_EQ(keeper.beginnings(1), beginnings) << step;
        EXPECT_EQ(keeper.beginnings(2), 1) << step;
    };
    const auto set = [&](auto member, auto value) { wanted[0].*member = expected[0].*member = value; };

    expect("nothing", 1);
    set(&CameraSettings::name, "Gate");
    set(&CameraSettings::trigger_name, "Door");
    set(&CameraSettings::relay_normally_low, true);
    expect("names", 1);
    set(&CameraSettings::brightness, 70);
    set(&CameraSettings::sensitivity, 9);
    expect("picture", 1);
    set(&CameraSettings::codec, Codec::jpeg);
    set(&CameraSettings::crop, Crop{0, 5000, 5000, 5000});
    set(&CameraSettings::mask, MotionMask{});
    set(&CameraSettings::rate, 30);
    set(&CameraSettings::quality, 10);
    set(&CameraSettings::width, 384);
    set(&CameraSettings::height, 288);
    expect("stream", 2);
    wanted[0] = plain;
    expected[0] = shown;
    expected[0].brightness = 70;
    expected[0].sensitivity = 9;
    expect("all back", 3);
    set(&CameraSettings::address, own_address(3));
    expected[0].brightness = 50;
    expected[0].sensitivity = 6;
    expect("address", 4);
    set(&CameraSettings::enabled, false);
    expect("off", 4);
    set(&CameraSettings::enabled, true);
    expect("on", 5);
    wanted.erase(wanted.begin());
    expected.erase(expected.begin());
    expect("removed", 5);
    EXPECT_GE(fleet->counters(1).frames + 1, fleet->counters(1).pictures) << "a picture was given up";
}

}  // namespace
}  // namespace plendix::camera::test
