#include "screens/ProposalReviewModel.hpp"

#include <algorithm>

#include "base/EnumNames.hpp"
#include "base/TextHelpers.hpp"
#include "persistence/ConfigKeys.hpp"

namespace quorvane::ProposalReviewModel {

namespace {

constexpr const char* kNothing = "-";

// `path` as a person reads it: their home folder as "~", controls made visible.
std::string shownPath(std::string_view path, const std::string& home) {
    const bool underHome = home.size() > 1 && path.starts_with(home) &&
                           (path.size() == home.size() || path[home.size()] == '/');
    return Text::visible(underHome ? "~" + std::string(path.substr(home.size()))
                                   : std::string(path));
}

// An argument of the proposal as text; empty when absent or not a text.
std::string textArg(const Json& args, const char* key) {
    auto found = args.find(key);
    return found != args.end() && found->is_string() ? found->get<std::string>() : "";
}

// A proposed value as the setting would read it: text as it is, anything else as
// JSON, controls made visible.
std::string proposedText(const Json& value) {
    return Text::visible(value.is_string() ? value.get<std::string>() : value.dump());
}

// What one proposal's review is built from, and what it builds.
class Builder {
public:
    Builder(const Json& args, const Standing& standing) : args_(args), standing_(standing) {}

    Change take() { return std::move(change_); }

    void row(std::string what, std::string before, std::string after) {
        change_.rows.push_back({std::move(what), std::move(before), std::move(after)});
    }
    void warn(std::string warning) { change_.warnings.push_back(std::move(warning)); }

    // A setting `config list` shows under `key`, becoming the text `proposed`. The
    // value is parsed as `config set` parses it, so the row shows what the setting
    // would keep, and a value it refuses is said before approval.
    void setting(const std::string& key, const std::string& proposed) {
        const ConfigKeys::Key* found = ConfigKeys::find(key).key;
        if (found == nullptr) return;
        ConfigKeys::Parsed parsed = ConfigKeys::parse(key, proposed);
        if (!parsed.error.empty()) warn(parsed.error);
        row(key, ConfigKeys::display(ConfigKeys::valueOf(standing_.config, *found)),
            parsed.error.empty() ? ConfigKeys::display(parsed.value) : Text::visible(proposed));
    }

    // The scan folders replaced by `folders`: each one taken out, then each one
    // added, with what a search of an added folder finds. Folders compare as shown,
    // so "~/code" and the same folder written from "/" are one.
    void scanFolders() {
        auto list = args_.find("folders");
        if (list == args_.end() || !list->is_array()) return;
        std::vector<std::string> current, proposed;
        for (const std::string& folder : standing_.config.scanFolders) {
            current.push_back(shownPath(folder, home()));
        }
        for (const Json& folder : *list) {
            proposed.push_back(folder.is_string() ? shownPath(folder.get<std::string>(), home())
                                                  : proposedText(folder));
        }
        for (const std::string& folder : current) {
            if (!contains(proposed, folder)) row("scan folder", folder, kNothing);
        }
        for (size_t i = 0; i < proposed.size(); ++i) {
            if (contains(current, proposed[i])) continue;
            row("scan folder", kNothing, proposed[i]);
            const Json& folder = (*list)[i];
            const std::string raw = folder.is_string() ? folder.get<std::string>() : "";
            // A scan reads a folder as written; one from nowhere would be searched
            // wherever the daemon happens to run.
            if (!raw.starts_with('/') && !raw.starts_with('~')) {
                warn(proposed[i] +
                     " is not an absolute folder nor one from ~, which the scan folders take");
                continue;
            }
            std::optional<size_t> found =
                standing_.searchFolder ? standing_.searchFolder(raw) : std::nullopt;
            if (!found) {
                warn(proposed[i] + " does not exist");
            } else if (*found == 0) {
                warn(proposed[i] + " holds no repository");
            }
        }
    }

    // A tracked repository's own setting, `field`, from `before` to `after`; nothing
    // before when the repository is not tracked, which applying then finds too.
    void repoSetting(const std::string& field,
                     const std::function<std::string(const RepoConfig&)>& before,
                     const std::string& after) {
        const std::string id = textArg(args_, "repoId");
        const RepoConfig* repo = tracked(id);
        row(field + " of " + shownPath(id, home()), repo ? before(*repo) : kNothing, after);
        if (repo == nullptr) warn(shownPath(id, home()) + " is not a tracked repository");
    }

    // The link of the repository `id` (local or remote), from how it stands to `after`.
    void mapping(const std::string& id, const std::string& after) {
        row("mapping of " + shownPath(id, home()), linkOf(id), after);
    }

    const Json& args() const { return args_; }
    const Standing& standing() const { return standing_; }
    const std::string& home() const { return standing_.home; }

    const RepoConfig* tracked(const std::string& id) const {
        const auto& repos = standing_.config.repositories;
        auto found = std::find_if(repos.begin(), repos.end(),
                                  [&](const RepoConfig& repo) { return repo.id == id; });
        return found == repos.end() ? nullptr : &*found;
    }

    // How the repository `id` is linked now: its own row, else one that names it.
    std::string linkOf(const std::string& id) const {
        const auto& mappings = standing_.mappings;
        auto found = std::find_if(mappings.begin(), mappings.end(),
                                  [&](const RepositoryMapping& m) { return m.id == id; });
        if (found == mappings.end()) {
            found = std::find_if(mappings.begin(), mappings.end(), [&](const RepositoryMapping& m) {
                return m.localRepoID == id || m.remoteRepoID == id;
            });
        }
        if (found == mappings.end()) return kNothing;
        using enum RepositoryMapping::Kind;
        switch (found->kind) {
            case mapped: {
                const bool fromLocal = found->localRepoID == id;
                const std::string other = fromLocal
                                              ? Text::visible(found->remoteRepoID.value_or(""))
                                              : shownPath(found->localRepoID.value_or(""), home());
                return "mapped to " + other;
            }
            case localOnly: return "local only";
            case remoteOnly: return "remote only";
            case accountMismatch: return "account mismatch";
            case remoteInaccessible: return "remote inaccessible";
        }
        return kNothing;
    }

private:
    static bool contains(const std::vector<std::string>& list, const std::string& item) {
        return std::find(list.begin(), list.end(), item) != list.end();
    }
    const Json& args_;
    const Standing& standing_;
    Change change_;
};

std::string staleDays(const std::optional<int>& days, const AppConfig& config) {
    if (days) return std::to_string(*days);
    return "default (" + std::to_string(config.reminders.staleDirtyAfterDays) + ")";
}

std::string joined(const std::vector<std::string>& names) {
    if (names.empty()) return "none";
    std::string text;
    for (const std::string& name : names) text += (text.empty() ? "" : ", ") + Text::visible(name);
    return text;
}

// The change of a settings tool, by the tool's name as the proposal binds it.
void settingsToolChange(Builder& b, const std::string& tool) {
    const Json& args = b.args();
    const AppConfig& config = b.standing().config;
    if (tool == "update_scan_folders") return b.scanFolders();
    if (tool == "set_daily_review_time") return b.setting("dailyReviewTime", textArg(args, "time"));
    if (tool == "set_default_clone_folder") {
        return b.setting("mapping.defaultCloneFolder", textArg(args, "path"));
    }
    if (tool == "set_repository_category") {
        const std::string value = textArg(args, "value");
        return b.repoSetting(
            "category",
            [](const RepoConfig& repo) { return Text::visible(repo.category.value_or("none")); },
            value.empty() ? "none" : Text::visible(value));
    }
    if (tool == "set_repository_priority") {
        const std::string value = textArg(args, "value");
        b.repoSetting(
            "priority", [](const RepoConfig& repo) { return std::string(enumName(repo.priority)); },
            Text::visible(value));
        if (!enumFromName<RepoConfig::Priority>(value))
            b.warn("priority takes low, normal or high");
        return;
    }
    if (tool == "set_repository_reminder_rules") {
        std::optional<int> days;
        if (auto rules = args.find("rules"); rules != args.end() && rules->is_object()) {
            auto given = rules->find("staleDaysThreshold");
            if (given != rules->end() && given->is_number_integer()) days = given->get<int>();
        }
        return b.repoSetting(
            "staleDaysThreshold",
            [&](const RepoConfig& repo) { return staleDays(repo.staleDaysThreshold, config); },
            staleDays(days, config));
    }
    if (tool == "enable_repository_tracking" || tool == "disable_repository_tracking") {
        return b.repoSetting(
            "trackingEnabled",
            [](const RepoConfig& repo) { return repo.trackingEnabled ? "true" : "false"; },
            tool == "enable_repository_tracking" ? "true" : "false");
    }
    if (tool == "update_project_aliases") {
        std::vector<std::string> aliases;
        if (auto given = args.find("aliases"); given != args.end() && given->is_array()) {
            for (const Json& alias : *given) aliases.push_back(proposedText(alias));
        }
        return b.repoSetting(
            "aliases", [](const RepoConfig& repo) { return joined(repo.aliases); },
            joined(aliases));
    }
}

// The command line the git review found, home written "~" in the folder it runs
// in, so that it still reads as the same command when pasted into a shell.
std::string commandShown(const std::vector<std::string>& command, const std::string& home) {
    std::string line;
    for (size_t i = 0; i < command.size(); ++i) {
        const std::string& word = command[i];
        const bool folder = i > 0 && command[i - 1] == "-C";
        const bool underHome = folder && home.size() > 1 && word.starts_with(home) &&
                               (word.size() == home.size() || word[home.size()] == '/');
        if (!line.empty()) line += ' ';
        if (!underHome) {
            line += Text::commandLine({word});
        } else if (word.size() == home.size()) {
            line += "~";
        } else {
            // The shell expands a "~" only outside quote marks.
            line += "~/" + Text::commandLine({word.substr(home.size() + 1)});
        }
    }
    return line;
}

}  // namespace

Change changeOf(const PendingProposal& proposal, const std::optional<GitProposalReview>& git,
                const Standing& standing) {
    Json args = Json::parse(proposal.payloadJSON, nullptr, false);
    if (!args.is_object()) args = Json::object();
    Builder b(args, standing);
    const std::string tool = proposal.intendedTool.value_or("");
    using enum PendingProposal::Kind;
    switch (proposal.kind) {
        case mapping: {
            const std::string remote = textArg(args, "remoteRepoId");
            const std::string local = textArg(args, "localRepoId");
            if (local.empty()) {
                b.warn("no local repository was found for " + Text::visible(remote) +
                       ": approving links nothing");
                break;
            }
            b.mapping(local, "mapped to " + Text::visible(remote));
            break;
        }
        case markRemoteOnly: b.mapping(textArg(args, "repoId"), "remote only"); break;
        case markLocalOnly: b.mapping(textArg(args, "repoId"), "local only"); break;
        case markIgnored: {
            const std::string id = textArg(args, "repoId");
            const std::string shown = shownPath(id, standing.home);
            b.row("tracking of " + shown, b.tracked(id) ? "tracked" : "not tracked", "ignored");
            b.row("stored history of " + shown, "kept", "deleted");
            b.warn("the stored history of " + shown + " is deleted for good");
            break;
        }
        // A scan folders proposal is a settings change by an older name, which may
        // name its folders without naming its tool.
        case settingsChange:
        case scanFolders:
            settingsToolChange(
                b, tool.empty() && proposal.kind == scanFolders ? "update_scan_folders" : tool);
            break;
        case recipe: {
            std::string name = textArg(args, "recipe");
            if (name.empty()) name = textArg(args, "recipeId");
            b.row("settings recipe", kNothing, name.empty() ? kNothing : Text::visible(name));
            b.warn("settings recipes are not built: approving this changes nothing");
            break;
        }
        // A plan is for reading: approving it authorises nothing.
        case cleanupPlan: break;
        case safeGit: {
            if (!git) {
                b.warn(shownPath(textArg(args, "repoId"), standing.home) +
                       " is not a tracked repository: nothing runs");
                break;
            }
            Change change = b.take();
            change.command = commandShown(git->command, standing.home);
            return change;
        }
    }
    return b.take();
}

Json toJson(const Change& change) {
    Json rows = Json::array();
    for (const Row& row : change.rows) {
        rows.push_back({{"what", row.what}, {"before", row.before}, {"after", row.after}});
    }
    return Json{{"rows", rows},
                {"warnings", change.warnings},
                {"command", change.command ? Json(*change.command) : Json()}};
}

Json listing(const PendingProposal& proposal) {
    Json json = toJson(proposal);
    json.erase("confirmationToken");
    return json;
}

bool isDestructive(const PendingProposal& proposal) {
    return proposal.summary.starts_with("DESTRUCTIVE");
}

Json review(const PendingProposal& proposal, const std::optional<GitProposalReview>& git,
            const Standing& standing) {
    Json json = listing(proposal);
    json["destructive"] = isDestructive(proposal);
    if (git) {
        json["git"] = Json{{"command", git->command},
                           {"remote", git->remote.name},
                           {"urls", git->remote.urls},
                           {"settings", git->settings},
                           {"hooks", git->hooks}};
    }
    json["change"] = toJson(changeOf(proposal, git, standing));
    return json;
}

}  // namespace quorvane::ProposalReviewModel
