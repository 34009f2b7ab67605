// The worker thread: serve the queue, then one pass over all cameras, until signalled.
#include <sys/select.h>

#include <algorithm>
#include <cerrno>

#include "device/device.h"
#include "platform/clock.h"
#include "plugin/Plendix.h"
#include "plugin/plugin.h"

namespace {

// Bounds how long a queued document and Close wait for the worker.
constexpr unsigned int PassMilliseconds = 20;

}  // namespace

void CPlugin::execute() {
    while (!signalled()) {
        if (!empty()) processmsgs();
        try {
            CheckDevices();
        } catch (...) {
            TraceException("Pass");
        }
    }
}

void CPlugin::cleanup() {
    processmsgs();
}

void CPlugin::msghandler(pt::message& msg) {
    if (msg.id != MsgConfig && msg.id != MsgWrite) {
        defhandler(msg);
        return;
    }
    auto* const doc = dynamic_cast<docmsg*>(&msg);
    if (doc == nullptr) return;
    try {
        ServeDocument(*doc);
    } catch (...) {
        TraceException("Document");
    }
}

void CPlugin::ServeDocument(docmsg& doc) {
    if (doc.verdict.problem != nullptr)
        Trace(LogWarning, "XML document cut at byte %lu: %s", static_cast<unsigned long>(doc.verdict.length),
              doc.verdict.problem);
    if (doc.id == MsgConfig)
        UpdateConfig(doc.document);
    else
        ProcessWrite(doc.document);
}

void CPlugin::CheckDevices() {
    if (ServeSockets()) PostConfig();
}

// One pass over all cameras. True when the configuration that the host sees changed.
bool CPlugin::ServeSockets() {
    fd_set readset;
    FD_ZERO(&readset);
    int highest = -1;
    CPassClock before;
    for (const auto& device : m_Devices)
        highest = std::max(highest, device->Set(readset, before));
    if (highest == -1) {
        pt::psleep(PassMilliseconds);
        return false;
    }
    timeval timeout = {0, suseconds_t{PassMilliseconds} * 1000};
    if (select(highest + 1, &readset, nullptr, nullptr, &timeout) < 0) {
        if (WSAGetLastError() != EINTR) Trace(LogError, "select error %d", WSAGetLastError());
        return false;
    }
    bool changed = false;
    CPassClock after;
    for (const auto& device : m_Devices) {
        if (device->IsSet(readset, after)) changed = true;
    }
    return changed;
}
