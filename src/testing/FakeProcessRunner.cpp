#include "testing/FakeProcessRunner.hpp"

namespace quorvane::testing {

ShellResult FakeProcessRunner::run(const ProcessRequest& request) const {
    {
        std::lock_guard lock(mutex_);
        requests_.push_back(request);
    }
    if (!responder_) return ShellResult{"", "no responder", -1};
    return responder_(request);
}

LaunchResult FakeProcessRunner::startDetached(const ProcessRequest& request) const {
    std::lock_guard lock(mutex_);
    requests_.push_back(request);
    return detachedAnswer;
}

std::vector<ProcessRequest> FakeProcessRunner::requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
}

std::vector<std::string> FakeProcessRunner::commandLines() const {
    std::vector<std::string> lines;
    for (const ProcessRequest& request : requests()) {
        std::string line;
        for (const std::string& argument : request.arguments) {
            if (!line.empty()) line += ' ';
            line += argument;
        }
        lines.push_back(line);
    }
    return lines;
}

}  // namespace quorvane::testing
