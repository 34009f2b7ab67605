// The host's header in plain C.
#include "plugin/host_records.h"

int32_t take(const _EventParmsIn* event, const _WriteParmsOut* out);

int32_t take(const _EventParmsIn* event, const _WriteParmsOut* out) {
    return event->Kind == EventKindVideo && event->SourceId != PluginId ? out->Result : ResultNoData;
}
