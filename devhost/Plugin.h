// Plugin: loads a plug-in library, creates its package on a host object and ends it again.
// Driving the package's lifecycle (Install, Start, Stop, ...) stays with the caller; this only
// owns the library and the package.
#pragma once

#include <dlfcn.h>
#include <sys/stat.h>

#include <stdexcept>
#include <string>
#include <utility>

#include "devhost/Host.h"
#include "host/IPackage.h"

namespace KALVO::DevHost {

// Thrown when a plug-in cannot be loaded; the message names the library and the cause.
class PluginError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Plugin {
public:
    // Loads the library at `path`, finds "CreateInstance" and calls it with `host` (borrowed;
    // the package takes its own reference). Throws PluginError when the file is missing, cannot
    // be loaded, lacks the symbol, or CreateInstance returns null.
    Plugin(const std::string& path, Agent::Hosting::IObject* host) {
        struct stat status {};
        if (::stat(path.c_str(), &status) != 0) throw PluginError("plug-in library not found: " + path);
        m_library = ::dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
        if (!m_library) {
            char const* error = ::dlerror();
            throw PluginError("cannot load plug-in library " + path + ": " + (error ? error : "unknown error"));
        }
        auto* create = reinterpret_cast<CreateInstanceFunction*>(::dlsym(m_library, "CreateInstance"));
        if (!create) {
            Unload();
            throw PluginError("plug-in library " + path + " does not export CreateInstance");
        }
        m_package = create(host);
        if (!m_package) {
            Unload();
            throw PluginError("CreateInstance of " + path + " returned no package");
        }
    }
    ~Plugin() { Unload(); }

    Plugin(const Plugin&) = delete;  // owns the library handle
    Plugin& operator=(const Plugin&) = delete;

    // The package; null after Unload. Borrowed: valid until Unload.
    Agent::Hosting::IPackage* Package() const noexcept { return m_package; }

    // DestroyThis on the package, then closes the library. Idempotent.
    void Unload() noexcept {
        if (Agent::Hosting::IPackage* package = std::exchange(m_package, nullptr)) package->DestroyThis();
        if (void* library = std::exchange(m_library, nullptr)) ::dlclose(library);
    }

private:
    void* m_library = nullptr;
    Agent::Hosting::IPackage* m_package = nullptr;
};

// Ends `plugin` on `host`: drops what the host keeps of it first (a command handler outlives
// the package when it was not stopped, and reported events hold its containers; their code is
// about to go), unloads it, then forgets any monitor registration it left behind.
inline void UnloadFrom(Host& host, Plugin& plugin) {
    host.Router().Clear();
    host.Reports().Clear();
    plugin.Unload();
    host.Monitors().Clear();
}

}  // namespace KALVO::DevHost
