// The severity of an observation, passed to the host as an unsigned 32-bit number.
#pragma once

#include <cstdint>

namespace KALVO::Reporting::v0 {

enum class Severity : std::uint32_t {
    Default = 0,  // the only value this sensor uses; the host names the others
};

}  // namespace KALVO::Reporting::v0
