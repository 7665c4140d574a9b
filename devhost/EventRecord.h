// EventRecord: a security event as the stand-in host received it through ReportSecurityEvent,
// kept for tests to inspect and for EventRenderer to show a person.
//
// Values the plug-in made are copied into host-made containers when the event is reported, so
// a record never holds a reference into a plug-in that may since have been unloaded; the
// host's own objects (process records attached as observables) are kept by reference.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "devhost/HostRef.h"
#include "host/IValues.h"

namespace KALVO::DevHost {

struct ObservableRecord {
    std::string name;
    HostRef<EIL::Values::IValues> values;
};

struct ObservationRecord {
    std::uint32_t severity = 0;
    std::string typeId;
    std::string message;  // the template, e.g. "{parent} created {child}"
    HostRef<EIL::Values::IValues> source;  // null when none was given
    HostRef<EIL::Values::IValues> tags;    // null when none was given
    std::vector<ObservableRecord> observables;  // in the order they were attached

    // The first observable of that name, or null. Borrowed from the record.
    EIL::Values::IValues* Find(std::string_view name) const noexcept {
        for (const ObservableRecord& observable : observables) {
            if (observable.name == name) return observable.values.Get();
        }
        return nullptr;
    }
};

struct EventRecord {
    std::uint64_t sequence = 0;  // 1 for the first event reported to this host, and so on
    std::vector<ObservationRecord> observations;
};

}  // namespace KALVO::DevHost
