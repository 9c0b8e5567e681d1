#pragma once

#include <vector>

#include "github/LocalProjectMatch.hpp"
#include "github/MappingCandidate.hpp"
#include "records/RemoteRepository.hpp"

// How likely a local folder is to be the checkout of a remote repository. The
// score is a ladder, not a sum: the first rung that applies sets it, and says why
// in one line. Pure: reads only its arguments.
namespace quorvane::MappingConfidenceEngine {

// A score from 0 to 100 and the one line of evidence behind it; 0 has none.
struct Score {
    int confidence = 0;
    std::vector<std::string> evidence;

    bool operator==(const Score&) const = default;
};

// The rungs, from the top: the folder's origin names the remote exactly (100), or
// its repository under another owner (80); the remote's name is the folder's,
// package's or origin's name, with local history (90), with a README title that
// agrees (80), or alone (80); folder and package name both resemble it (70); the
// README title agrees with the remote's name or description (60); the folder name
// resembles it (40). Names compare in Unicode lower case.
Score score(const RemoteRepository& remote, const LocalProjectMatch& local);

// One candidate per folder that scored above 0, keeping a folder's best score (the
// first of equals), highest first and then by path.
std::vector<MappingCandidate> candidates(const RemoteRepository& remote,
                                         const std::vector<LocalProjectMatch>& matches);

}  // namespace quorvane::MappingConfidenceEngine
