#include "logging/Log.h"

#include <cstring>
#include <exception>
#include <stdexcept>

#include "host/ResultCode.h"

namespace KALVO::Logging::Log {

void Warn(char const* text) noexcept {
    auto logger = LoggerSingleton::Get();
    if (logger && logger->HasSink()) logger->Send(Severity::Warn, std::string_view(text, std::strlen(text)));
}

namespace Detail {

std::string CurrentExceptionTextAndError(std::error_code& error) noexcept {
    const std::exception_ptr current = std::current_exception();
    if (!current) {
        error = std::error_code(Result::Success, std::generic_category());
        return {};
    }
    try {
        std::rethrow_exception(current);
    } catch (const std::system_error& e) {
        error = e.code();
        try {
            return e.what();
        } catch (...) {
            return {};
        }
    } catch (const std::exception& e) {
        error = std::error_code(Result::OutOfMemory, std::generic_category());
        try {
            return e.what();
        } catch (...) {
            return {};
        }
    } catch (...) {
        error = std::error_code(Result::PermissionDenied, std::generic_category());
        try {
            return "Unknown exception type";
        } catch (...) {
            return {};
        }
    }
}

}  // namespace Detail
}  // namespace KALVO::Logging::Log
