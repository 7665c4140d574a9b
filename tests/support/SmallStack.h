// Runs a piece of a test on a thread whose stack is as small as a macOS secondary thread's
// (512 KiB), where the host calls the sensor. A recursion that would overflow there crashes
// the test instead of passing unnoticed on the main thread's 8 MiB.
#pragma once

#include <pthread.h>

#include <cstddef>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace KALVO::Testing {

// Runs `work` on a new thread with that stack and waits for it; an exception thrown by `work` is
// rethrown here.
inline void RunOnSmallStack(const std::function<void()>& work) {
    struct Job {
        const std::function<void()>* work;
        std::exception_ptr error;
    } job{&work, nullptr};

    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    pthread_attr_setstacksize(&attributes, 512 * 1024);
    pthread_t thread;
    const int created = pthread_create(
        &thread, &attributes,
        [](void* argument) -> void* {
            auto* running = static_cast<Job*>(argument);
            try {
                (*running->work)();
            } catch (...) {
                running->error = std::current_exception();
            }
            return nullptr;
        },
        &job);
    pthread_attr_destroy(&attributes);
    if (created != 0) throw std::runtime_error("cannot start a small-stack thread");
    pthread_join(thread, nullptr);
    if (job.error) std::rethrow_exception(job.error);
}

// `depth` containers around a 0, e.g. [[0]] or {"a":{"a":0}}: what a recursive reader would
// overflow that stack on.
inline std::string Nested(std::size_t depth, std::string_view open, std::string_view close) {
    std::string text;
    for (std::size_t i = 0; i < depth; ++i) text += open;
    text += '0';
    for (std::size_t i = 0; i < depth; ++i) text += close;
    return text;
}

}  // namespace KALVO::Testing
