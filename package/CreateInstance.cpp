// The plug-in's one exported symbol.
#include <new>

#include "host/IPackage.h"
#include "package/SecurityMonitor.h"

extern "C" __attribute__((visibility("default"))) KALVO::Agent::Hosting::IPackage* CreateInstance(
    KALVO::Agent::Hosting::IObject* host) noexcept {
    // Allocation failure gives null; anything the constructor throws ends the process
    // (noexcept), which is what a host expects of a plug-in that cannot even build its package.
    return new (std::nothrow) KALVO::SecurityMonitor::SecurityMonitor(host);
}
