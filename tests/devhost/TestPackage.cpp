// A minimal plug-in for the loader's tests: its package holds one reference on the host object
// from CreateInstance until DestroyThis, as a real package does.
#include "host/IObject.h"
#include "host/IPackage.h"

namespace {

using KALVO::Agent::Hosting::IObject;
using KALVO::Agent::Hosting::IPackage;

class TestPackage final : public IPackage {
public:
    explicit TestPackage(IObject* host) : m_host(host) { m_host->AddRef(); }
    ~TestPackage() override { m_host->Release(); }

    void DestroyThis() override { delete this; }
    std::uint32_t Version() const override { return 1; }
    KALVO::Result::Code Install(char const*, unsigned long) override { return 0; }
    KALVO::Result::Code Uninstall(char const*, unsigned long) override { return 0; }
    KALVO::Result::Code Start(char const*, unsigned long) override { return 0; }
    KALVO::Result::Code Stop(char const*, unsigned long) override { return 0; }
    KALVO::Result::Code Synchronize(char const*, unsigned long) override { return 0; }

private:
    IObject* m_host;
};

}  // namespace

extern "C" __attribute__((visibility("default"))) IPackage* CreateInstance(IObject* host) {
    return host ? new TestPackage(host) : nullptr;
}
