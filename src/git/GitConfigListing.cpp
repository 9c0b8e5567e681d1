#include "git/GitConfigListing.hpp"

#include <algorithm>
#include <filesystem>

#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "git/GitCommand.hpp"

namespace quorvane {

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kFilePrefix = "file:";

bool endsWithPath(std::string_view key) {
    return key.ends_with(".path");
}

bool isInclude(std::string_view key) {
    return key == "include.path" || (key.starts_with("includeif.") && endsWithPath(key));
}

// git's reading of a boolean: no value is true, an empty one false.
std::optional<bool> configBool(const std::optional<std::string>& value) {
    if (!value) return true;
    std::string lower = Text::asciiLower(*value);
    if (lower == "true" || lower == "yes" || lower == "on") return true;
    if (lower == "false" || lower == "no" || lower == "off" || lower.empty()) return false;
    long long number = 0;
    if (Text::parseInt(lower, number)) return number != 0;
    return std::nullopt;
}

std::optional<std::string> originFile(const GitConfigListing::Entry& entry,
                                      const std::string& repoPath) {
    if (!entry.origin.starts_with(kFilePrefix)) return std::nullopt;
    fs::path file(entry.origin.substr(kFilePrefix.size()));
    if (file.empty()) return std::nullopt;
    if (file.is_relative()) file = fs::path(PathHelpers::expandTilde(repoPath)) / file;
    return file.lexically_normal().string();
}

}  // namespace

std::vector<std::string> GitConfigListing::query() {
    return {"config",
            "--show-scope",
            "--show-origin",
            "--includes",
            "-z",
            "--get-regexp",
            "^(core\\.repositoryformatversion|core\\.quotepath|extensions\\.worktreeconfig|"
            "remote\\.origin\\.url|filter\\..*|url\\..*\\.insteadof|include\\.path|user\\.email|"
            "includeif\\..*\\.path)$"};
}

std::optional<GitConfigListing> GitConfigListing::parse(std::string_view output) {
    // Each entry: scope NUL origin NUL key, then LF value NUL, or NUL alone when the
    // key has no value.
    GitConfigListing listing;
    size_t pos = 0;
    auto field = [&]() -> std::optional<std::string_view> {
        size_t end = output.find('\0', pos);
        if (end == std::string_view::npos) return std::nullopt;
        std::string_view text = output.substr(pos, end - pos);
        pos = end + 1;
        return text;
    };
    while (pos < output.size()) {
        auto scope = field();
        auto origin = field();
        auto keyValue = field();
        if (!scope || !origin || !keyValue || scope->empty() || keyValue->empty()) {
            return std::nullopt;
        }
        Entry entry{std::string(*scope), std::string(*origin), {}, std::nullopt};
        size_t newline = keyValue->find('\n');
        entry.key = std::string(keyValue->substr(0, newline));
        if (newline != std::string_view::npos) {
            entry.value = std::string(keyValue->substr(newline + 1));
        }
        listing.entries.push_back(std::move(entry));
    }
    return listing;
}

std::vector<std::string> GitConfigListing::repositoryFilterDrivers() const {
    std::vector<std::string> drivers;
    for (const Entry& entry : entries) {
        GitCommand::addRepositoryFilterDriver(drivers, entry.scope, entry.key);
    }
    return drivers;
}

std::optional<std::string> GitConfigListing::originURL() const {
    const Entry* url = nullptr;
    // url.<base>.insteadOf, grouped by base in the order each base first appears:
    // git picks the longest matching prefix, the first one on a tie.
    std::vector<std::pair<std::string, std::vector<std::string>>> rewrites;
    for (const Entry& entry : entries) {
        if (entry.key == "remote.origin.url") {
            if (url == nullptr) url = &entry;
            continue;
        }
        constexpr std::string_view head = "url.", tail = ".insteadof";
        if (!entry.value || entry.key.size() <= head.size() + tail.size() ||
            !entry.key.starts_with(head) || !entry.key.ends_with(tail)) {
            continue;
        }
        std::string base =
            entry.key.substr(head.size(), entry.key.size() - head.size() - tail.size());
        auto group = std::find_if(rewrites.begin(), rewrites.end(),
                                  [&](const auto& r) { return r.first == base; });
        if (group == rewrites.end()) {
            rewrites.emplace_back(base, std::vector<std::string>{});
            group = rewrites.end() - 1;
        }
        group->second.push_back(*entry.value);
    }
    if (url == nullptr || !url->value) return std::nullopt;
    const std::string& raw = *url->value;
    const std::string* base = nullptr;
    size_t longest = 0;
    for (const auto& [candidate, prefixes] : rewrites) {
        for (const std::string& prefix : prefixes) {
            if (raw.starts_with(prefix) && (base == nullptr || prefix.size() > longest)) {
                base = &candidate;
                longest = prefix.size();
            }
        }
    }
    std::string rewritten = base == nullptr ? raw : *base + raw.substr(longest);
    std::string trimmed(Text::trim(rewritten));
    if (trimmed.empty()) return std::nullopt;
    return trimmed;
}

std::vector<std::string> GitConfigListing::userEmails() const {
    // Line by line, as `git config --get-all user.email` prints them, so both readings
    // of a value that holds a line end agree.
    std::vector<std::string> emails;
    for (const Entry& entry : entries) {
        if (entry.key != "user.email" || !entry.value) continue;
        for (std::string_view line : Text::nonEmptyLines(*entry.value)) {
            std::string_view email = Text::trim(line);
            if (!email.empty()) emails.emplace_back(email);
        }
    }
    return emails;
}

bool GitConfigListing::quotePath() const {
    bool quote = true;
    for (const Entry& entry : entries) {
        if (entry.key != "core.quotepath") continue;
        if (std::optional<bool> value = configBool(entry.value)) quote = *value;
    }
    return quote;
}

std::optional<std::string> GitConfigListing::localConfigFile(const std::string& repoPath) const {
    for (const Entry& entry : entries) {
        if (entry.scope == "local" && entry.key == "core.repositoryformatversion") {
            return originFile(entry, repoPath);
        }
    }
    return std::nullopt;
}

std::vector<std::string> GitConfigListing::sourceFiles(const std::string& repoPath) const {
    std::vector<std::string> files;
    auto add = [&](std::string file) {
        if (std::find(files.begin(), files.end(), file) == files.end()) {
            files.push_back(std::move(file));
        }
    };
    for (const Entry& entry : entries) {
        std::optional<std::string> origin = originFile(entry, repoPath);
        if (origin) add(*origin);
        if (!isInclude(entry.key) || !entry.value || !origin) continue;
        fs::path target(PathHelpers::expandTilde(*entry.value));
        if (target.is_relative()) target = fs::path(*origin).parent_path() / target;
        add(target.lexically_normal().string());
    }
    return files;
}

bool GitConfigListing::includesOnBranch() const {
    return std::any_of(entries.begin(), entries.end(), [](const Entry& entry) {
        return entry.key.starts_with("includeif.onbranch:");
    });
}

bool GitConfigListing::usesWorktreeConfig() const {
    return std::any_of(entries.begin(), entries.end(), [](const Entry& entry) {
        return entry.key == "extensions.worktreeconfig" && configBool(entry.value).value_or(true);
    });
}

}  // namespace quorvane
