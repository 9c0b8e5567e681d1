#pragma once

#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/ProcessRunner.hpp"

namespace quorvane::testing {

// A process runner that starts nothing: it records every request and answers with
// what the test's responder returns (by default a failed launch).
class FakeProcessRunner final : public ProcessRunner {
public:
    using Responder = std::function<ShellResult(const ProcessRequest&)>;

    explicit FakeProcessRunner(Responder responder = {}) : responder_(std::move(responder)) {}

    ShellResult run(const ProcessRequest& request) const override;
    // Recorded with the others; answers with `detachedAnswer` (by default a refusal).
    LaunchResult startDetached(const ProcessRequest& request) const override;

    LaunchResult detachedAnswer{false, "no responder"};

    // The requests in the order they arrived.
    std::vector<ProcessRequest> requests() const;
    // Each request as one line: the arguments joined by spaces.
    std::vector<std::string> commandLines() const;

private:
    Responder responder_;
    mutable std::mutex mutex_;
    mutable std::vector<ProcessRequest> requests_;
};

}  // namespace quorvane::testing
