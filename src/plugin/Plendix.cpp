#include "plugin/Plendix.h"

#include <tinyxml.h>

#include <cstdarg>
#include <cstdio>
#include <exception>
#include <string>

#include "platform/utf8.h"
#include "platform/xml.h"

const char PluginName[] = "Plendix";

namespace {

constexpr std::size_t LineBuffer = 512;  // a line, its line feed and its NUL
constexpr std::size_t LineLimit = 510;   // so that 509 bytes remain

EventCallbackFunction g_Host = nullptr;

void FireLogLine(LogLevel level, const char* line) {
    TiXmlDocument document;
    AddDeclaration(document);
    TiXmlElement& message = AddElement(document, "log_msg");
    message.SetAttribute("level", level);
    message.LinkEndChild(new TiXmlText(line));
    FireDocument(document, static_cast<int>(EventKindLog));
}

}  // namespace

void ConnectHost(EventCallbackFunction host) {
    g_Host = host;
}

int Event(_EventParmsIn* in, _EventParmsOut* out) {
    return g_Host != nullptr ? g_Host(in, out) : 0;
}

void DeliverEvent(_EventParmsIn& in, const char* what) {
    _EventParmsOut out = {};
    out.Size = sizeof(out);
    out.Version = 1;
    const int ret = Event(&in, &out);
    if (ret != 0 || out.Error != 0)
        std::fprintf(stderr, "%s: %s event ret %d error %d\n", PluginName, what, ret,
                     static_cast<int>(out.Error));
}

_EventParmsIn NewEvent(std::uint32_t kind, std::uint32_t dataType, std::uint32_t sourceId) {
    _EventParmsIn in = {};
    in.Size = sizeof(in);
    in.Version = 1;
    in.SourceId = sourceId;
    in.Kind = kind;
    in.DataType = dataType;
    return in;
}

void FireDocument(const TiXmlDocument& document, int kind) {
    std::string text;
    text << document;
    _EventParmsIn in = NewEvent(static_cast<std::uint32_t>(kind), DataTypeXml, PluginId);
    in.DataLength = static_cast<std::uint32_t>(text.length());
    in.Data = text.c_str();
    DeliverEvent(in, "XML");
}

void FireDeviceEvent(std::uint32_t device, const TiXmlElement& element) {
    TiXmlDocument document;
    AddDeclaration(document);
    TiXmlElement& devices = AddElement(AddElement(document, "Velm"), "Devices");
    devices.SetAttribute("ID", static_cast<int>(PluginId));
    TiXmlElement& wrapper = AddElement(devices, "Device");
    wrapper.SetAttribute("Number", static_cast<int>(device));
    wrapper.InsertEndChild(element);
    FireDocument(document, static_cast<int>(EventKindAlarm));
}

void Trace(LogLevel level, const char* format, ...) {
    char line[LineBuffer];
    va_list arguments;
    va_start(arguments, format);
    const int wanted = std::vsnprintf(line, LineLimit, format, arguments);
    va_end(arguments);
    if (wanted < 0) line[0] = '\0';
    if (wanted >= static_cast<int>(LineLimit)) line[Utf8WholeLength(line, LineLimit - 1)] = '\0';
    if (level != LogDebug) FireLogLine(level, line);
    const std::size_t length = std::char_traits<char>::length(line);
    line[length] = '\n';
    line[length + 1] = '\0';
    std::puts(line);
}

void TraceException(const char* what) noexcept {
    try {
        try {
            throw;  // cppcheck-suppress rethrowNoCurrentException; a handler calls us
        } catch (const std::exception& error) {
            Trace(LogError, "%s failed: %s", what, error.what());
        }
    } catch (...) {  // not even the log line could be made, or it is no exception of ours
        std::fprintf(stderr, "%s: %s failed\n", PluginName, what);
    }
}

const char* GetVersion() {
    static const char* const sVersion = "9.2.3.130093";
    return sVersion;
}
