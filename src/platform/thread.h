// A thread whose body is a virtual function, as the host's runtime has it.
#pragma once

#include <atomic>
#include <thread>

namespace pt {

// start, waitfor and the destructor belong to one owning thread; signal may come from any.
class thread {
public:
    // The object outlives its thread: an object that destroys itself (autofree) is not supported.
    explicit thread(bool autofree);
    thread(const thread&) = delete;
    thread& operator=(const thread&) = delete;
    // Requires that the thread has ended: a derived class waits in its own destructor.
    virtual ~thread();

    // Runs execute() and then cleanup() on a new thread with all signals blocked, so that the
    // process's signal handlers run elsewhere. May follow waitfor(). False: no thread to be had.
    bool start();

    // Raises the flag that execute() tests, and returns at once.
    void signal();

    // Returns when the thread has ended; at once when it never started.
    void waitfor();

    // True from start() to waitfor().
    bool running() const { return m_Thread.joinable(); }

protected:
    virtual void execute() = 0;
    virtual void cleanup();
    bool signalled() const;

private:
    std::atomic<bool> m_bSignalled{false};
    std::thread m_Thread;
};

// Sleeps the given number of milliseconds.
void psleep(unsigned int milliseconds);

}  // namespace pt
