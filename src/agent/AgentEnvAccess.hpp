#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "github/RemoteSyncSummary.hpp"
#include "persistence/AppConfig.hpp"
#include "records/PendingProposal.hpp"

namespace quorvane {

// What the agent's tools need of the application, and no more, so the agent layer
// does not depend on the rest of it.
class AgentEnvAccess {
public:
    virtual ~AgentEnvAccess() = default;

    // A copy of the configuration as it stands; one call reads it once.
    virtual AppConfig currentConfig() = 0;
    // A full local scan; the ids of the repositories it newly tracked.
    virtual std::vector<std::string> rescanNow() = 0;
    // After git changed the repository `repoID` on the person's approval: it is read
    // again, and how it stands against its remote worked out anew, before this
    // returns, so what the agent and the views read next follows the change.
    virtual void repositoryChanged(const std::string& repoID) = 0;
    // A GitHub sync.
    virtual RemoteSyncSummary syncNow(bool includeLocalScan) = 0;
    // Changes the configuration, saves it and lets the running service follow it.
    // Why it could not be saved, or nothing when it was.
    virtual std::optional<std::string> applyConfigChange(
        const std::function<void(AppConfig&)>& change) = 0;
    // Whether the licence allows applying changes and running git.
    virtual bool licenceGrants() = 0;
    // After proposals were stored to wait for the person, all those one call made.
    virtual void proposalsAdded(const std::vector<PendingProposal>&) {}
    // After the agent withdrew the proposal `id` from the person's review.
    virtual void proposalWithdrawn(const std::string&) {}
};

}  // namespace quorvane
