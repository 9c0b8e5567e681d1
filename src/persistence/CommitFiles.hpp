#pragma once

#include <optional>
#include <string>
#include <vector>

#include "persistence/MonthFiles.hpp"
#include "records/CommitRecord.hpp"

namespace quorvane {

// Commits go by the month they were committed in.
struct CommitFileKind {
    using Record = CommitRecord;
    static constexpr const char* kFolder = "commits";
    static constexpr const char* kSingleFile = "commits.json";
    static std::string key(const CommitRecord& commit) { return commit.id(); }
    static std::string month(const CommitRecord& commit) {
        return MonthFileNames::monthOf(commit.committedAt);
    }
    static const std::string& repoID(const CommitRecord& commit) { return commit.repoID; }
};

// The commits of the data folder: "commits/<YYYY-MM>/<folder name>-<hash>.json". A
// new commit changes one small file instead of the whole history.
class CommitFiles : public MonthFiles<CommitFileKind> {
public:
    using MonthFiles::MonthFiles;

    // The repository's commits (all when no id), newest first, cut to `limit`.
    // Reads months newest first until the limit is met.
    std::vector<CommitRecord> newestFirst(const std::optional<std::string>& repoID,
                                          std::optional<size_t> limit);
    // Those committed from `from` to `to`, inclusive, by repository and sha.
    std::vector<CommitRecord> between(Date from, Date to);
};

}  // namespace quorvane
