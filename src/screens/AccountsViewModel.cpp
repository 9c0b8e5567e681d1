#include "screens/AccountsViewModel.hpp"

#include <set>

#include <fmt/format.h>

#include "platform/HttpTransport.hpp"

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

void State::load(const Reader& read) {
    Reading reading = read();
    std::vector<Row> counted = rows(reading.accounts, reading.remotes, reading.mappings);
    std::lock_guard lock(mutex_);
    rows_ = std::move(counted);
    didLoad_ = true;
}

bool State::act(const std::function<void()>& operation, const Reader& read) {
    {
        std::lock_guard lock(mutex_);
        if (isBusy_) return false;
        isBusy_ = true;
    }
    // Not busy any more however the operation ends.
    struct Done {
        State& state;
        ~Done() {
            std::lock_guard lock(state.mutex_);
            state.isBusy_ = false;
        }
    } done{*this};
    operation();
    load(read);
    return true;
}

bool State::isBusy() const {
    std::lock_guard lock(mutex_);
    return isBusy_;
}

Json State::toJson() const {
    std::lock_guard lock(mutex_);
    Json list = Json::array();
    for (const Row& row : rows_) list.push_back(AccountsViewModel::toJson(row));
    return {{"didLoad", didLoad_}, {"isBusy", isBusy_}, {"rows", std::move(list)}};
}

std::string apiAddressProblem(std::string& address) {
    while (address.size() > 1 && address.back() == '/') address.pop_back();
    std::optional<std::string> url = parseURL(address);
    if (!url || !(url->starts_with("https://") || url->starts_with("http://"))) {
        return fmt::format(
            "\"{}\" is not an http or https address, such as https://github.example.com/api/v3",
            address);
    }
    if (!crossesTheNetworkInClear(*url)) return {};
    return fmt::format(
        "\"{}\" would send the token over plain http to another machine, where anyone on the "
        "way could read it: use the server's https:// address",
        address);
}

Json toJson(const Row& row) {
    Json json = Json::object();
    json["account"] = quorvane::toJson(row.account);
    json["reposCount"] = row.reposCount;
    json["mappedCount"] = row.mappedCount;
    return json;
}

Json toJson(const AppEnvironment::AccountCheck& check) {
    Json json = Json::object();
    json["account"] = quorvane::toJson(check.account);
    json["problem"] = check.problem.empty() ? Json(nullptr) : Json(check.problem);
    return json;
}

}  // namespace quorvane::AccountsViewModel
