#pragma once

#include <optional>
#include <string>
#include <vector>

#include "persistence/AppConfig.hpp"
#include "platform/ProcessRunner.hpp"
#include "records/PendingProposal.hpp"

namespace quorvane {

// What a person reads before confirming a git proposal. A confirmed git command runs
// as if they typed it, under the repository's own configuration, so its title alone
// ("git fetch — PATH") tells too little: the review gives the exact command line,
// the remote it talks to, and the repository's own settings that name a program
// the command would run or change where it connects. Values are as git holds them
// (only credentials are taken out); whoever shows them makes their controls visible.
struct GitProposalReview {
    struct Remote {
        std::string name;               // "origin", or the current branch's remote for a fetch
        std::vector<std::string> urls;  // where it connects, rewrites applied, credentials out
    };

    std::vector<std::string> command;  // the executable and every argument, as they will run
    Remote remote;
    // "key=value" of the repository's own configuration (its config file, worktree
    // file and what they include; the person's own files are theirs), in file order.
    std::vector<std::string> settings;
    // The hooks present where git looks for them, by name.
    std::vector<std::string> hooks;

    // The review of `proposal`, or nothing when it runs no git command or names a
    // repository that is not tracked. The configuration is read now, by read-only git
    // children that run none of the programs they read about: it is what the command
    // will run under, which the last scan's snapshot may no longer be.
    static std::optional<GitProposalReview> of(const PendingProposal& proposal,
                                               const AppConfig& config,
                                               const ProcessRunner& runner);
};

}  // namespace quorvane
