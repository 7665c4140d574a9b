// The host's configuration for this plug-in, one JSON text, asked of the host object.
#pragma once

#include <cstdint>

#include "host/IObject.h"

namespace KALVO::Configuration {

class IConfiguration : public Agent::Hosting::IObject {
public:
    static constexpr Agent::Hosting::InterfaceId Id = 0x18cae7c940d9b4b7;  // asked of the host object

    virtual void Reserved3() = 0;  // slot 3: not part of this contract
    // Slot 4. Hands out the current JSON text in /*out*/ `text` and its byte length in
    // /*out*/ `length`. The text stays the host's until given back with ReleaseData.
    virtual Result::Code GetData(char const*& text, std::uint64_t& length) = 0;
    // Slot 5. Gives back a text that GetData handed out.
    virtual void ReleaseData(char const* text) = 0;

protected:
    ~IConfiguration() = default;
};

}  // namespace KALVO::Configuration
