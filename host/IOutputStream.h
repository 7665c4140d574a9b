// A byte sink of the host's, into which a command handler writes its answer.
#pragma once

#include "host/IObject.h"

namespace KALVO::EIL::Stream {

class IOutputStream : public Agent::Hosting::IObject {
public:
    // Slot 3. Writes up to `size` bytes; stores in /*out*/ `written` how many were taken.
    virtual Result::Code Write(void const* data, unsigned long size, unsigned long* written) = 0;

protected:
    ~IOutputStream() = default;
};

}  // namespace KALVO::EIL::Stream
