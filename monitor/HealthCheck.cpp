// The health-check command: {"id":"..."} is answered with {"id":"...","status":"ok"}.
#include <string>

#include "eil/json/Json.h"
#include "logging/Log.h"
#include "monitor/SecurityMonitorImpl.h"

namespace KALVO::SecurityMonitor {

Result::Code SecurityMonitorImpl::OnHealthCheck(std::string const& payload, EIL::Stream::IOutputStream& output) {
    if (auto logger = Logging::LoggerSingleton::Get()) logger->Send(Logging::Severity::Trace, "OnHealthCheck");

    EIL::Json::Json request;
    try {
        request = EIL::Json::FromString(payload);
    } catch (...) {
        return Result::ProtocolError;
    }
    const EIL::Json::Json* id = request.IsObject() ? request.FindMember("id") : nullptr;
    if (!id || !id->IsString()) return Result::InvalidArgument;

    EIL::Json::Json answer = EIL::Json::Object();
    answer["id"] = *id;
    answer["status"] = EIL::Json::Json(std::string("ok"));
    const std::string text = EIL::Json::ToStringA(answer);

    unsigned long written = 0;
    (void)output.Write(text.data(), static_cast<unsigned long>(text.size()), &written);
    return written == text.size() ? Result::Success : Result::OutOfMemory;
}

}  // namespace KALVO::SecurityMonitor
