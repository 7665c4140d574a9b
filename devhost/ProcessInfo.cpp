#include "devhost/ProcessInfo.h"

#include <utility>

#include "devhost/TrackedObject.h"
#include "eil/values/Identifier.h"
#include "eil/values/MakeValue.h"

namespace KALVO::DevHost {

namespace {

using Agent::Hosting::IObject;
using Agent::Hosting::ObjectPtr;
using EIL::Values::Identifier;
using EIL::Values::IValue;
using EIL::Values::IValues;

ProcessRecord WithUid(ProcessRecord record) {
    if (record.uid.empty()) record.uid = ProcessUid("", record.pid, record.startTime);
    return record;
}

}  // namespace

ProcessInfo::ProcessInfo(std::shared_ptr<FaultInjector> faults, ProcessRecord record)
    : m_faults(std::move(faults)), m_record(WithUid(std::move(record))) {
    // Set on a fresh container cannot fail except by memory, which throws.
    const auto put = [this](char const* name, ObjectPtr<IValue> value) {
        if (!value || Values::Set(Identifier(name), value) != Result::Success) throw std::bad_alloc();
    };
    put("pid", EIL::Values::MakeNumberValue(m_record.pid));
    put("ppid", EIL::Values::MakeNumberValue(m_record.parentPid));
    if (m_record.path) put("path", EIL::Values::MakeStringValue(*m_record.path));
    if (m_record.commandLine) put("command_line", EIL::Values::MakeStringValue(*m_record.commandLine));
    put("uid", EIL::Values::MakeStringValue(m_record.uid));
    if (m_record.userId) put("user_id", EIL::Values::MakeNumberValue(*m_record.userId));
    if (!m_record.user.empty()) put("user", EIL::Values::MakeStringValue(m_record.user));
    if (m_record.startTime != 0) put("start_time", EIL::Values::MakeNumberValue(m_record.startTime));
}

char const* ProcessInfo::GetPath() { return m_record.path ? m_record.path->c_str() : nullptr; }

char const* ProcessInfo::GetCommandLine() { return m_record.commandLine ? m_record.commandLine->c_str() : nullptr; }

char const* ProcessInfo::GetUid() { return m_record.uid.c_str(); }

Result::Code ProcessInfo::LookupInterface(Agent::Hosting::InterfaceId id, IObject*& out) {
    IObject* found = nullptr;
    if (id == IObject::Id) {
        if (const auto failure = m_faults->Check(Operation::ProcessGetInterfaceObject)) return *failure;
        found = static_cast<ESP::v0::IProcessInfo*>(this);
    } else if (id == IValues::Id) {
        if (const auto failure = m_faults->Check(Operation::ProcessGetInterfaceValues)) return *failure;
        found = static_cast<IValues*>(this);
    } else {
        return Result::ProtocolNotSupported;
    }
    found->AddRef();
    out = found;
    return Result::Success;
}

}  // namespace KALVO::DevHost
