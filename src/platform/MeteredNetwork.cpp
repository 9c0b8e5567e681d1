#include "platform/MeteredNetwork.hpp"

#include <systemd/sd-bus.h>

#include <cstdint>

namespace quorvane {

namespace {

// A NetworkManager that does not answer in this long is as good as none.
constexpr uint64_t kMeteredCallTimeoutMicroseconds = 2'000'000;

}  // namespace

bool NetworkManagerMetered::isMetered() const {
    sd_bus* bus = nullptr;
    int r = 0;
    if (busAddress_) {
        r = sd_bus_new(&bus);
        if (r >= 0) r = sd_bus_set_address(bus, busAddress_->c_str());
        if (r >= 0) r = sd_bus_set_bus_client(bus, 1);
        if (r >= 0) r = sd_bus_start(bus);
    } else {
        r = sd_bus_open_system(&bus);
    }
    if (r >= 0) r = sd_bus_set_method_call_timeout(bus, kMeteredCallTimeoutMicroseconds);
    uint32_t metered = 0;
    if (r >= 0) {
        sd_bus_error error = SD_BUS_ERROR_NULL;
        r = sd_bus_get_property_trivial(
            bus, "org.freedesktop.NetworkManager", "/org/freedesktop/NetworkManager",
            "org.freedesktop.NetworkManager", "Metered", &error, 'u', &metered);
        sd_bus_error_free(&error);
    }
    sd_bus_flush_close_unref(bus);
    return r >= 0 && (metered == kMeteredYes || metered == kMeteredGuessYes);
}

}  // namespace quorvane
