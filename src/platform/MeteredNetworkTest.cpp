#include "platform/MeteredNetwork.hpp"

#include <systemd/sd-bus.h>

#include <atomic>
#include <cstring>
#include <future>
#include <thread>

#include <gtest/gtest.h>

#include "testing/PrivateSessionBus.hpp"

namespace quorvane {
namespace {

// NetworkManager's main object with its Metered property, served on a bus of the
// test's own: NetworkManager itself cannot run here, and its answer is all that
// is asked of it.
class NetworkManagerProperty {
public:
    NetworkManagerProperty(const std::string& address, uint32_t metered) : metered_(metered) {
        std::promise<std::string> ready;
        std::future<std::string> outcome = ready.get_future();
        thread_ = std::thread(
            [this, address, ready = std::move(ready)]() mutable { serve(address, ready); });
        // sd-bus bounds each of its own calls, but the test says so itself sooner.
        if (outcome.wait_for(std::chrono::seconds(5)) == std::future_status::ready) {
            problem_ = outcome.get();
        } else {
            problem_ = "the test's NetworkManager did not start within 5 seconds";
        }
    }
    ~NetworkManagerProperty() {
        stopping_ = true;
        thread_.join();
    }
    const std::string& problem() const { return problem_; }

private:
    static int getMetered(sd_bus*, const char*, const char*, const char*, sd_bus_message* reply,
                          void* self, sd_bus_error*) {
        return sd_bus_message_append(reply, "u",
                                     static_cast<NetworkManagerProperty*>(self)->metered_);
    }

    void serve(const std::string& address, std::promise<std::string>& ready) {
        static const sd_bus_vtable vtable[] = {
            SD_BUS_VTABLE_START(0),
            SD_BUS_PROPERTY("Metered", "u", getMetered, 0, SD_BUS_VTABLE_PROPERTY_EMITS_CHANGE),
            SD_BUS_VTABLE_END};
        sd_bus* bus = nullptr;
        sd_bus_slot* slot = nullptr;
        int r = sd_bus_new(&bus);
        if (r >= 0) r = sd_bus_set_address(bus, address.c_str());
        if (r >= 0) r = sd_bus_set_bus_client(bus, 1);
        if (r >= 0) r = sd_bus_start(bus);
        if (r >= 0) {
            r = sd_bus_add_object_vtable(bus, &slot, "/org/freedesktop/NetworkManager",
                                         "org.freedesktop.NetworkManager", vtable, this);
        }
        if (r >= 0) r = sd_bus_request_name(bus, "org.freedesktop.NetworkManager", 0);
        ready.set_value(r < 0 ? std::string("cannot serve: ") + std::strerror(-r) : "");
        while (r >= 0 && !stopping_) {
            r = sd_bus_process(bus, nullptr);
            if (r > 0) continue;
            if (r >= 0) r = sd_bus_wait(bus, 50'000);
            if (r == -EINTR) r = 0;
        }
        sd_bus_slot_unref(slot);
        sd_bus_flush_close_unref(bus);
    }

    uint32_t metered_;
    std::atomic<bool> stopping_{false};
    std::string problem_;
    std::thread thread_;
};

TEST(MeteredNetworkTest, OnlyNetworkManagersYesAndGuessYesAreMetered) {
    testing::PrivateSessionBus bus;
    ASSERT_EQ(bus.problem(), "");
    // A bus without NetworkManager, and no bus at all: not metered.
    EXPECT_FALSE(NetworkManagerMetered(bus.address()).isMetered());
    EXPECT_FALSE(NetworkManagerMetered("unix:path=/nonexistent/bus").isMetered());

    // NMMetered: 0 unknown, 1 yes, 2 no, 3 guess-yes, 4 guess-no.
    for (uint32_t value : {0u, 1u, 2u, 3u, 4u}) {
        NetworkManagerProperty networkManager(bus.address(), value);
        ASSERT_EQ(networkManager.problem(), "");
        EXPECT_EQ(NetworkManagerMetered(bus.address()).isMetered(), value == 1 || value == 3)
            << "Metered = " << value;
    }
}

}  // namespace
}  // namespace quorvane
