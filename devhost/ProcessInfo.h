// ProcessInfo: the stand-in host's record of one process, handed to monitors as IProcessInfo.
//
// It also answers IValues with the view a detection engineer reads in a report: "pid",
// "ppid", "path", "command_line", "uid", "user_id", "user", "start_time" (absent facts are
// left out). The view is the object itself, so references to it are accounted for like any
// other; it is read-only (Set, Remove and Clear answer 100).
#pragma once

#include <memory>

#include "devhost/FaultInjector.h"
#include "devhost/ProcessRecord.h"
#include "eil/values/Values.h"
#include "host/IProcessInfo.h"
#include "host/IValues.h"
#include "host/ObjectPtr.h"

namespace KALVO::DevHost {

class ProcessInfo : public ESP::v0::IProcessInfo, public EIL::Values::Values {
public:
    static constexpr char const* Kind = "ProcessInfo";

    // Throws std::bad_alloc.
    ProcessInfo(std::shared_ptr<FaultInjector> faults, ProcessRecord record);

    // IProcessInfo
    void Reserved3() override {}
    void Reserved4() override {}
    char const* GetPath() override;
    char const* GetCommandLine() override;
    char const* GetUid() override;

    // IValues: the detection engineer's view, filled once; read-only.
    Result::Code Set(EIL::Values::IIdentifier const&, Agent::Hosting::ObjectPtr<EIL::Values::IValue> const&) override {
        return Result::ProtocolError;
    }
    Result::Code Remove(EIL::Values::IIdentifier const&) override { return Result::ProtocolError; }
    Result::Code Clear() override { return Result::ProtocolError; }

    // Answers IObject (as IProcessInfo) and IValues, each of which may be made to fail.
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out);

protected:
    ~ProcessInfo() = default;

private:
    std::shared_ptr<FaultInjector> m_faults;
    ProcessRecord m_record;
};

}  // namespace KALVO::DevHost
