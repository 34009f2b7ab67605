#include "platform/queue.h"

#include <chrono>

namespace pt {

jobqueue::jobqueue(int limit) : m_nLimit(limit > 0 ? static_cast<std::size_t>(limit) : 1) {}

jobqueue::~jobqueue() = default;

bool jobqueue::post(message* msg, int timeout) {
    std::unique_ptr<message> owned(msg);
    std::unique_lock<std::mutex> lock(m_Mutex);
    const auto room = [this] { return m_Messages.size() < m_nLimit; };
    if (timeout < 0)
        m_Room.wait(lock, room);
    else if (!m_Room.wait_for(lock, std::chrono::milliseconds(timeout), room))
        return false;
    m_Messages.push_back(std::move(owned));
    m_nQueued = m_Messages.size();
    return true;
}

std::unique_ptr<message> jobqueue::take() {
    std::unique_ptr<message> msg;
    {
        const std::lock_guard<std::mutex> lock(m_Mutex);
        if (m_Messages.empty()) return msg;
        msg = std::move(m_Messages.front());
        m_Messages.pop_front();
        m_nQueued = m_Messages.size();
    }
    m_Room.notify_one();
    return msg;
}

msgqueue::msgqueue(int limit) : jobqueue(limit) {}

void msgqueue::processmsgs() {
    for (std::size_t served = 0; served < m_nLimit; ++served) {
        const std::unique_ptr<message> msg = take();
        if (!msg) return;
        msghandler(*msg);
    }
}

void msgqueue::defhandler(message&) {}

}  // namespace pt
