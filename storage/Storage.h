// Storage: the plug-in's client of the host's persistent key-value store, bound to one scope.
//
// Values are raw bytes kept by the host across restarts of the plug-in. Nothing is cached
// here: every call looks the store up afresh and leaves no state behind when it fails.
#pragma once

#include <cstddef>
#include <string>

#include "host/IObject.h"

namespace KALVO::Storage {

// The longest key accepted, in bytes (terminator not counted).
inline constexpr std::size_t MaxKeyLength = 128;

// Holds no lock and no mutable state: the operations may run on any thread, as far as the
// host's store allows.
//
// Failures are exceptions with fixed texts:
//   std::invalid_argument "key is too long (128 characters maximum)", before the host is asked;
//   std::system_error with the host's code (generic category) when the host lacks IStorage;
//   std::runtime_error "key does not exist in storage", "unable to get value from storage",
//   "unable to store value in storage".
class Storage {
public:
    // `host` is kept without a reference and must outlive this object; a null host throws
    // std::runtime_error "service provider not available". The store is not looked up here.
    Storage(Agent::Hosting::IObject* host, std::string scope);

    // The value of `key` as raw bytes (no terminator or encoding assumed, zero bytes kept).
    // A value that grows while it is being read is read again, five attempts in all.
    std::string GetString(const std::string& key) const;

    // Writes `size` bytes at `data` as the value of `key`.
    void SetBuffer(const std::string& key, const void* data, unsigned long size) const;

private:
    Agent::Hosting::IObject* m_host;  // not owned
    std::string m_scope;
};

}  // namespace KALVO::Storage
