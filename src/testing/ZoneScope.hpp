#pragma once

#include <stdlib.h>
#include <time.h>

namespace quorvane::testing {

// Sets TZ for one test and restores UTC, the suite's zone, afterwards.
class ZoneScope {
public:
    explicit ZoneScope(const char* zone) {
        setenv("TZ", zone, 1);
        tzset();
    }
    ~ZoneScope() {
        setenv("TZ", "UTC", 1);
        tzset();
    }
    ZoneScope(const ZoneScope&) = delete;
    ZoneScope& operator=(const ZoneScope&) = delete;
};

}  // namespace quorvane::testing
