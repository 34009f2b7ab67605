// The one road out to the host: events, documents and log lines. Knows nothing of cameras, so
// that everything below the plug-in object may use it. Callable on the host's thread during
// Open and Close and on the worker thread in between; the host's callback runs inside the call.
#pragma once

#include <cstdint>

#include "platform/datetime.h"
#include "plugin/host_records.h"

class TiXmlDocument;
class TiXmlElement;

// The name in documents and in front of error lines.
extern const char PluginName[];

enum LogLevel {
    LogDebug = 0,  // console only
    LogInfo = 25,
    LogWarning = 50,
    LogError = 75,
};

// What takes the events from now on; null takes none. While no other thread sends events.
void ConnectHost(EventCallbackFunction host);

// Hands an event to the host; returns the callback's result, 0 when there is no host.
int Event(_EventParmsIn* in, _EventParmsOut* out);

// Hands a finished record to the host and reports a refusal on standard error, as "Plendix: what
// event ret ...". A refused event is not repeated.
void DeliverEvent(_EventParmsIn& in, const char* what);

// A record with its header filled in: sizes, versions and source; everything else 0.
_EventParmsIn NewEvent(std::uint32_t kind, std::uint32_t dataType, std::uint32_t sourceId);

// Sends a document, printed as one line, with the given Kind.
void FireDocument(const TiXmlDocument& document, int kind);

// Sends a copy of the element as an alarm document of the given camera, inside the envelope
// Velm / Devices / Device.
void FireDeviceEvent(std::uint32_t device, const TiXmlElement& element);

// Logs one line, cut at 509 bytes, in front of a character that does not fit: to standard output,
// followed by an empty line, and as a log_msg document unless the level is LogDebug.
void Trace(LogLevel level, const char* format, ...) __attribute__((format(printf, 2, 3)));

// To be called in a catch block: logs what was caught. The text names what was given up.
void TraceException(const char* what) noexcept;

// The version that the plug-in reports to the host.
const char* GetVersion();
