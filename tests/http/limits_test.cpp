// How long a login lasts and how often one may try, on a clock that the test sets.
#include <gtest/gtest.h>

#include "http/login_tries.h"
#include "http/sessions.h"

namespace plendix {
namespace {

using namespace std::chrono_literals;

TEST(LoginTries, SlowWhoeverTriesButNobodyElse) {
    LoginTries tries;
    LoginTries::Clock::time_point now{1h};
    for (int i = 0; i < LoginTries::free_tries; ++i)
        EXPECT_EQ(tries.begin("10.0.0.1", now), 0s) << i;
    for (const auto pause : {1s, 2s, 4s, 8s, 16s, 32s, 60s, 60s}) {
        EXPECT_EQ(tries.begin("10.0.0.1", now + pause - 1ms), 1s) << "asked too early, which costs nothing";
        EXPECT_EQ(tries.begin("10.0.0.1", now), pause);
        now += pause;
        EXPECT_EQ(tries.begin("10.0.0.1", now), 0s) << pause.count();
    }
    EXPECT_EQ(tries.begin("10.0.0.2", now), 0s);
    EXPECT_EQ(tries.begin("10.0.0.1", now + 1s), 59s);
    tries.succeeded("10.0.0.1");
    EXPECT_EQ(tries.begin("10.0.0.1", now + 1s), 0s) << "who knows the password starts anew";

    for (int i = 0; i < LoginTries::free_tries; ++i)  // one network, as many addresses as it likes
        tries.begin("2001:db8:0:1::" + std::to_string(i + 1), now);
    EXPECT_EQ(tries.begin("2001:db8:0:1:ffff::9", now), 1s);
    EXPECT_EQ(tries.begin("2001:db8:0:2::1", now), 0s);
    for (int i = 0; i < 3; ++i)  // forgotten a quarter of an hour after the last one
        EXPECT_EQ(tries.begin("2001:db8:0:1::1", now + 15min + 2s), 0s) << i;
}

TEST(LoginTries, ForgetsWhoTriedLeastLatelyWhereThereIsNoRoom) {
    LoginTries tries;
    const LoginTries::Clock::time_point now{1h};
    const auto wear_out = [&](const std::string& address, LoginTries::Clock::time_point at) {
        for (int i = 0; i < LoginTries::free_tries; ++i)
            tries.begin(address, at);
    };
    wear_out("10.0.0.1", now);
    wear_out("10.0.0.2", now + 500ms);
    const auto others = static_cast<int>(LoginTries::most) - 1;
    for (int i = 0; i < others; ++i)
        tries.begin("10.1." + std::to_string(i / 256) + '.' + std::to_string(i % 256), now + 600ms);
    EXPECT_EQ(tries.begin("10.0.0.2", now + 700ms), 1s) << "still known";
    EXPECT_EQ(tries.begin("10.0.0.1", now + 700ms), 0s) << "let off";
}

TEST(Sessions, EndUnusedOrOldOrWhereThereIsNoRoom) {
    Sessions sessions;
    const Sessions::Clock::time_point begun{1h};
    const std::string unused = sessions.begin("anna", begun), used = sessions.begin("bert", begun);
    EXPECT_EQ(used.size(), 64U);
    EXPECT_NE(used, unused);
    auto now = begun;
    for (; now <= begun + Sessions::whole_life - Sessions::unused_life; now += Sessions::unused_life)
        EXPECT_EQ(sessions.user(used, now), "bert") << "used once a week";
    EXPECT_EQ(sessions.user(used, now), "bert");
    EXPECT_EQ(sessions.user(unused, now), "");
    EXPECT_EQ(sessions.user(used, begun + Sessions::whole_life), "bert");
    EXPECT_EQ(sessions.user(used, begun + Sessions::whole_life + 1s), "") << "however often it was used";

    std::vector<std::string> all;
    for (std::size_t i = 0; i < Sessions::most; ++i)
        all.push_back(sessions.begin("user " + std::to_string(i), now + i * 1s));
    now += Sessions::most * 1s;
    EXPECT_EQ(sessions.user(all[0], now), "user 0");
    const std::string last = sessions.begin("one more", now);
    EXPECT_EQ(sessions.user(all[0], now), "user 0") << "used lately";
    EXPECT_EQ(sessions.user(all[1], now), "");
    for (const std::string& none : {std::string(), last.substr(1), last + '0', std::string(64, '0')})
        EXPECT_EQ(sessions.user(none, now), "") << none;
    sessions.end(last);
    EXPECT_EQ(sessions.user(last, now), "");
    EXPECT_EQ(sessions.user(all[2], now), "user 2");
}

}  // namespace
}  // namespace plendix
