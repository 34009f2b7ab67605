#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <future>

#include "input/frame_buffer.h"
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
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(queue.post(new pt::message(i, 0), 1), i < 3);
    auto poster = std::async(std::launch::async, [&] { return queue.post(new pt::message(9, 0), -1); });
    EXPECT_EQ(poster.wait_for(std::chrono::milliseconds(50)), std::future_status::timeout);  // for room
    queue.processmsgs();
    EXPECT_TRUE(poster.get());
    queue.processmsgs();
    EXPECT_EQ(queue.handled, (std::vector<int>{0, 1, 2, 9}));
    queue.post(new pt::message(0, 0), -1);
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

TEST(FrameBuffer, EndsAtPagesThatCannotBeTouched) {
    const CFrameBuffer buffer;
    const auto page = sysconf(_SC_PAGESIZE);
    constexpr long front = CFrameBuffer::HeaderRoom, size = CFrameBuffer::Size;
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    for (const auto& [place, error] :
         {std::pair(-front - page, EFAULT), {-front, 0}, {size + 15, 0}, {size + 16, EFAULT}})
        EXPECT_EQ(write(ends[1], buffer.Data() + place, 1) == 1 ? 0 : errno, error) << place;
    close(ends[0]);
    close(ends[1]);
}

}  // namespace
