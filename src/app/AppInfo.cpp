#include "app/AppInfo.hpp"

namespace quorvane::AppInfo {

std::string_view version() {
#ifdef QUORVANE_VERSION
    return QUORVANE_VERSION;
#else
    return "dev";
#endif
}

}  // namespace quorvane::AppInfo
