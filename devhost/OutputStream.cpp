#include "devhost/OutputStream.h"

#include <algorithm>

#include "devhost/Boundary.h"

namespace KALVO::DevHost {

std::string OutputStream::Contents() const {
    std::lock_guard lock(m_mutex);
    return m_contents;
}

Result::Code OutputStream::Write(void const* data, unsigned long size, unsigned long* written) {
    if (!data && size != 0) return Result::InvalidArgument;
    return AtBoundary([&] {
        std::lock_guard lock(m_mutex);
        const std::size_t room = m_limits.capacity > m_contents.size() ? m_limits.capacity - m_contents.size() : 0;
        const std::size_t taken = std::min({static_cast<std::size_t>(size), m_limits.maxPerWrite, room});
        m_contents.append(static_cast<char const*>(data), taken);
        if (written) *written = taken;
        return Result::Success;
    });
}

}  // namespace KALVO::DevHost
