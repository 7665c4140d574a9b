#include "devhost/Plugin.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <utility>

#include "devhost/Host.h"

namespace KALVO::DevHost {

Plugin::Plugin(const std::string& path, Agent::Hosting::IObject* host) {
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

Plugin::~Plugin() { Unload(); }

void Plugin::Unload() noexcept {
    if (Agent::Hosting::IPackage* package = std::exchange(m_package, nullptr)) package->DestroyThis();
    if (void* library = std::exchange(m_library, nullptr)) ::dlclose(library);
}

void UnloadFrom(Host& host, Plugin& plugin) {
    host.Router().Clear();
    plugin.Unload();
    host.Monitors().Clear();
}

}  // namespace KALVO::DevHost
