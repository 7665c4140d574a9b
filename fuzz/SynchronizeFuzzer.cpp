// Synchronize contexts over a monitor core running on the stand-in host. Input: the context,
// then optionally a NUL and the configuration text the host serves (so "configuration"
// reasons re-read hostile collapse expressions and limits). The answer is 100 exactly when the
// context is not JSON, else 0; afterwards a process creation and a shell command (carrying the
// context bytes as its text) go through the re-read configuration; no exception escapes and
// every configuration text goes back to the host.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "devhost/Host.h"
#include "eil/json/Json.h"
#include "fuzz/FuzzCheck.h"
#include "logging/Log.h"
#include "monitor/SecurityMonitorImpl.h"

namespace {

struct Fixture {
    Fixture() {
        host.Logs().SetRetention(0);
        host.Reports().SetRetention(0);
        host.Filter().SetRetention(0);
        (void)KALVO::Logging::LoggerSingleton::CreateEx(std::string(KALVO::Logging::SensorLoggerName), host.Root());
        monitor = std::make_unique<KALVO::SecurityMonitor::SecurityMonitorImpl>(
            KALVO::Agent::Hosting::ObjectPtr<KALVO::Agent::Hosting::IObject>(host.Root()));
        parent = Make("parent", "/bin/zsh", "-zsh");
    }

    KALVO::Agent::Hosting::ObjectPtr<KALVO::ESP::v0::IProcessInfo> Make(const char* uid, const char* path, std::string commandLine) {
        KALVO::DevHost::ProcessRecord record;
        record.uid = uid;
        record.path = path;
        record.commandLine = std::move(commandLine);
        return host.MakeProcess(std::move(record));
    }

    KALVO::DevHost::Host host;
    std::unique_ptr<KALVO::SecurityMonitor::SecurityMonitorImpl> monitor;
    KALVO::Agent::Hosting::ObjectPtr<KALVO::ESP::v0::IProcessInfo> parent;
};

Fixture& TheFixture() {
    static Fixture* fixture = new Fixture();  // lives until the process ends
    return *fixture;
}

bool IsJson(std::string_view text) {
    try {
        (void)KALVO::EIL::Json::FromString(text);
        return true;
    } catch (const std::exception&) {
        return false;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t split = input.find('\0');
    const std::string context(input.substr(0, split));
    Fixture& fixture = TheFixture();
    fixture.host.Config().SetText(split == std::string_view::npos ? "{}" : std::string(input.substr(split + 1)));

    const auto code = fixture.monitor->OnSynchronize(context);
    KALVO_FUZZ_CHECK(code == (IsJson(context) ? 0u : 100u), "100 exactly for a context that is not JSON");

    const auto child = fixture.Make("child", "/usr/bin/python3", "python3 " + context);
    fixture.host.Monitors().DeliverProcessCreate(child, fixture.parent);
    fixture.host.Monitors().DeliverShellCommand(fixture.parent, context);
    KALVO_FUZZ_CHECK(fixture.host.Monitors().EscapedExceptions() == 0, "no exception reaches the host");
    KALVO_FUZZ_CHECK(fixture.host.Config().OutstandingTexts() == 0, "every configuration text is given back");
    return 0;
}
