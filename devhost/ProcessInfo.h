// ProcessInfo: the stand-in host's record of one process, handed to monitors as IProcessInfo.
//
// It also answers IValues with the view a detection engineer reads in a report: "pid",
// "ppid", "path", "command_line", "uid", "user_id", "user", "start_time" (absent facts are
// left out). The view is the object itself, so references to it are accounted for like any
// other; it is read-only (Set, Remove and Clear answer 100).
#pragma once

#include <memory>
#include <mutex>

#include "devhost/FaultInjector.h"
#include "devhost/ProcessRecord.h"
#include "eil/values/Identifier.h"
#include "eil/values/MakeValue.h"
#include "host/IProcessInfo.h"

namespace KALVO::DevHost {

class ProcessInfo : public ESP::v0::IProcessInfo, public EIL::Values::Values {
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

    // IValues: the detection engineer's view, filled at its first lookup; read-only.
    Result::Code Set(EIL::Values::IIdentifier const&, Agent::Hosting::ObjectPtr<EIL::Values::IValue> const&) override {
        return Result::ProtocolError;
    }
    Result::Code Remove(EIL::Values::IIdentifier const&) override { return Result::ProtocolError; }
    Result::Code Clear() override { return Result::ProtocolError; }

    // Answers IObject (as IProcessInfo) and IValues, each of which may be made to fail.
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
        const bool values = id == EIL::Values::IValues::Id;
        if (!values && id != Agent::Hosting::IObject::Id) return Result::ProtocolNotSupported;
        const Operation operation =
            values ? Operation::ProcessGetInterfaceValues : Operation::ProcessGetInterfaceObject;
        if (const auto failure = m_faults->Check(operation)) return *failure;
        // The view is filled when first asked for: most processes a host hands over are never
        // reported, and filling it is most of what making a process costs.
        if (values) {
            try {
                // A lock rather than std::call_once, whose glibc form makes a system call (a
                // futex wake) every time it runs the fill.
                std::lock_guard lock(m_viewMutex);
                if (!m_viewFilled) FillView();
                m_viewFilled = true;
            } catch (const std::bad_alloc&) {
                return Result::OutOfMemory;
            }
        }
        out = values ? static_cast<Agent::Hosting::IObject*>(static_cast<EIL::Values::IValues*>(this))
                     : static_cast<ESP::v0::IProcessInfo*>(this);
        out->AddRef();
        return Result::Success;
    }

private:
    // Throws std::bad_alloc.
    void FillView() {
        using namespace EIL::Values;
        // Set on a fresh container cannot fail except by memory, which throws.
        const auto put = [this](char const* name, Agent::Hosting::ObjectPtr<IValue> value) {
            if (!value || Values::Set(Identifier(name), value) != Result::Success) throw std::bad_alloc();
        };
        put("pid", MakeNumberValue(m_record.pid));
        put("ppid", MakeNumberValue(m_record.parentPid));
        if (m_record.path) put("path", MakeStringValue(*m_record.path));
        if (m_record.commandLine) put("command_line", MakeStringValue(*m_record.commandLine));
        put("uid", MakeStringValue(m_record.uid));
        if (m_record.userId) put("user_id", MakeNumberValue(*m_record.userId));
        if (!m_record.user.empty()) put("user", MakeStringValue(m_record.user));
        if (m_record.startTime != 0) put("start_time", MakeNumberValue(m_record.startTime));
    }

    std::shared_ptr<FaultInjector> m_faults;
    ProcessRecord m_record;
    std::mutex m_viewMutex;
    bool m_viewFilled = false;  // the IValues view, filled by the first lookup of it
};

}  // namespace KALVO::DevHost
