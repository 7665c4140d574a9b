// The host's record of one process. It also answers IValues (0xc5fbb630cc544393) with what a
// detection engineer sees of the process; that view is what gets reported.
#pragma once

#include "host/IObject.h"

namespace KALVO::ESP::v0 {

class IProcessInfo : public Agent::Hosting::IObject {
public:
    virtual void Reserved3() = 0;  // slots 3 and 4: not part of this contract
    virtual void Reserved4() = 0;
    // Slot 5. The executable path; may be null. Valid while the record lives.
    virtual char const* GetPath() = 0;
    // Slot 6. The full command line; may be null. Valid while the record lives.
    virtual char const* GetCommandLine() = 0;
    // Slot 7. A text unique to this process and stable for its life; never null.
    virtual char const* GetUid() = 0;

protected:
    ~IProcessInfo() = default;
};

}  // namespace KALVO::ESP::v0
