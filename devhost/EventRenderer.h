// Shows what the sensor reported the way a person reads it: each event as one JSON object,
// and each observation's message template with its observables filled in. Values are walked
// only through IValues/IValue, exactly as a host receives them.
#pragma once

#include "devhost/ReportingService.h"

namespace KALVO::DevHost {

// A container as JSON: an object keyed by entry names (unnamed keys as their id in decimal),
// or an array when every key is unnamed and the ids are 0, 1, 2, ... (lists built with
// PushBack). Strings (type 2) as JSON strings (bytes that are not UTF-8 shown as U+FFFD),
// numbers (type 12) as numbers, nested containers (type 1) in place (cut off as "…" past
// MaxValuesDepth), null values as null, other types as "<type N, M bytes>". Never throws
// except std::bad_alloc.
std::string RenderValuesJson(EIL::Values::IValues& values);

// One event as one line of JSON:
// {"sequence":N,"observations":[{"severity":0,"type_id":"…","message":"…","text":"…",
//  "source":{…},"tags":[…],"observables":{"child":{…},…}}]}
// where "text" is the message with each {name} replaced by how the observable of that name
// reads in a sentence: its "path" (a process), else its "command" (a shell command), else its
// "command_line", else its "name", else its compact JSON (names with no observable are left
// as written).
std::string RenderEventJson(const EventRecord& event);

}  // namespace KALVO::DevHost
