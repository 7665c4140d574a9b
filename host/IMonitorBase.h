// The common base of the ESP callback interfaces. It has no operations of its own, so each
// callback interface's first operation is its slot 0.
#pragma once

namespace KALVO::ESP {

class IMonitorBase {
protected:
    ~IMonitorBase() = default;
};

}  // namespace KALVO::ESP
