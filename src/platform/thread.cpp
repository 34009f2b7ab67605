#include "platform/thread.h"

#include <cassert>
#include <chrono>
#include <csignal>
#include <exception>

namespace pt {

thread::thread([[maybe_unused]] bool autofree) {
    assert(!autofree);
}

thread::~thread() = default;

bool thread::start() {
    m_bSignalled = false;
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);  // inherited by the new thread
    try {
        m_Thread = std::thread([this] {
            execute();
            cleanup();
        });
    } catch (const std::exception&) {  // no thread or no memory for one
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
        return false;
    }
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return true;
}

void thread::signal() {
    m_bSignalled = true;
}

void thread::waitfor() {
    if (m_Thread.joinable()) m_Thread.join();
}

void thread::cleanup() {}

bool thread::signalled() const {
    return m_bSignalled;
}

void psleep(unsigned int milliseconds) {
    std::this_thread::sleep_for(std::chrono::milliseconds(milliseconds));
}

}  // namespace pt
