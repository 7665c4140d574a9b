// OutputStream: an in-memory IOutputStream that collects a command handler's answer. It can be
// told to take fewer bytes than offered, so tests can drive a handler's short-write path.
#pragma once

#include <cstddef>
#include <limits>
#include <mutex>
#include <string>

#include "devhost/TrackedObject.h"
#include "host/IOutputStream.h"

namespace KALVO::DevHost {

struct StreamLimits {
    std::size_t maxPerWrite = std::numeric_limits<std::size_t>::max();  // bytes taken by one Write
    std::size_t capacity = std::numeric_limits<std::size_t>::max();     // bytes taken in all
};

class OutputStream : public EIL::Stream::IOutputStream {
public:
    static constexpr char const* Kind = "OutputStream";

    explicit OutputStream(StreamLimits limits = {}) noexcept : m_limits(limits) {}

    std::string Contents() const;

    // IObject only: IOutputStream has no identifier of its own.
    Result::Code LookupInterface(Agent::Hosting::InterfaceId id, Agent::Hosting::IObject*& out) {
        return AnswerObjectOnly<EIL::Stream::IOutputStream>(this, id, out);
    }

    // Takes as many bytes as the limits allow (possibly 0) and answers 0; `written` (when not
    // null) receives the count. Null data with a non-zero size: 22.
    Result::Code Write(void const* data, unsigned long size, unsigned long* written) override;

protected:
    ~OutputStream() = default;

private:
    const StreamLimits m_limits;
    mutable std::mutex m_mutex;  // guards m_contents
    std::string m_contents;
};

}  // namespace KALVO::DevHost
