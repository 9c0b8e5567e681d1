#include "persistence/CommitFiles.hpp"

#include <algorithm>

namespace quorvane {

std::vector<CommitRecord> CommitFiles::newestFirst(const std::optional<std::string>& repoID,
                                                   std::optional<size_t> limit) {
    std::string own = repoID ? "/" + MonthFileNames::ownName(*repoID) : "";
    std::vector<std::string> names;
    for (const auto& [name, file] : files_) {
        if (!repoID || name.ends_with(own)) names.push_back(name);
    }
    std::vector<const std::pair<const std::string, CommitRecord>*> found;
    // Newest month first; once a month brings the count to the limit, older ones
    // cannot hold a newer commit.
    for (size_t i = names.size(); i > 0;) {
        std::string month = monthOfName(names[i - 1]);
        for (; i > 0 && monthOfName(names[i - 1]) == month; --i) {
            for (const auto& entry : ensure(names[i - 1]).items) {
                if (!repoID || entry.second.repoID == *repoID) found.push_back(&entry);
            }
        }
        if (limit && found.size() >= *limit) break;
    }
    std::sort(found.begin(), found.end(), [](const auto* a, const auto* b) {
        if (a->second.committedAt != b->second.committedAt) {
            return a->second.committedAt > b->second.committedAt;
        }
        return a->first < b->first;
    });
    if (limit && found.size() > *limit) found.resize(*limit);
    std::vector<CommitRecord> result;
    result.reserve(found.size());
    for (const auto* entry : found) result.push_back(entry->second);
    return result;
}

std::vector<CommitRecord> CommitFiles::between(Date from, Date to) {
    if (to < from) return {};
    return keptInKeyOrder(MonthFileNames::monthOf(from), MonthFileNames::monthOf(to),
                          [&](const CommitRecord& commit) {
                              return commit.committedAt >= from && commit.committedAt <= to;
                          });
}

}  // namespace quorvane
