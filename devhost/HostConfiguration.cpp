#include "devhost/HostConfiguration.h"

#include <utility>

#include "devhost/Boundary.h"

namespace KALVO::DevHost {

HostConfiguration::HostConfiguration(std::shared_ptr<FaultInjector> faults, std::string text)
    : m_faults(std::move(faults)), m_text(std::move(text)) {}

void HostConfiguration::SetText(std::string text) {
    std::lock_guard lock(m_mutex);
    m_text = std::move(text);
}

std::string HostConfiguration::Text() const {
    std::lock_guard lock(m_mutex);
    return m_text;
}

std::size_t HostConfiguration::OutstandingTexts() const {
    std::lock_guard lock(m_mutex);
    return m_handedOut.size();
}

std::uint64_t HostConfiguration::UnknownReleases() const {
    std::lock_guard lock(m_mutex);
    return m_unknownReleases;
}

Result::Code HostConfiguration::GetData(char const*& text, std::uint64_t& length) {
    if (const auto failure = m_faults->Check(Operation::GetData)) return *failure;
    return AtBoundary([&] {
        std::lock_guard lock(m_mutex);
        auto copy = std::make_unique<std::string>(m_text);
        const std::string& handed = *copy;
        m_handedOut.emplace(handed.c_str(), std::move(copy));
        text = handed.c_str();
        length = handed.size();
        return Result::Success;
    });
}

void HostConfiguration::ReleaseData(char const* text) {
    std::unique_ptr<std::string> released;  // freed outside the lock
    std::lock_guard lock(m_mutex);
    const auto found = m_handedOut.find(text);
    if (found == m_handedOut.end()) {
        ++m_unknownReleases;
        return;
    }
    released = std::move(found->second);
    m_handedOut.erase(found);
}

}  // namespace KALVO::DevHost
