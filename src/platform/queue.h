// Messages, and the queue that carries them to the thread that handles them.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>

namespace pt {

class message {
public:
    message(int messageid, [[maybe_unused]] std::intptr_t parameter) : id(messageid) {}
    message(const message&) = delete;
    message& operator=(const message&) = delete;
    virtual ~message() = default;

    const int id;
};

// First in, first out, at most limit messages. Owns what it holds.
class jobqueue {
public:
    explicit jobqueue(int limit);
    virtual ~jobqueue();

    // Appends from any thread and takes ownership. While the queue is full it waits up to
    // timeout milliseconds, without limit for -1. False: no room in time, the message is destroyed.
    bool post(message* msg, int timeout = -1);

protected:
    std::unique_ptr<message> take();  // null when empty
    // Without the lock: right about every message whose posting the caller knows of.
    bool empty() const { return m_nQueued == 0; }

    const std::size_t m_nLimit;

private:
    std::mutex m_Mutex;
    std::condition_variable m_Room;
    std::deque<std::unique_ptr<message>> m_Messages;
    std::atomic<std::size_t> m_nQueued{0};  // m_Messages.size(), for empty()
};

class msgqueue : protected jobqueue {
public:
    explicit msgqueue(int limit);

    // On the calling thread: hands the queued messages in order to msghandler, destroying each
    // afterwards, until the queue is empty. A poster that never pauses cannot hold the caller:
    // after as many messages as the queue can hold the rest waits for the next call.
    void processmsgs();

protected:
    virtual void msghandler(message& msg) = 0;

    // What becomes of ids that the handler does not know: nothing.
    void defhandler(message& msg);
};

}  // namespace pt
