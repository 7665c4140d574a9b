// CommandHandlerImpl<F>: an ICommandHandler that runs a function object. The function object
// returns the command's result code; anything it throws is logged and turned into a code here,
// so no exception reaches the host's message router.
#pragma once

#include <cstdint>
#include <utility>

#include "eil/object/LookupInterfaceImpl.h"
#include "host/ICommandHandler.h"
#include "logging/Log.h"

namespace KALVO::Messaging::Utils {

template <class F>
class CommandHandlerImpl : public ICommandHandler {
public:
    using Interfaces = EIL::Object::InterfaceList<ICommandHandler>;

    explicit CommandHandlerImpl(F function) : m_function(std::move(function)) {}

    Result::Code Execute(char const* command, char const* payload, unsigned long size,
                         EIL::Stream::IOutputStream& output) override {
        try {
            return m_function(command, payload, size, output);
        } catch (...) {
            const std::error_code error = Logging::Log::CurrentException(
                Logging::Severity::Error, "Exception during command execution: {}", command ? command : "");
            return static_cast<Result::Code>(error.value());
        }
    }

private:
    F m_function;
};

}  // namespace KALVO::Messaging::Utils
