// HostConfiguration: the stand-in host's IConfiguration. It serves one JSON text, which a
// test or tool may replace at any time, and hands out a private copy per GetData so that it
// can tell which texts the plug-in never gave back.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <unordered_map>

#include "devhost/FaultInjector.h"
#include "eil/object/LookupInterfaceImpl.h"
#include "host/IConfiguration.h"

namespace KALVO::DevHost {

class HostConfiguration : public KALVO::Configuration::IConfiguration {
public:
    static constexpr char const* Kind = "Configuration";
    using Interfaces = EIL::Object::InterfaceList<KALVO::Configuration::IConfiguration>;

    HostConfiguration(std::shared_ptr<FaultInjector> faults, std::string text)
        : m_faults(std::move(faults)), m_text(std::move(text)) {}

    // Replaces the text; texts already handed out stay as they were.
    void SetText(std::string text) {
        std::lock_guard lock(m_mutex);
        m_text = std::move(text);
    }

    // Texts handed out by GetData and not yet given back.
    std::size_t OutstandingTexts() const {
        std::lock_guard lock(m_mutex);
        return m_handedOut.size();
    }
    // ReleaseData calls with a pointer that was not outstanding (never handed out, or given
    // back twice); such calls are otherwise ignored.
    std::uint64_t UnknownReleases() const { return m_unknownReleases; }

    // IConfiguration. Each text is NUL-terminated (beyond `length`) and stays valid until it is
    // given back with ReleaseData, or until this object is destroyed.
    void Reserved3() override {}
    Result::Code GetData(char const*& text, std::uint64_t& length) override {
        return Serve(*m_faults, Operation::GetData, [&] {
            std::lock_guard lock(m_mutex);
            auto copy = std::make_unique<std::string>(m_text);
            const auto [handed, inserted] = m_handedOut.emplace(copy->c_str(), std::move(copy));
            text = handed->first;
            length = handed->second->size();
            return Result::Success;
        });
    }
    void ReleaseData(char const* text) override {
        decltype(m_handedOut)::node_type released;  // freed outside the lock
        std::lock_guard lock(m_mutex);
        released = m_handedOut.extract(text);
        if (!released) ++m_unknownReleases;
    }

private:
    std::shared_ptr<FaultInjector> m_faults;
    mutable std::mutex m_mutex;  // guards the two below
    std::string m_text;
    std::unordered_map<char const*, std::unique_ptr<std::string>> m_handedOut;  // by the text handed out
    std::atomic<std::uint64_t> m_unknownReleases{0};
};

}  // namespace KALVO::DevHost
