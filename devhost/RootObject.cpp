#include "devhost/RootObject.h"

namespace KALVO::DevHost {

Result::Code PartTable::HandOut(std::uint64_t id, Agent::Hosting::IObject*& out) const {
    for (const Part& part : m_parts) {
        if (part.id != id) continue;
        if (const auto failure = m_faults->Check(part.operation)) return *failure;
        part.object->AddRef();
        out = part.object.Get();
        return Result::Success;
    }
    return Result::ProtocolNotSupported;
}

}  // namespace KALVO::DevHost
