// Request lines on the agent socket, as any coding agent may write them: the tool
// name and its arguments come from the input, and the dispatcher that checks and
// runs them works on a real store and configuration in a folder of the target's
// own, with the highest permission level the person can grant and that folder as
// the allowed root. Every reply is one line of valid JSON.
#include <cstdlib>
#include <memory>

#include <nlohmann/json.hpp>

#include "FuzzSupport.hpp"
#include "agent/MCPJSON.hpp"
#include "agent/MCPSocketServer.hpp"
#include "app/AppEnvironment.hpp"

namespace quorvane::fuzz {
namespace {

// The environment an agent reaches. It is made anew every so many inputs, so the
// proposals and the audit log a long run leaves behind stay those of a day's use.
class AgentWorld {
public:
    AgentWorld() {
        offline_.reply.transportError = "no network while fuzzing";
        keepHomeIn(folder_);
    }
    std::string root() const { return (folder_ / "root").string(); }
    AppEnvironment& environment() {
        if (!env_ || ++uses_ % 256 == 0) reset();
        return *env_;
    }

private:
    void reset() {
        env_.reset();
        std::filesystem::remove_all(folder_ / "data");
        std::filesystem::create_directories(folder_ / "root");
        env_ = std::make_unique<AppEnvironment>(folder_ / "data", clock_, noChildren_,
                                                nullptr, &offline_);
        env_->load();
        env_->applyConfigChange([&](AppConfig& config) {
            config.agent.permissionLevel = AgentPermissionLevel::safeGit;
            config.agent.allowedRoots = {root()};
        });
    }

    const std::filesystem::path folder_ = runFolder();
    FixedClock clock_{fixedNoon()};
    NoChildren noChildren_;
    CannedTransport offline_;
    std::unique_ptr<AppEnvironment> env_;
    size_t uses_ = 0;
};

}  // namespace
}  // namespace quorvane::fuzz

// Each line of the input is one request; "@ROOT@" in it stands for the allowed
// root, whose name changes from run to run.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace quorvane;
    // Never destroyed (see runFolder).
    static fuzz::AgentWorld& world = *new fuzz::AgentWorld;
    fuzz::Input input(data, size);
    while (!input.empty()) {
        std::string line(input.field());
        if (line.empty()) continue;
        for (size_t at = line.find("@ROOT@"); at != std::string::npos; at = line.find("@ROOT@", at)) {
            line.replace(at, 6, world.root());
            at += world.root().size();
        }
        const std::string reply =
            MCPSocketServer::replyTo(line, world.environment().agentService()).jsonString();
        if (reply.find('\n') != std::string::npos) std::abort();
        if (nlohmann::json::parse(reply, nullptr, false).is_discarded()) std::abort();
    }
    return 0;
}
