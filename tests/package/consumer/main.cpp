// The smallest host: a host object that offers no interface, handed to the installed sensor.
// The sensor must build its package on it, answer its version, refuse to start (it finds none
// of the services it needs) and go away again, all through the installed headers' vtables.
#include <dlfcn.h>

#include <cstdio>

#include "host/IObject.h"
#include "host/IPackage.h"
#include "host/ResultCode.h"

namespace Hosting = KALVO::Agent::Hosting;
namespace Result = KALVO::Result;

struct BareHost final : Hosting::IObject {
    std::uint64_t references = 1;
    std::uint64_t AddRef() override { return ++references; }
    std::uint64_t Release() override { return --references; }
    Result::Code GetInterface(Hosting::InterfaceId id, IObject*& out) override {
        if (id != IObject::Id) return Result::ProtocolNotSupported;
        out = this;
        AddRef();
        return Result::Success;
    }
};

int main() {
    void* library = dlopen(SENSOR_PATH, RTLD_NOW | RTLD_LOCAL);
    if (!library) {
        std::printf("cannot load %s: %s\n", SENSOR_PATH, dlerror());
        return 1;
    }
    auto* create = reinterpret_cast<CreateInstanceFunction*>(dlsym(library, "CreateInstance"));
    BareHost host;
    Hosting::IPackage* package = create ? create(&host) : nullptr;
    if (!package) {
        std::printf("no package from %s\n", SENSOR_PATH);
        return 1;
    }
    const std::uint32_t version = package->Version();
    const Result::Code start = package->Start(nullptr, 0);
    package->DestroyThis();
    dlclose(library);
    std::printf("%s: version %u, start %u, host references %llu\n", SENSOR_PATH, version, start,
                static_cast<unsigned long long>(host.references));
    return version == 1 && start == Result::ProtocolError && host.references == 1 ? 0 : 1;
}
