#include "input/actions.h"

void SetAction(ActionMap& actions, int action, int open, int seconds, int milliseconds) {
    actions[action] =
        open != 0 ? pt::invdatetime : pt::utodatetime(seconds) + pt::encodetime(0, 0, 0, milliseconds);
}

bool ExpireActions(ActionMap& actions, pt::datetime now) {
    for (auto entry = actions.begin(); entry != actions.end();) {
        if (pt::isvalid(entry->second) && entry->second <= now)
            entry = actions.erase(entry);
        else
            ++entry;
    }
    return !actions.empty();
}
