#include "devhost/ProcessInfo.h"

#include <string>
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

// Set on a fresh container of our own cannot fail except by memory, which throws below.
void Put(EIL::Values::ValuesObject& view, char const* name, ObjectPtr<IValue> value) {
    if (!value || view.Set(Identifier(name), value) != Result::Success) throw std::bad_alloc();
}

ObjectPtr<EIL::Values::ValuesObject> MakeView(const ProcessRecord& record) {
    auto view = EIL::Values::MakeValues();
    Put(*view, "pid", EIL::Values::MakeNumberValue(record.pid));
    Put(*view, "ppid", EIL::Values::MakeNumberValue(record.parentPid));
    if (record.path) Put(*view, "path", EIL::Values::MakeStringValue(*record.path));
    if (record.commandLine) Put(*view, "command_line", EIL::Values::MakeStringValue(*record.commandLine));
    Put(*view, "uid", EIL::Values::MakeStringValue(record.uid));
    if (record.userId) Put(*view, "user_id", EIL::Values::MakeNumberValue(*record.userId));
    if (!record.user.empty()) Put(*view, "user", EIL::Values::MakeStringValue(record.user));
    if (record.startTime != 0) Put(*view, "start_time", EIL::Values::MakeNumberValue(record.startTime));
    return view;
}

ProcessRecord WithUid(ProcessRecord record) {
    if (record.uid.empty()) record.uid = ProcessUid("", record.pid, record.startTime);
    return record;
}

}  // namespace

ProcessInfo::ProcessInfo(std::shared_ptr<FaultInjector> faults, ProcessRecord record)
    : m_faults(std::move(faults)), m_record(WithUid(std::move(record))), m_view(MakeView(m_record)) {}

char const* ProcessInfo::GetPath() { return m_record.path ? m_record.path->c_str() : nullptr; }

char const* ProcessInfo::GetCommandLine() { return m_record.commandLine ? m_record.commandLine->c_str() : nullptr; }

char const* ProcessInfo::GetUid() { return m_record.uid.c_str(); }

Result::Code ProcessInfo::Get(EIL::Values::IIdentifier const& key, ObjectPtr<IValue>& out) const {
    return m_view->Get(key, out);
}

Result::Code ProcessInfo::Set(EIL::Values::IIdentifier const&, ObjectPtr<IValue> const&) { return Result::ProtocolError; }

Result::Code ProcessInfo::Remove(EIL::Values::IIdentifier const&) { return Result::ProtocolError; }

Result::Code ProcessInfo::Clear() { return Result::ProtocolError; }

std::uint64_t ProcessInfo::Count() const { return m_view->Count(); }

Result::Code ProcessInfo::GetByIndex(unsigned long index, ObjectPtr<IValue>& value, ObjectPtr<IValue>* key) const {
    return m_view->GetByIndex(index, value, key);
}

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
