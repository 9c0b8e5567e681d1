#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "agent/GitProposalReview.hpp"
#include "persistence/AppConfig.hpp"
#include "records/JsonCodec.hpp"
#include "records/PendingProposal.hpp"
#include "records/RepositoryMapping.hpp"

namespace quorvane::ProposalReviewModel {

// How many repositories a search of `folder` finds, searched as a scan folder is;
// nothing when there is no such folder. Supplied by the caller, so that the model
// itself reads no disk.
using FolderSearch = std::function<std::optional<size_t>(const std::string& folder)>;

// What a proposal's change is measured against: the configuration and the links as
// they stand now, the home folder paths are shown from ("~/code/app"), and a look
// at the folders a change would start scanning.
struct Standing {
    const AppConfig& config;
    const std::vector<RepositoryMapping>& mappings;
    std::string home;
    FolderSearch searchFolder;
};

// One thing approval changes: what it is, how it reads now, and how it will read.
// "-" stands for nothing on either side.
struct Row {
    std::string what;
    std::string before;
    std::string after;

    bool operator==(const Row&) const = default;
};

// What approving a proposal changes, before it is approved. Every text is ready to
// show: an agent's controls in it are already made visible, never to be obeyed.
struct Change {
    std::vector<Row> rows;
    // What the person should know first: a folder that is not there, a repository
    // that is not tracked, a value the setting does not take, a loss for good.
    std::vector<std::string> warnings;
    // The git command line the approval lets run, home written "~"; nothing when
    // no git runs.
    std::optional<std::string> command;
};

// The change `proposal` makes to `standing`; `git` is its git review, when it has
// one. Pure: everything it needs comes in through its arguments.
Change changeOf(const PendingProposal& proposal, const std::optional<GitProposalReview>& git,
                const Standing& standing);

// {"rows": [{"what", "before", "after"}], "warnings": [...], "command": text or null}.
Json toJson(const Change& change);

// A proposal as a listing shows it: every field but the token, which a listing
// never hands out.
Json listing(const PendingProposal& proposal);

// Whether the agent called its change destructive, which a review marks.
bool isDestructive(const PendingProposal& proposal);

// What the person reads before deciding: the listing, the destructive mark, for a
// git command what will run and where it connects, and under "change" what
// approval changes.
Json review(const PendingProposal& proposal, const std::optional<GitProposalReview>& git,
            const Standing& standing);

}  // namespace quorvane::ProposalReviewModel
