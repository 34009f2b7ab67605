#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <future>
#include <numeric>

#include "platform/queue.h"
#include "platform/thread.h"

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
    void execute() override { blocked = blocks_signals(); }
    bool blocked = false;
};

TEST(Thread, BlocksSignals) {
    Worker worker(false);
    worker.waitfor();  // never started: returns at once
    ASSERT_TRUE(worker.start());
    worker.waitfor();
    EXPECT_TRUE(worker.blocked);
    EXPECT_FALSE(blocks_signals());
}

}  // namespace
