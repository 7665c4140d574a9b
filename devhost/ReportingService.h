// ReportingService: the stand-in host's IReportingService. Makes empty security events
// (HostSecurityEvent, with their HostObservation) and records the finished ones it is handed
// as EventRecord, for tests to inspect and tools to show.
//
// A record keeps the containers it was given by reference, the plug-in's own among them: so
// whoever unloads a plug-in drops the retained records first (Clear; UnloadFrom in Plugin.h).
#pragma once

#include <functional>

#include "devhost/FaultInjector.h"
#include "devhost/RetainedList.h"
#include "devhost/TrackedObject.h"
#include "host/IHostObservation.h"
#include "host/IHostSecurityEvent.h"
#include "host/IReportingService.h"

namespace KALVO::DevHost {

struct ObservableRecord {
    std::string name;
    HostRef<EIL::Values::IValues> values;
};

struct ObservationRecord {
    std::uint32_t severity = 0;
    std::string typeId;
    std::string message;                        // the template, e.g. "{parent} created {child}"
    HostRef<EIL::Values::IValues> source;       // null when none was given
    HostRef<EIL::Values::IValues> tags;         // null when none was given
    std::vector<ObservableRecord> observables;  // in the order they were attached

    // The first observable of that name, or null. Borrowed from the record.
    EIL::Values::IValues* Find(std::string_view name) const noexcept {
        for (const ObservableRecord& observable : observables)
            if (observable.name == name) return observable.values.Get();
        return nullptr;
    }
};

struct EventRecord {
    std::uint64_t sequence = 0;  // 1 for the first event reported to this host, and so on
    std::vector<ObservationRecord> observations;
};

// One observation of an event being assembled. Holds what it was given until the event is
// reported or dropped.
class HostObservation : public ObjectOnly<Reporting::IHostObservation> {
public:
    static constexpr char const* Kind = "Observation";

    // `contents` holds the plug-in's own containers, shared.
    HostObservation(std::shared_ptr<FaultInjector> faults, ObservationRecord contents)
        : m_faults(std::move(faults)), m_contents(std::move(contents)) {}

    // What the observation holds now, for the record of a reported event. Throws std::bad_alloc.
    ObservationRecord Recorded() const {
        std::lock_guard lock(m_mutex);
        return m_contents;
    }

    // IHostObservation
    void Reserved3() override {}
    void Reserved4() override {}
    void Reserved5() override {}
    void Reserved6() override {}
    void Reserved7() override {}
    void Reserved8() override {}
    // Null name or observable: 22. Takes its own reference on the observable.
    Result::Code AddObservable(char const* name, Agent::Hosting::ObjectPtr<EIL::Values::IValues>& observable) override {
        return Serve(*m_faults, Operation::AddObservable, [&] {
            if (!name || !observable) return Result::InvalidArgument;
            ObservableRecord entry{name, HostRef<EIL::Values::IValues>::Share(observable.Get())};
            std::lock_guard lock(m_mutex);
            m_contents.observables.push_back(std::move(entry));
            return Result::Success;
        });
    }

private:
    std::shared_ptr<FaultInjector> m_faults;
    mutable std::mutex m_mutex;  // guards m_contents.observables
    ObservationRecord m_contents;
};

// A security event being assembled, made by CreateSecurityEvent and handed back through
// ReportSecurityEvent.
class HostSecurityEvent : public ObjectOnly<Reporting::IHostSecurityEvent> {
public:
    static constexpr char const* Kind = "SecurityEvent";

    HostSecurityEvent(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger)
        : m_faults(std::move(faults)), m_ledger(std::move(ledger)) {}

    // The observations created so far, in order, as HostObservation::Recorded. Throws std::bad_alloc.
    std::vector<ObservationRecord> Recorded() const {
        std::vector<ObservationRecord> observations;
        std::lock_guard lock(m_mutex);
        for (const auto& observation : m_observations) observations.push_back(observation->Recorded());
        return observations;
    }

    // IHostSecurityEvent
    void Reserved3() override {}
    void Reserved4() override {}
    void Reserved5() override {}
    void Reserved6() override {}
    void Reserved7() override {}
    void Reserved8() override {}
    // Null typeId or message: 22. Source and tags may be null. `reserved` is ignored.
    Result::Code CreateObservation(std::uint32_t severity, Agent::Hosting::ObjectPtr<EIL::Values::IValues>& source,
                                   char const* typeId, char const* message,
                                   Agent::Hosting::ObjectPtr<EIL::Values::IValues>& tags, void* /*reserved*/,
                                   Agent::Hosting::ObjectPtr<Reporting::IHostObservation>& observation) override {
        return Serve(*m_faults, Operation::CreateObservation, [&] {
            if (!typeId || !message) return Result::InvalidArgument;
            const HostRef<TrackedObject<HostObservation>> made(TrackedObject<HostObservation>::Make(
                m_ledger, m_faults, ObservationRecord{severity, typeId, message, HostRef(source), HostRef(tags), {}}));
            {
                std::lock_guard lock(m_mutex);
                m_observations.push_back(made);
            }
            observation = Agent::Hosting::ObjectPtr<Reporting::IHostObservation>(made.Get());
            return Result::Success;
        });
    }

private:
    std::shared_ptr<FaultInjector> m_faults;
    std::shared_ptr<ObjectLedger> m_ledger;
    mutable std::mutex m_mutex;  // guards m_observations
    std::vector<HostRef<TrackedObject<HostObservation>>> m_observations;
};

class ReportingService : public ObjectOnly<Reporting::IReportingService> {
public:
    static constexpr char const* Kind = "ReportingService";

    ReportingService(std::shared_ptr<FaultInjector> faults, std::shared_ptr<ObjectLedger> ledger)
        : m_faults(std::move(faults)), m_ledger(std::move(ledger)) {}

    // The retained events, oldest first.
    std::vector<std::shared_ptr<const EventRecord>> Events() const { return m_events.Snapshot(); }
    // Events reported since construction, retained or not.
    std::uint64_t EventCount() const { return m_sequence; }
    // Keeps every event reported from now on (the default), or none; false drops those kept.
    void SetRetention(bool keep) { m_events.SetKeep(keep); }
    // Drops the retained events, before unloading the plug-in whose containers they hold.
    void Clear() { m_events.Clear(); }
    // Called on the reporting thread for each event once it is recorded, one call at a time
    // (empty removes). The listener must not call SetListener.
    void SetListener(std::function<void(const EventRecord&)> listener) {
        std::lock_guard lock(m_mutex);
        m_listener = std::move(listener);
    }

    // IReportingService. Any thread, concurrently.
    Result::Code CreateSecurityEvent(Agent::Hosting::ObjectPtr<Reporting::IHostSecurityEvent>& event) override {
        return Serve(*m_faults, Operation::CreateSecurityEvent, [&] {
            event = TrackedObject<HostSecurityEvent>::Make(m_ledger, m_faults, m_ledger);
            return Result::Success;
        });
    }
    // An event this host did not make: 22. Null: 22.
    Result::Code ReportSecurityEvent(Agent::Hosting::ObjectPtr<Reporting::IHostSecurityEvent> event) override {
        return Serve(*m_faults, Operation::ReportSecurityEvent, [&] {
            // Only an event this host made (a plug-in's own objects are of its own classes).
            const auto* ours = dynamic_cast<TrackedObject<HostSecurityEvent>*>(event.Get());
            if (!ours) return Result::InvalidArgument;
            auto record = std::make_shared<EventRecord>(EventRecord{0, ours->Recorded()});
            std::lock_guard lock(m_mutex);
            record->sequence = ++m_sequence;
            m_events.Emplace(record);
            if (m_listener) {
                try {
                    m_listener(*record);
                } catch (...) {
                    // A listener's failure is the tool's business, not the reporting plug-in's.
                }
            }
            return Result::Success;
        });
    }

private:
    std::shared_ptr<FaultInjector> m_faults;
    std::shared_ptr<ObjectLedger> m_ledger;
    RetainedList<std::shared_ptr<const EventRecord>> m_events;
    std::mutex m_mutex;  // numbers and records one event at a time, and is held while the listener runs
    std::atomic<std::uint64_t> m_sequence{0};
    std::function<void(const EventRecord&)> m_listener;  // guarded by m_mutex
};

}  // namespace KALVO::DevHost
