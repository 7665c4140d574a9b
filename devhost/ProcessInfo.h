// ProcessInfo: the stand-in host's record of one process, handed to monitors as IProcessInfo.
//
// It also answers IValues with the view a detection engineer reads in a report: "pid",
// "ppid", "path", "command_line", "uid", "user_id", "user", "start_time" (absent facts are
// left out), in the order of their keys' ids like any container. The view is the object
// itself, so references to it are accounted for like any other; it is read-only (Set, Remove
// and Clear answer 100). Its values are made from the record when they are read: most
// processes a host hands over are never reported, and those that are are read once.
#pragma once

#include <algorithm>
#include <array>
#include <memory>
#include <new>

#include "devhost/FaultInjector.h"
#include "devhost/ProcessRecord.h"
#include "eil/values/Identifier.h"
#include "eil/values/MakeValue.h"
#include "host/IProcessInfo.h"
#include "host/IValues.h"

namespace KALVO::DevHost {

// The facts of a process's view, and their keys in the order of their ids, as a container
// lists its entries.
enum class ProcessFact { Pid, ParentPid, Path, CommandLine, Uid, UserId, User, StartTime };
struct ProcessFactKey {
    char const* name;
    ProcessFact fact;
    std::uint64_t id = EIL::Values::Identifier::Hash(name);
};
inline constexpr std::array<ProcessFactKey, 8> ProcessFactKeys{{{"user_id", ProcessFact::UserId},
                                                                {"ppid", ProcessFact::ParentPid},
                                                                {"user", ProcessFact::User},
                                                                {"pid", ProcessFact::Pid},
                                                                {"start_time", ProcessFact::StartTime},
                                                                {"path", ProcessFact::Path},
                                                                {"command_line", ProcessFact::CommandLine},
                                                                {"uid", ProcessFact::Uid}}};
static_assert(std::is_sorted(ProcessFactKeys.begin(), ProcessFactKeys.end(),
                             [](const ProcessFactKey& a, const ProcessFactKey& b) { return a.id < b.id; }));

class ProcessInfo : public ESP::v0::IProcessInfo, public EIL::Values::IValues {
public:
    static constexpr char const* Kind = "ProcessInfo";

    ProcessInfo(std::shared_ptr<FaultInjector> faults, ProcessRecord record)
        : m_faults(std::move(faults)), m_record(std::move(record)) {
        if (m_record.uid.empty()) m_record.uid = ProcessUid("", m_record.pid, m_record.startTime);
    }

    // IProcessInfo
    void Reserved3() override {}
    void Reserved4() override {}
    char const* GetPath() override { return m_record.path ? m_record.path->c_str() : nullptr; }
    char const* GetCommandLine() override { return m_record.commandLine ? m_record.commandLine->c_str() : nullptr; }
    char const* GetUid() override { return m_record.uid.c_str(); }

    // IValues: the detection engineer's view; read-only.
    Result::Code Get(EIL::Values::IIdentifier const& key,
                     Agent::Hosting::ObjectPtr<EIL::Values::IValue>& out) const override {
        const auto found = std::find_if(ProcessFactKeys.begin(), ProcessFactKeys.end(),
                                        [&key](const ProcessFactKey& fact) { return fact.id == key.Id(); });
        if (found == ProcessFactKeys.end() || !Present(found->fact)) return Result::NoSuchEntry;
        Agent::Hosting::ObjectPtr<EIL::Values::IValue> value = ValueOf(found->fact);
        if (!value) return Result::OutOfMemory;
        out = std::move(value);
        return Result::Success;
    }
    Result::Code Set(EIL::Values::IIdentifier const&, Agent::Hosting::ObjectPtr<EIL::Values::IValue> const&) override {
        return Result::ProtocolError;
    }
    Result::Code Remove(EIL::Values::IIdentifier const&) override { return Result::ProtocolError; }
    Result::Code Clear() override { return Result::ProtocolError; }
    std::uint64_t Count() const override {
        return static_cast<std::uint64_t>(
            std::count_if(ProcessFactKeys.begin(), ProcessFactKeys.end(),
                          [this](const ProcessFactKey& key) { return Present(key.fact); }));
    }
    Result::Code GetByIndex(unsigned long index, Agent::Hosting::ObjectPtr<EIL::Values::IValue>& value,
                            Agent::Hosting::ObjectPtr<EIL::Values::IValue>* key) const override {
        unsigned long position = 0;  // among the facts present
        for (const ProcessFactKey& fact : ProcessFactKeys) {
            if (!Present(fact.fact) || position++ != index) continue;
            Agent::Hosting::ObjectPtr<EIL::Values::IValue> found = ValueOf(fact.fact);
            Agent::Hosting::ObjectPtr<EIL::Values::IValue> name;
            if (key) name = EIL::Values::MakeStringValue(fact.name);
            if (!found || (key && !name)) return Result::OutOfMemory;
            value = std::move(found);
            if (key) *key = std::move(name);
            return Result::Success;
        }
        return Result::OutOfRange;
    }

    // Answers IObject (as IProcessInfo) and IValues, each of which may be made to fail.
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
        const bool values = id == EIL::Values::IValues::Id;
        if (!values && id != Agent::Hosting::IObject::Id) return Result::ProtocolNotSupported;
        const Operation operation =
            values ? Operation::ProcessGetInterfaceValues : Operation::ProcessGetInterfaceObject;
        if (const auto failure = m_faults->Check(operation)) return *failure;
        out = values ? static_cast<Agent::Hosting::IObject*>(static_cast<EIL::Values::IValues*>(this))
                     : static_cast<ESP::v0::IProcessInfo*>(this);
        out->AddRef();
        return Result::Success;
    }

private:
    bool Present(ProcessFact fact) const noexcept {
        switch (fact) {
        case ProcessFact::Path: return m_record.path.has_value();
        case ProcessFact::CommandLine: return m_record.commandLine.has_value();
        case ProcessFact::UserId: return m_record.userId.has_value();
        case ProcessFact::User: return !m_record.user.empty();
        case ProcessFact::StartTime: return m_record.startTime != 0;
        default: return true;
        }
    }

    // A present fact as a new value; null when memory runs out.
    Agent::Hosting::ObjectPtr<EIL::Values::IValue> ValueOf(ProcessFact fact) const noexcept {
        using EIL::Values::MakeNumberValue;
        using EIL::Values::MakeStringValue;
        try {
            switch (fact) {
            case ProcessFact::Pid: return MakeNumberValue(m_record.pid);
            case ProcessFact::ParentPid: return MakeNumberValue(m_record.parentPid);
            case ProcessFact::Path: return MakeStringValue(*m_record.path);
            case ProcessFact::CommandLine: return MakeStringValue(*m_record.commandLine);
            case ProcessFact::Uid: return MakeStringValue(m_record.uid);
            case ProcessFact::UserId: return MakeNumberValue(*m_record.userId);
            case ProcessFact::User: return MakeStringValue(m_record.user);
            case ProcessFact::StartTime: return MakeNumberValue(m_record.startTime);
            }
        } catch (const std::bad_alloc&) {
            // copying a text for MakeStringValue ran out of memory
        }
        return {};
    }

    std::shared_ptr<FaultInjector> m_faults;
    ProcessRecord m_record;  // never changes once made
};

}  // namespace KALVO::DevHost
