#include "screens/AccountsViewModel.hpp"

#include <set>

namespace quorvane::AccountsViewModel {

std::vector<Row> rows(const std::vector<GitHubAccount>& accounts,
                      const std::vector<RemoteRepository>& remotes,
                      const std::vector<RepositoryMapping>& mappings) {
    std::set<std::string> linked;
    for (const RepositoryMapping& mapping : mappings) {
        if (mapping.kind == RepositoryMapping::Kind::mapped && mapping.remoteRepoID) {
            linked.insert(*mapping.remoteRepoID);
        }
    }
    std::vector<Row> out;
    for (const GitHubAccount& account : accounts) {
        Row row{account, 0, 0};
        for (const RemoteRepository& remote : remotes) {
            if (remote.accountID != account.id) continue;
            ++row.reposCount;
            if (linked.contains(remote.id)) ++row.mappedCount;
        }
        out.push_back(std::move(row));
    }
    return out;
}

std::string_view statusLabel(GitHubAccount::Status status) {
    switch (status) {
        case GitHubAccount::Status::connected: return "Connected";
        case GitHubAccount::Status::tokenInvalid: return "Token Invalid";
        case GitHubAccount::Status::unchecked: return "Unchecked";
        case GitHubAccount::Status::error: return "Error";
    }
    return "Error";
}

Json toJson(const Row& row) {
    Json json = Json::object();
    json["account"] = quorvane::toJson(row.account);
    json["reposCount"] = row.reposCount;
    json["mappedCount"] = row.mappedCount;
    return json;
}

}  // namespace quorvane::AccountsViewModel
