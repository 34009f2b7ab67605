// What is asked of the cameras, what became of it, and who gets which picture.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "serve/desk.h"
#include "serve/event_feed.h"
#include "serve/history.h"
#include "serve/live_hub.h"
#include "serve/thumbnailer.h"
#include "usage.h"

namespace plendix {
namespace {

using namespace std::chrono_literals;

using nlohmann::json;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

CameraSettings camera(int number) {
    CameraSettings settings;
    settings.number = number;
    settings.name = "Camera " + std::to_string(number);
    settings.address = "127.0.1." + std::to_string(number);
    return settings;
}

FramePointer frame(int number, bool key, std::size_t bytes = 10) {
    auto picture = std::make_shared<Frame>();
    picture->camera = number;
    picture->codec = FrameCodec::h264;
    picture->key = key;
    picture->data.resize(bytes);
    return picture;
}

TEST(SettingsJson, TakesWhatIsRightAndNamesWhatIsNot) {
    const struct {
        const char* patch;
        const char* fault;
    } rows[] = {
        {R"({"quality": 11})", "quality 11: give a whole number from 1 to 10"},
        {R"({"quality": 9007199254740993})", "from 1 to 10"},
        {R"({"rate": 2.5})", "rate 2.5"},
        {R"({"size": "800"})", "800"},
        {R"({"codec": "mpeg"})", "mpeg"},
        {R"({"address": "10.0.0.256"})", "10.0.0.256"},
        {R"({"name": "a\u001bb"})", "one line of 1 to 64 bytes"},
        {R"({"crop": {"left": 5000, "top": 0, "width": 6000, "height": 1}})", "beyond 10000"},
        {R"({"mask": ["########"]})", "give 8 rows"},
        {R"({"relay": {"normally_closed": true}})", "it has name and normally_low"},
        {R"({"qualty": 1})", "did you mean 'quality'?"},
        {R"([1])", "give an object"},
    };
    for (const auto& row : rows) {
        try {
            patched(camera(1), json::parse(row.patch));
            ADD_FAILURE() << row.patch;
        } catch (const UsageError& error) {
            EXPECT_THAT(error.what(), HasSubstr(row.fault));
        }
    }
    const char* whole = R"({"codec": "h264", "size": "800x600", "rate": 5, "quality": 3, "brightness": 7,
        "crop": {"left": 1, "top": 2, "width": 30, "height": 40}, "sensitivity": null,
        "mask": ["#.......", "........", "........", "........", "........", "........", "........", ".......#"],
        "trigger": {"name": "Door", "normally_closed": true}, "relay": {"name": null, "normally_low": true}})";
    const CameraSettings all = patched(camera(1), json::parse(whole));
    EXPECT_EQ(patched(camera(1), json::parse(settings_json(all).dump())), all) << "reads back what it wrote";
    const std::vector<CameraSettings> both{camera(1), camera(2)};
    EXPECT_THROW(require_distinct(both, both[0], patched(both[0], json{{"address", "127.0.1.2"}})),
                 UsageError);
}

TEST(Desk, FollowsAWishUntilItIsAnswered) {
    Desk desk({camera(1), camera(2)}, json{{"2", {{"quality", 7}}}, {"1", {{"quality", 99}}}});
    EXPECT_EQ(desk.wanted()[1].quality, 7) << "as in an earlier life";
    EXPECT_EQ(desk.wanted()[0].quality, 0) << "what cannot be used is left out";
    desk.patch(1, json{{"quality", 9}, {"size", "800x600"}}, 1000);
    EXPECT_THAT(desk.status(1).pending, ElementsAre("quality", "size"));
    const json changes = desk.take_changes();
    EXPECT_EQ(changes["1"]["quality"], 9);
    EXPECT_TRUE(desk.take_changes().is_null());
    CameraSettings other = camera(1);
    other.address = "127.0.1.9";
    EXPECT_EQ(Desk({camera(1)}, changes).wanted()[0].quality, 9);
    EXPECT_EQ(Desk({other}, changes).wanted()[0].quality, 0) << "another camera has the number now";

    CameraState state;
    state.number = 1;
    state.condition = CameraCondition::live;
    std::map<int, ReportedCamera> reports;
    reports[1].settings = camera(1);
    reports[1].settings.quality = 9;
    reports[1].settings.width = 1600;
    reports[1].settings.height = 1184;
    desk.learn({state}, reports, 1500);
    reports[1].settings.width = reports[1].settings.height = 0;
    desk.patch(1, json{{"size", nullptr}}, 1500);
    desk.patch(1, json{{"size", "800x600"}}, 1500);
    desk.learn({state}, reports, 1600);
    EXPECT_THAT(desk.status(1).pending, ElementsAre("size")) << "it begins anew: that is no answer";
    reports[1].settings.width = 768;
    reports[1].settings.height = 592;
    desk.learn({state}, reports, 2000);
    EXPECT_THAT(desk.status(1).pending, IsEmpty());
    EXPECT_THAT(desk.status(1).differs, ElementsAre("size")) << "rounded";
    EXPECT_FALSE(desk.status(1).undo);
    desk.learn({state}, reports, 17000);
    EXPECT_TRUE(desk.status(1).undo) << "no picture for 15 s";
    EXPECT_TRUE(desk.undo(1, 18000));
    EXPECT_EQ(desk.status(1).wanted.quality, 0);
    EXPECT_FALSE(desk.undo(1, 18001));

    CameraSettings configured = camera(2);
    configured.rate = 5;
    desk.replace({configured});
    EXPECT_EQ(desk.status(2).wanted.rate, 5) << "the file's change";
    EXPECT_EQ(desk.status(2).wanted.quality, 7) << "the page's stays";
    EXPECT_FALSE(desk.knows(1));
}

TEST(LiveHub, GivesEachViewerPicturesThatCanBeDecoded) {
    LiveHub hub;
    const auto fast = std::make_shared<Viewer>(Viewer::Limits{100, 1U << 20U});
    const auto slow = std::make_shared<Viewer>(Viewer::Limits{2, 1U << 20U});
    hub.push(frame(1, true));
    EXPECT_TRUE(hub.newest(1) && hub.newest_key(1) && !hub.newest(2));
    hub.follow(1, fast);
    hub.follow(1, slow);
    for (const bool key : {false, true, false, false, true})
        hub.push(frame(1, key));
    hub.push(frame(2, true));
    hub.finish();
    const auto keys = [](Viewer& viewer) {
        std::string text;
        for (int i = 0; i < 500 && text.size() < 4; ++i) {  // the hub's thread deals them out
            while (const FramePointer next = viewer.take())
                text += next->key ? 'K' : 'p';
            std::this_thread::sleep_for(std::chrono::milliseconds(2));
        }
        return text;
    };
    EXPECT_EQ(keys(*fast), "KppK") << "from a key frame on";
    EXPECT_EQ(fast->lost(), 0U);
    EXPECT_EQ(hub.viewers(1), 2U);

    Viewer full({2, 1U << 20U});
    for (const bool key : {true, false, false, false})
        full.offer(frame(1, key));
    EXPECT_TRUE(full.take() && full.take() && !full.take());
    full.offer(frame(1, false));
    full.offer(frame(1, true));
    EXPECT_TRUE(full.take()->key) << "what builds on a lost picture is none";
    EXPECT_EQ(full.lost(), 3U);
}

TEST(LiveHub, GivesNoPictureForLiveThatIsOlderThanTheCameraIsSlow) {
    const struct {
        std::vector<std::pair<std::int64_t, bool>> pictures;  // arrival, key frame
        std::int64_t fresh_ms, stale_ms;                      // the last moment, and the first
    } rows[] = {
        {{{1000, true}, {1050, true}}, 3050, 3051},                                // 20 a second
        {{{1000, true}, {2500, true}}, 5500, 5501},                                // two in three seconds
        {{{1000, true}, {60'000, true}}, 65'000, 65'001},                          // back after a minute
        {{{1000, true}, {1050, false}, {4000, true}, {4050, false}}, 6050, 6051},  // H.264
        {{{1000, true}, {3000, false}, {5900, false}}, 6000, 6001},                // no key frame for 5 s
    };
    for (const auto& row : rows) {
        LiveHub hub;
        EXPECT_FALSE(hub.sight(1, 0).age_ms);
        for (const auto& [arrival_ms, key] : row.pictures) {
            const auto picture = std::make_shared<Frame>(*frame(1, key));
            picture->arrival_ms = arrival_ms;
            hub.push(picture);
        }
        EXPECT_TRUE(hub.sight(1, row.fresh_ms).picture) << row.fresh_ms;
        for (std::int64_t later = row.stale_ms; later < row.stale_ms + 30'000; later += 100)
            EXPECT_FALSE(hub.sight(1, later).picture) << later;
    }
}

TEST(History, CountsNothingTwiceAndKeepsAnHour) {
    History history;
    CameraState state;
    CameraState::Time now{1h};
    const auto look = [&](std::uint64_t frames, bool motion) {
        now += 2s;
        state.frames += frames;
        history.add(state, motion, now);
    };
    look(0, false);
    for (int i = 0; i < 5; ++i)  // a step: ten pictures a second, motion at two of its five looks, a loss
        look(20, i < 2);
    state.lost_blocks += 3;
    ++state.timeouts;
    for (int i = 0; i < 5; ++i)
        look(0, false);
    const auto seen = history.json(now + 3s, 1'000'000);
    EXPECT_EQ(seen["rate"], nlohmann::ordered_json({10.0, 0.0}));
    EXPECT_EQ(seen["lost"], nlohmann::ordered_json({0, 4}));
    EXPECT_EQ(seen["motion"], nlohmann::ordered_json({0.33, 0.0}))
        << "the first look is of the first step, too";
    EXPECT_EQ(seen["end"], "1970-01-01T00:16:37.000Z") << "of the last whole step";
    EXPECT_EQ(history.rate(), 0);

    state.frames = 7;  // another camera in its place: nothing ran backwards
    history.add(state, false, now += 2s);
    EXPECT_EQ(history.rate(), 0);
    for (std::size_t i = 0; i < 5 * (History::steps + 3); ++i)
        look(2, true);
    const auto full = history.json(now, 0);
    EXPECT_EQ(full["rate"].size(), History::steps);
    EXPECT_EQ(full["rate"].back(), 1);
    EXPECT_EQ(full["lost"][0], 0);
    EXPECT_EQ(full["motion"][1], 1);
}

TEST(Wall, IsLeftAloneWhileNobodyTakesItsPictures) {
    Wall wall;
    const auto picture = [](int camera, std::int64_t arrival_ms) {
        auto made = std::make_shared<WallPicture>();
        made->frame.camera = camera;
        made->frame.arrival_ms = arrival_ms;
        made->jpeg = {1};
        return made;
    };
    const auto now = Wall::Clock::now();
    for (const std::int64_t arrival_ms : {1, 2, 3})
        wall.offer(picture(7, arrival_ms));
    EXPECT_FALSE(wall.wants(picture(7, 3)->frame, now)) << "was offered";
    EXPECT_TRUE(wall.wants(picture(8, 3)->frame, now));
    EXPECT_FALSE(wall.wants(picture(8, 3)->frame, now + std::chrono::seconds(5))) << "its viewer sleeps";
    EXPECT_EQ(wall.take()->frame.arrival_ms, 3) << "the newest alone waited";
    EXPECT_FALSE(wall.take());
    EXPECT_TRUE(wall.wants(picture(8, 3)->frame, now + std::chrono::seconds(5)));
}

TEST(EventFeed, TellsAFollowerWhoMissedSomething) {
    EventFeed feed(100);
    for (int i = 0; i < 5010; ++i)
        feed.add({i, 1, EventKind::motion});
    EXPECT_EQ(feed.last_id(), 5109U);
    EXPECT_TRUE(feed.after(0, 1).gap) << "older than what is kept";
    EXPECT_TRUE(feed.after(90'000'000, 1).gap) << "of another life";
    EXPECT_EQ(feed.after(5107, 10).items.size(), 2U);
    EXPECT_FALSE(feed.after(5107, 10).gap);
    LogBook log;
    for (const char* text :
         {"Camera - did not receive block 3 of 5", "Camera - did not receive block 4 of 9"}) {
        Event event{1, 1, EventKind::log};
        event.values["text"] = text;
        log.add(event);
    }
    EXPECT_EQ(log.after(0)["lines"][0]["repeated"], 1);
}

}  // namespace
}  // namespace plendix
