// One event as the host keeps it: what a document or a change in the frames' flags said.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>

namespace plendix {

enum class EventKind {
    version,     // the plug-in's name and version
    config,      // one camera's configuration is new, changed or gone
    connection,  // video starts or ends
    motion,
    trigger,
    relay,
    recording,  // a recording mark came into force or ended
    log,
    state,    // a camera is connecting, live, silent, refused or off: the host's own finding
    clock,    // the wall clock was set
    storage,  // an output cannot write, or can again
    unknown   // a document this host does not know; its text is the value
};

struct Event {
    std::int64_t time_ms = 0;  // UTC since 1970: the document's own time, without one that of arrival
    int camera = 0;            // 0: the plug-in itself, or not known
    EventKind kind = EventKind::unknown;
    nlohmann::ordered_json values = nlohmann::ordered_json::object();
};

/// The word for the kind, as in events.jsonl.
const char* kind_name(EventKind kind);

}  // namespace plendix
