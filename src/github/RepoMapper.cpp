#include "github/RepoMapper.hpp"

#include <map>
#include <set>

#include "base/TextHelpers.hpp"

namespace quorvane::RepoMapper {

namespace {

std::vector<std::string_view> pieces(std::string_view text, char separator) {
    std::vector<std::string_view> out;
    size_t start = 0;
    while (start <= text.size()) {
        size_t end = text.find(separator, start);
        if (end == std::string_view::npos) end = text.size();
        if (end > start) out.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return out;
}

std::string_view afterFirst(std::string_view text, char c) {
    size_t at = text.find(c);
    return at == std::string_view::npos ? text : text.substr(at + 1);
}

RepositoryMapping row(RepositoryMapping::Kind kind, std::string id, Date now) {
    RepositoryMapping mapping;
    mapping.id = std::move(id);
    mapping.kind = kind;
    mapping.createdAt = now;
    bool certain = kind == RepositoryMapping::Kind::mapped ||
                   kind == RepositoryMapping::Kind::localOnly ||
                   kind == RepositoryMapping::Kind::remoteOnly;
    mapping.confidence = certain ? 1.0 : 0.0;
    return mapping;
}

}  // namespace

std::optional<std::pair<std::string, std::string>> ownerRepo(std::string_view remote) {
    std::string_view text = Text::trim(remote);
    if (text.empty()) return std::nullopt;
    std::string_view path;
    if (size_t scheme = text.find("://"); scheme != std::string_view::npos) {
        // Everything up to the first "@", anywhere in the rest, is a user or a token.
        std::string_view rest = afterFirst(text.substr(scheme + 3), '@');
        size_t slash = rest.find('/');
        if (slash == std::string_view::npos) return std::nullopt;
        std::vector<std::string_view> authority = pieces(rest.substr(0, slash), ':');
        if (authority.empty() || Text::asciiLower(authority[0]) != kGitHubHost) return std::nullopt;
        path = rest.substr(slash + 1);
    } else if (text.find(':') != std::string_view::npos &&
               text.find('@') != std::string_view::npos) {
        size_t colon = text.find(':');
        if (Text::asciiLower(afterFirst(text.substr(0, colon), '@')) != kGitHubHost)
            return std::nullopt;
        path = text.substr(colon + 1);
    } else {
        size_t slash = text.find('/');
        if (slash == std::string_view::npos ||
            Text::asciiLower(text.substr(0, slash)) != kGitHubHost) {
            return std::nullopt;
        }
        path = text.substr(slash + 1);
    }
    std::vector<std::string_view> parts = pieces(path, '/');
    if (parts.size() < 2) return std::nullopt;
    std::string owner(parts[0]), name(parts[1]);
    if (name.ends_with(".git")) name.resize(name.size() - 4);
    if (owner.empty() || name.empty()) return std::nullopt;
    return std::pair{owner, name};
}

std::vector<RepositoryMapping> map(const std::vector<RepoConfig>& configs,
                                   const std::vector<RepoSnapshot>& snapshots,
                                   const std::vector<RemoteRepository>& remotes, Date now) {
    using Kind = RepositoryMapping::Kind;
    std::map<std::string, const RepoSnapshot*> newest;
    for (const RepoSnapshot& snapshot : snapshots) newest.emplace(snapshot.repoID, &snapshot);

    std::vector<RepositoryMapping> rows;
    std::set<std::string> claimed;
    for (const RepoConfig& config : configs) {
        if (!config.trackingEnabled) continue;
        auto snapshot = newest.find(config.id);
        std::optional<std::string> url = snapshot != newest.end() && snapshot->second->remoteURL
                                             ? snapshot->second->remoteURL
                                             : config.remoteURL;
        std::optional<std::pair<std::string, std::string>> parsed;
        if (url) parsed = ownerRepo(*url);
        RepositoryMapping mapping;
        if (!parsed) {
            mapping = row(Kind::localOnly, config.id, now);
        } else {
            std::string owner = Text::asciiLower(parsed->first),
                        name = Text::asciiLower(parsed->second);
            const RemoteRepository* picked = nullptr;
            for (const RemoteRepository& remote : remotes) {
                if (Text::asciiLower(remote.owner) != owner ||
                    Text::asciiLower(remote.name) != name)
                    continue;
                if (picked == nullptr) picked = &remote;
                if (config.preferredAccountID && remote.accountID == *config.preferredAccountID) {
                    picked = &remote;
                    break;
                }
            }
            if (picked != nullptr) {
                claimed.insert(picked->id);
                mapping = row(Kind::mapped, config.id, now);
                mapping.remoteRepoID = picked->id;
                mapping.accountID = picked->accountID;
            } else {
                bool sameName = std::any_of(remotes.begin(), remotes.end(), [&](const auto& r) {
                    return Text::asciiLower(r.name) == name;
                });
                mapping = row(sameName ? Kind::accountMismatch : Kind::remoteInaccessible,
                              config.id, now);
            }
        }
        mapping.localRepoID = config.id;
        rows.push_back(std::move(mapping));
    }
    for (const RemoteRepository& remote : remotes) {
        if (claimed.contains(remote.id)) continue;
        RepositoryMapping mapping = row(Kind::remoteOnly, remote.id, now);
        mapping.remoteRepoID = remote.id;
        mapping.accountID = remote.accountID;
        rows.push_back(std::move(mapping));
    }
    return rows;
}

std::vector<RepositoryMapping> reconcile(const std::vector<RepositoryMapping>& computed,
                                         const std::vector<RepositoryMapping>& confirmed) {
    std::set<std::string> ids, locals, remotes;
    for (const RepositoryMapping& link : confirmed) {
        ids.insert(link.id);
        if (link.localRepoID) locals.insert(*link.localRepoID);
        if (link.remoteRepoID) remotes.insert(*link.remoteRepoID);
    }
    std::vector<RepositoryMapping> result = confirmed;
    for (const RepositoryMapping& row : computed) {
        if (ids.contains(row.id)) continue;
        if (row.localRepoID && locals.contains(*row.localRepoID)) continue;
        if (row.remoteRepoID && remotes.contains(*row.remoteRepoID)) continue;
        result.push_back(row);
    }
    return result;
}

}  // namespace quorvane::RepoMapper
