// Actions that the host starts and ends by number: recording marks and relay alarms.
#pragma once

#include <map>

#include "platform/datetime.h"

// Action number to end time; an end time that is not valid never comes.
using ActionMap = std::map<int, pt::datetime>;

// Starts the action without end when open is nonzero; otherwise it ends at seconds (Unix time)
// plus milliseconds. Replaces what the action number held.
void SetAction(ActionMap& actions, int action, int open, int seconds, int milliseconds);

// Removes the actions that have ended; true while any is in force.
bool ExpireActions(ActionMap& actions, pt::datetime now);
