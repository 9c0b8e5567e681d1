#pragma once

#include <optional>
#include <string>

namespace quorvane {

// Whether the link the machine uses now is paid by the byte, which the periodic
// sync heeds when told to sync on unmetered links only.
class MeteredSource {
public:
    virtual ~MeteredSource() = default;
    virtual bool isMetered() const = 0;
};

// NetworkManager's own answer: the `Metered` property of its main object on the
// system bus, asked each time (the periodic sync asks every quarter hour at most,
// so nothing is kept and no thread watches). "yes" and "guess-yes" count as
// metered. Without NetworkManager, or a system bus, the link is not metered.
class NetworkManagerMetered final : public MeteredSource {
public:
    // `busAddress` replaces the system bus, as for a test's own bus.
    explicit NetworkManagerMetered(std::optional<std::string> busAddress = std::nullopt)
        : busAddress_(std::move(busAddress)) {}
    bool isMetered() const override;

    // NetworkManager's NMMetered values.
    static constexpr unsigned kMeteredYes = 1;
    static constexpr unsigned kMeteredGuessYes = 3;

private:
    std::optional<std::string> busAddress_;
};

}  // namespace quorvane
