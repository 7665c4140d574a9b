// The health-check command over an arbitrary payload: the answer is 0 with {"id":...,
// "status":"ok"} echoing the request's "id" exactly, 22 for JSON that is not an object with a
// string "id", or 100 for text that is not JSON; nothing else, and nothing escapes.
#include <cstddef>
#include <cstdint>
#include <string>

#include "devhost/OutputStream.h"
#include "eil/json/Json.h"
#include "eil/object/ObjectImpl.h"
#include "fuzz/FuzzCheck.h"
#include "monitor/SecurityMonitorImpl.h"

using KALVO::EIL::Json::Json;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string payload(reinterpret_cast<const char*>(data), size);
    auto output = KALVO::EIL::Object::ObjectImpl<KALVO::DevHost::OutputStream>::Make();
    const auto code = KALVO::SecurityMonitor::SecurityMonitorImpl::OnHealthCheck(payload, *output);

    Json request;
    bool parsed = true;
    try {
        request = KALVO::EIL::Json::FromString(payload);
    } catch (const std::exception&) {
        parsed = false;
    }
    if (!parsed) {
        KALVO_FUZZ_CHECK(code == 100, "text that is not JSON answers 100");
        return 0;
    }
    const Json* id = request.IsObject() ? request.FindMember("id") : nullptr;
    if (id == nullptr || !id->IsString()) {
        KALVO_FUZZ_CHECK(code == 22, "JSON without a string id answers 22");
        return 0;
    }
    KALVO_FUZZ_CHECK(code == 0, "a request with a string id answers 0");
    const Json answer = KALVO::EIL::Json::FromString(output->Contents());
    KALVO_FUZZ_CHECK(answer.IsObject(), "the answer is an object");
    const Json* answerId = answer.FindMember("id");
    const Json* status = answer.FindMember("status");
    KALVO_FUZZ_CHECK(answerId != nullptr && *answerId == *id, "the answer echoes the id");
    KALVO_FUZZ_CHECK(status != nullptr && *status == Json("ok"), "the answer's status is ok");
    return 0;
}
