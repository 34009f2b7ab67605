#include <gtest/gtest.h>
#include <signal.h>
#include <tinyxml.h>

#include <chrono>
#include <ctime>
#include <future>
#include <numeric>

#include "platform/datetime.h"
#include "platform/queue.h"
#include "platform/thread.h"
#include "platform/xml.h"

namespace {

struct Queue : pt::msgqueue {
    using jobqueue::post;
    using msgqueue::msgqueue;
    void msghandler(pt::message& msg) override { handled.push_back(msg.id); }
    std::vector<int> handled;
};

TEST(Queue, ServesInOrderAndKeepsItsLimit) {
    Queue queue(3);  // messages refused or left over are destroyed: the leak sanitizer watches
    std::vector<int> all(2000);
    std::iota(all.begin(), all.end(), 0);
    auto poster = std::async(std::launch::async, [&] {
        for (const int i : all)
            queue.post(new pt::message(i, 0), -1);
    });
    // The poster waits for room; one that does not is through long before.
    EXPECT_EQ(poster.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (queue.handled.size() < all.size() && std::chrono::steady_clock::now() < end)
        queue.processmsgs();
    ASSERT_EQ(queue.handled, all);
    poster.get();
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(queue.post(new pt::message(i, 0), 1), i < 3);
}

bool blocks_signals() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    return sigismember(&mask, SIGINT) && sigismember(&mask, SIGTERM) && sigismember(&mask, SIGUSR1);
}

struct Worker : pt::thread {
    using thread::thread;
    void execute() override {
        log += !blocks_signals() ? "signals " : signalled() ? "signalled " : "execute ";
        running.set_value();
        while (!signalled())
            pt::psleep(1);
    }
    void cleanup() override { log += "cleanup "; }
    std::string log;
    std::promise<void> running;
};

TEST(Thread, RunsUntilSignalledWithSignalsBlockedAndAgain) {
    Worker worker(false);
    worker.signal();
    worker.waitfor();  // never started: returns at once
    for (int run = 0; run < 2; ++run) {
        worker.running = std::promise<void>();
        ASSERT_TRUE(worker.start());
        worker.running.get_future().wait();
        worker.signal();
        worker.waitfor();
    }
    EXPECT_EQ(worker.log, "execute cleanup execute cleanup ");
    EXPECT_FALSE(blocks_signals());
}

TEST(Datetime, CountsMillisecondsSinceYearOne) {
    EXPECT_EQ(pt::utodatetime(2147483647), 62135596800000 + 2147483647000);
    EXPECT_EQ(pt::encodetime(23, 59, 59, 999), 86399999);
    EXPECT_EQ(pt::encodetime(0, 0, 0, 2147483647), 2147483647);
    EXPECT_FALSE(pt::isvalid(-1) || pt::isvalid(315537897600000));  // year 10000
    EXPECT_TRUE(pt::isvalid(0) && pt::isvalid(315537897599999));
    EXPECT_EQ(pt::unixseconds(62135596800000 + 1999) * 1000 + pt::milliseconds(62135596800000 + 1999), 1999);
    EXPECT_NEAR(static_cast<double>(pt::unixseconds(pt::now(true)) - std::time(nullptr)), 0, 5);
}

TEST(Xml, IntegersAreReadAsFarAsTheyGo) {
    const char* const texts[] = {"12", "-7", " 7", "12abc",      "0x10",        "2147483647",  // integers
                                 "",   "x",  "-",  "2147483648", "99999999999", "-99999999999999999999"};
    const int values[] = {12, -7, 7, 12, 0, 2147483647, -1, -1, -1, -1, -1, -1};
    for (std::size_t i = 0; i < std::size(texts); ++i) {
        TiXmlElement element("E");
        element.SetAttribute("A", texts[i]);
        int value = -1;
        bool flag = true;
        EXPECT_EQ(QueryInt(element, "A", value) && QueryFlag(element, "A", flag), i < 6) << texts[i];
        EXPECT_EQ(value, values[i]) << texts[i];
        EXPECT_EQ(flag, values[i] != 0) << texts[i];
        EXPECT_FALSE(QueryInt(element, "B", value));
    }
}

}  // namespace
