// The package interface: what the host holds of a plug-in.
//
// A plug-in library exports one unmangled function, CreateInstance, that returns its package.
// IPackage is not an IObject: it has no reference count and no interface lookup; the host
// ends its life with DestroyThis. The host calls these operations one at a time, on its
// lifecycle thread. `data`/`length` is a text of the host's, not necessarily NUL-terminated.
#pragma once

#include <cstdint>

#include "host/IObject.h"
#include "host/ResultCode.h"

namespace KALVO::Agent::Hosting {

class IPackage {
public:
    // Slots 0 and 1: the complete-object and the deleting destructor.
    virtual ~IPackage() = default;
    // Slot 2. Tears the package down and frees it; the pointer is dead afterwards.
    virtual void DestroyThis() = 0;
    // Slot 3. The package interface's version; 1.
    virtual std::uint32_t Version() const = 0;
    // Slot 4. Installation hook.
    virtual Result::Code Install(char const* data, unsigned long length) = 0;
    // Slot 5. Uninstallation hook.
    virtual Result::Code Uninstall(char const* data, unsigned long length) = 0;
    // Slot 6. Starts the plug-in's work; 0 or 100.
    virtual Result::Code Start(char const* data, unsigned long length) = 0;
    // Slot 7. Stops it; always 0.
    virtual Result::Code Stop(char const* data, unsigned long length) = 0;
    // Slot 8. Hands the plug-in a JSON context, e.g. {"reason":"configuration"}; only between
    // a successful Start and Stop.
    virtual Result::Code Synchronize(char const* data, unsigned long length) = 0;
};

}  // namespace KALVO::Agent::Hosting

// The one exported entry point, found by its unmangled name "CreateInstance". `host` is
// borrowed for the call; the package takes its own reference. Returns null when the package
// cannot be allocated.
extern "C" {
typedef KALVO::Agent::Hosting::IPackage* CreateInstanceFunction(KALVO::Agent::Hosting::IObject* host);
}
