// ConcurrentSingleton<T>: one process-wide instance, created explicitly, readable from any
// thread, and detachable so that the package that created it can switch logging off.
//
// Get() copies a shared_ptr under a reader lock, so an instance handed out stays valid across
// a concurrent Detach(). CreateEx is serialised and double-checked.
#pragma once

#include <memory>
#include <mutex>
#include <shared_mutex>
#include <utility>

namespace KALVO::Idioms::v1 {

template <class T>
class ConcurrentSingleton {
public:
    // Creates the instance unless one exists. Returns the instance and whether this call made it.
    template <class... Args>
    static std::pair<std::shared_ptr<T>, bool> CreateEx(Args&&... args) {
        Holder& holder = GetHolder();
        std::lock_guard creation(holder.creation);
        {
            std::shared_lock access(holder.access);
            if (holder.instance) return {holder.instance, false};
        }
        auto created = std::make_shared<T>(std::forward<Args>(args)...);
        std::unique_lock access(holder.access);
        if (holder.instance) return {holder.instance, false};
        holder.instance = created;
        return {std::move(created), true};
    }

    // The instance, or empty.
    static std::shared_ptr<T> Get() noexcept {
        Holder& holder = GetHolder();
        std::shared_lock access(holder.access);
        return holder.instance;
    }

    // Removes the instance and returns it; Get() is empty afterwards.
    static std::shared_ptr<T> Detach() noexcept {
        Holder& holder = GetHolder();
        std::unique_lock access(holder.access);
        return std::move(holder.instance);
    }

private:
    struct Holder {
        std::shared_ptr<T> instance;
        std::shared_mutex access;  // guards instance
        std::mutex creation;       // serialises CreateEx
    };

    static Holder& GetHolder() noexcept {
        static Holder holder;  // built on first use, destroyed at process exit
        return holder;
    }
};

}  // namespace KALVO::Idioms::v1
