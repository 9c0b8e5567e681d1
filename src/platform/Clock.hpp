#pragma once

#include "base/DateHelpers.hpp"

namespace quorvane {

// Every "now" of the program comes through a Clock, so engines and tests can fix
// time. Local-time rules (day keys, local midnight) follow the process's TZ.
class Clock {
public:
    virtual ~Clock() = default;
    virtual Date now() const = 0;
};

// The system's real-time clock, truncated to whole seconds.
class SystemClock final : public Clock {
public:
    Date now() const override;
};

}  // namespace quorvane
