#include "screens/ProjectsViewModel.hpp"

#include "base/EnumNames.hpp"
#include "git/Aggregator.hpp"
#include "github/RepoStanding.hpp"

namespace quorvane::ProjectsViewModel {

Json repositories(const AppConfig& config, const Store& store, Date now) {
    const std::vector<RepoSnapshot> snapshots = store.snapshots();
    // The standings cover the tracked repositories with a snapshot, with the labels
    // today's view gives them.
    const std::vector<RepoTodayLine> lines =
        Aggregator::standings(config.repositories, snapshots, now);
    Json list = Json::array();
    for (const RepoConfig& repo : config.repositories) {
        Json json = toJson(repo);
        Json words = Json::array();
        for (const RepoTodayLine& line : lines) {
            if (line.repoID != repo.id) continue;
            std::optional<RepoSnapshot> snapshot = store.snapshot(repo.id);
            std::optional<SyncState> sync = store.syncState(repo.id);
            for (const StatusWord& word :
                 RepoStanding::describe(line.statuses, snapshot ? &*snapshot : nullptr,
                                        sync ? &*sync : nullptr)
                     .words) {
                words.push_back({{"text", word.text}, {"tone", enumName(word.tone)}});
            }
        }
        json["standing"] = std::move(words);
        if (std::optional<ProjectMetadata> metadata = store.metadata(repo.id)) {
            json["projectType"] = metadata->projectType;
        }
        list.push_back(std::move(json));
    }
    return list;
}

Json scanFolders(const AppConfig& config) {
    return config.scanFolders;
}

}  // namespace quorvane::ProjectsViewModel
