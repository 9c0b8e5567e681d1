#include "platform/Clock.hpp"

namespace quorvane {

Date SystemClock::now() const {
    return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
}

}  // namespace quorvane
