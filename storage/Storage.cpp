#include "storage/Storage.h"

#include <fmt/format.h>

#include <cstdint>
#include <stdexcept>
#include <utility>

#include "eil/object/ThrowIfFailed.h"
#include "host/IStorage.h"
#include "host/ObjectPtr.h"
#include "host/ResultCode.h"
#include "logging/Log.h"

namespace KALVO::Storage {

using Agent::Hosting::ObjectPtr;

namespace {

constexpr char const* LoggerName = "kalvo.storage.layer";
constexpr char const* KeyMissing = "key does not exist in storage";
constexpr char const* ReadFailed = "unable to get value from storage";
constexpr char const* WriteFailed = "unable to store value in storage";

// How often a value that keeps growing between the length query and the read is tried.
constexpr int ReadAttempts = 5;

void CheckKey(const std::string& key) {
    if (key.size() > MaxKeyLength) {
        throw std::invalid_argument(fmt::format("key is too long ({} characters maximum)", MaxKeyLength));
    }
}

// The host's store, looked up on every call; the reference goes when the caller's pointer does.
ObjectPtr<IStorage> LookupStorage(Agent::Hosting::IObject* host) {
    ObjectPtr<IStorage> storage;
    EIL::Object::ThrowIfFailed(Agent::Hosting::QueryInterface(host, storage));
    // A host that claims success without an object is treated as a failed protocol, not followed.
    if (!storage) EIL::Object::ThrowIfFailed(Result::ProtocolError);
    return storage;
}

// The codes of GetValue that end a read; any other code is left to the size checks.
void ThrowOnReadFailure(Result::Code code) {
    if (code == Result::InvalidArgument) throw std::runtime_error(KeyMissing);
    if (code == Result::OperationCanceled) throw std::runtime_error(ReadFailed);
}

}  // namespace

Storage::Storage(Agent::Hosting::IObject* host, std::string scope) : m_host(host), m_scope(std::move(scope)) {
    if (!m_host) throw std::runtime_error("service provider not available");
    if (auto logger = Logging::LoggerSingleton::Get()) {
        logger->Log(LoggerName, Logging::Severity::Trace, "Storage for scope {} successfully initialized.", m_scope);
    }
}

std::string Storage::GetString(const std::string& key) const {
    CheckKey(key);
    const ObjectPtr<IStorage> storage = LookupStorage(m_host);

    std::string result;
    std::uint64_t size = 0;
    for (int attempt = 1;; ++attempt) {
        // Learn the length. A code other than "missing" or "failed" is not final by itself:
        // only the read below decides.
        size = 0;
        ThrowOnReadFailure(storage->GetValue(m_scope.c_str(), key.c_str(), nullptr, size));
        result.resize(static_cast<std::size_t>(size));

        size = result.size();
        const Result::Code code = storage->GetValue(m_scope.c_str(), key.c_str(), result.data(), size);
        if (code == Result::OutOfMemory) {
            // The value grew in between. After the last attempt the reported size counts as 0,
            // so only a value that was empty at the last length query reads back (as empty).
            size = 0;
            if (attempt < ReadAttempts) continue;
            break;
        }
        ThrowOnReadFailure(code);
        if (size < result.size()) result.resize(static_cast<std::size_t>(size));
        break;
    }
    // A host that claims to have written more than the buffer held is not believed.
    if (size != result.size()) throw std::runtime_error(ReadFailed);
    return result;
}

void Storage::SetBuffer(const std::string& key, const void* data, unsigned long size) const {
    CheckKey(key);
    const ObjectPtr<IStorage> storage = LookupStorage(m_host);
    if (storage->SetValue(m_scope.c_str(), key.c_str(), data, size) != Result::Success) {
        throw std::runtime_error(WriteFailed);
    }
}

}  // namespace KALVO::Storage
