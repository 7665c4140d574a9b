#include "reporting/SecurityEvent.h"

#include <cstdint>
#include <utility>

#include "eil/object/ThrowIfFailed.h"
#include "eil/values/MakeValue.h"
#include "host/IValues.h"
#include "host/ResultCode.h"

namespace KALVO::Reporting {

using Agent::Hosting::ObjectPtr;
using EIL::Values::IValues;

SecurityEvent::SecurityEvent(ObjectPtr<IHostSecurityEvent> event) noexcept : m_event(std::move(event)) {}

ObjectPtr<EIL::Values::ValuesObject> SecurityEvent::TagsToValues(const std::set<std::string>& tags) {
    auto values = EIL::Values::MakeValues();
    for (const std::string& tag : tags) values->PushBack(EIL::Values::MakeStringValue(tag));
    return values;
}

ObjectPtr<IHostObservation> SecurityEvent::CreateObservation(Severity severity, Source source, const char* typeId,
                                                             const char* message, const std::set<std::string>& tags) {
    ObjectPtr<IValues> sourceValues = source.ToValues();
    ObjectPtr<IValues> tagValues = TagsToValues(tags);
    ObjectPtr<IHostObservation> observation;
    const Result::Code code = m_event->CreateObservation(static_cast<std::uint32_t>(severity), sourceValues, typeId,
                                                         message, tagValues, nullptr, observation);
    sourceValues.Reset();
    tagValues.Reset();
    EIL::Object::ThrowIfFailed(code, "unable to create new observation");
    return observation;
}

ObjectPtr<IHostObservation> SecurityEvent::CreateObservation(Severity severity, Source source, const char* typeId,
                                                             const char* message) {
    return CreateObservation(severity, std::move(source), typeId, message, {});
}

}  // namespace KALVO::Reporting
