#include "cli/CommandSupport.hpp"

#include <algorithm>
#include <ctime>
#include <ostream>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "app/AppEnvironment.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "git/GitCommand.hpp"

namespace quorvane::Commands {

namespace fs = std::filesystem;

ConfigService configService(const CommandContext& context) {
    return ConfigService(context.dataDir / "config.json", context.clock);
}

std::optional<DataFolderLock> takeWriterLock(const CommandContext& context) {
    LockAttempt attempt = DataFolderLock::acquire(context.dataDir);
    if (attempt.lock) return std::move(attempt.lock);
    if (!attempt.error.empty()) {
        context.err << fmt::format("quorvane: cannot lock the data folder: {}\n", attempt.error);
    } else {
        context.err << "quorvane: "
                    << DataFolderLock::refusalMessage(context.dataDir, attempt.holder) << "\n";
    }
    return std::nullopt;
}

WriterAccess::WriterAccess(WriterAccess&&) noexcept = default;
WriterAccess& WriterAccess::operator=(WriterAccess&&) noexcept = default;
WriterAccess::~WriterAccess() = default;

std::optional<WriterAccess> WriterAccess::open(CommandContext& context, Notifier* notifier) {
    WriterAccess access;
    access.context_ = &context;
    access.notifier_ = notifier;
    access.service_ = context.service;
    if (access.service_ == nullptr) {
        access.lock_ = takeWriterLock(context);
        if (!access.lock_) return std::nullopt;
    }
    return access;
}

AppEnvironment& WriterAccess::env() {
    if (service_ != nullptr) return *service_;
    if (!own_) {
        // Constructing the environment starts no thread, so the watch set up next is
        // in place before the first one: a scan's threads and the git children it
        // starts, which Ctrl-C at the terminal never reaches on its own.
        auto env = std::make_unique<AppEnvironment>(context_->dataDir, context_->clock,
                                                    context_->runner, notifier_);
        AppEnvironment* stopping = env.get();
        interrupts_ = std::make_unique<InterruptWatch>([stopping](int) { stopping->shutdown(); });
        own_ = std::move(env);
        own_->load();
    }
    return *own_;
}

int reportNotSaved(const CommandContext& context, const std::string& problem) {
    context.err << fmt::format("quorvane: the change was not saved: {}\n", problem);
    return 1;
}

std::string absolutePath(const CommandContext& context, const std::string& path) {
    if (context.workingDir.empty() || path.empty() || path.starts_with('/')) return path;
    return (context.workingDir / path).string();
}

bool reportFlush(const CommandContext& context, const std::string& problem) {
    if (problem.empty()) return true;
    context.err << fmt::format("quorvane: not everything could be saved: {}\n", problem);
    return false;
}

std::optional<AppConfig> readConfig(const CommandContext& context) {
    try {
        return ConfigService(context.dataDir / "config.json", context.clock).read();
    } catch (const ConfigUnreadable& error) {
        context.err << fmt::format("quorvane: {}\n", error.what());
        return std::nullopt;
    }
}

bool loadForReading(const CommandContext& context, Store& store) {
    store.load();
    return reportUnreadable(context, store);
}

bool reportUnreadable(const CommandContext& context, const Store& store) {
    std::vector<Store::UnreadableFile> unreadable = store.unreadableFiles();
    for (const Store::UnreadableFile& file : unreadable) {
        context.err << fmt::format("quorvane: cannot read {} in the data folder: {}\n", file.name,
                                   file.problem);
    }
    if (unreadable.empty()) return true;
    context.err << "A command that changes data, such as 'quorvane scan', sets such a file "
                   "aside and starts it anew; or move it away yourself.\n";
    return false;
}

std::string firstLine(std::string_view text) {
    std::vector<std::string_view> lines = Text::nonEmptyLines(text);
    return lines.empty() ? std::string() : std::string(Text::trim(lines.front()));
}

void printCommand(std::ostream& out, std::string_view command, size_t columns) {
    const std::string prompt = "      $ ";
    const size_t indent = prompt.size();
    std::vector<std::string> pieces =
        TextLayout::wrapCommand(Text::visible(command), columns > indent ? columns - indent : 0);
    out << prompt << pieces[0] << "\n";
    // Continuations line up under the command, or further left when a long word
    // needs the room: the shell does not mind where they start.
    for (size_t j = 1; j < pieces.size(); ++j) {
        size_t width = displayWidth(pieces[j]);
        size_t at = columns == 0 || indent + width <= columns
                        ? indent
                        : (columns > width ? columns - width : 0);
        out << std::string(at, ' ') << pieces[j] << "\n";
    }
}

size_t displayWidth(std::string_view text) {
    return TextLayout::visibleWidth(text);
}

void printTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows) {
    printTable(out, rows, TextLayout::TableFit{});
}

void printTable(std::ostream& out, const std::vector<std::vector<std::string>>& rows,
                const TextLayout::TableFit& fit) {
    for (const std::string& line : TextLayout::layoutTable(rows, fit)) out << line << '\n';
}

void printWrapped(std::ostream& out, std::string_view text, size_t width, std::string_view prefix) {
    size_t indent = displayWidth(prefix);
    // No width is no limit; a prefix as wide as the line still leaves one column.
    size_t room = width == 0 ? 0 : (width > indent ? width - indent : 1);
    std::vector<std::string> lines = TextLayout::wrap(text, room);
    for (size_t i = 0; i < lines.size(); ++i) {
        if (i == 0) {
            out << prefix;
        } else {
            out << std::string(indent, ' ');
        }
        out << lines[i] << '\n';
    }
}

std::string plural(int count, std::string_view noun) {
    // "repository" becomes "repositories", but "day" only takes an "s".
    bool consonantY =
        noun.size() >= 2 && noun.back() == 'y' &&
        std::string_view("aeiou").find(noun[noun.size() - 2]) == std::string_view::npos;
    if (count != 1 && consonantY) {
        return fmt::format("{} {}ies", count, noun.substr(0, noun.size() - 1));
    }
    return fmt::format("{} {}{}", count, noun, count == 1 ? "" : "s");
}

std::string shortID(const std::string& id) {
    return id.substr(0, 8);
}

std::string localClockTime(Date date) {
    std::time_t t = date.time_since_epoch().count();
    std::tm parts{};
    localtime_r(&t, &parts);
    return fmt::format("{:02}:{:02}", parts.tm_hour, parts.tm_min);
}

std::string asOfNote(const AppConfig& config, const Store& store, Date now) {
    std::optional<Date> latest;
    for (const RepoConfig* repo : trackedRepos(config)) {
        std::optional<RepoSnapshot> snapshot = store.snapshot(repo->id);
        if (snapshot && (!latest || snapshot->capturedAt > *latest)) latest = snapshot->capturedAt;
    }
    // A scan takes a moment; within a minute the data is as fresh as a person reads it.
    if (!latest || now - *latest <= std::chrono::minutes(1)) return "";
    if (DateHelpers::dateKey(*latest) == DateHelpers::dateKey(now)) {
        return "as of " + localClockTime(*latest);
    }
    return fmt::format("as of {} {}", DateHelpers::dateKey(*latest), localClockTime(*latest));
}

void printAsOf(std::ostream& out, const AppConfig& config, const Store& store, Date now) {
    std::string note = asOfNote(config, store, now);
    if (!note.empty()) out << note << '\n';
}

std::string describeChanges(const GitFileCounts& files) {
    if (files.total() == 0) return "clean";
    std::vector<std::string> parts;
    auto add = [&](int count, std::string_view label) {
        if (count > 0) parts.push_back(fmt::format("{} {}", count, label));
    };
    add(files.modified, "modified");
    add(files.staged, "staged");
    add(files.untracked, "untracked");
    add(files.deleted, "deleted");
    add(files.renamed, "renamed");
    return fmt::format("{}", fmt::join(parts, ", "));
}

StatusWord describeUpstream(const RepoSnapshot& snapshot) {
    RepoStanding::Standing standing = RepoStanding::describe({}, &snapshot, nullptr).upstream;
    StatusWord word = RepoStanding::word(standing);
    std::vector<std::string> parts;
    if (snapshot.ahead > 0) parts.push_back(fmt::format("{} ahead", snapshot.ahead));
    if (snapshot.behind > 0) parts.push_back(fmt::format("{} behind", snapshot.behind));
    // The counts are the upstream's: where there is none they measure nothing.
    bool counted = standing == RepoStanding::Standing::needsPush ||
                   standing == RepoStanding::Standing::needsPull ||
                   standing == RepoStanding::Standing::diverged;
    if (counted && !parts.empty()) word.text += fmt::format(" ({})", fmt::join(parts, ", "));
    return word;
}

const RepoConfig* findRepo(const AppConfig& config, const std::string& idOrPath) {
    std::string canonical = PathHelpers::canonicalPath(idOrPath);
    for (const RepoConfig& repo : config.repositories) {
        if (repo.id == idOrPath || repo.id == canonical) return &repo;
    }
    return nullptr;
}

const RepoConfig* resolveRepo(const CommandContext& context, const AppConfig& config,
                              const std::string& key) {
    if (const RepoConfig* repo = findRepo(config, absolutePath(context, key))) return repo;
    std::string wanted = Text::asciiLower(key);
    std::vector<const RepoConfig*> named;
    for (const RepoConfig& repo : config.repositories) {
        if (Text::asciiLower(repo.name) == wanted ||
            (repo.displayName && Text::asciiLower(*repo.displayName) == wanted)) {
            named.push_back(&repo);
        }
    }
    if (named.size() == 1) return named[0];
    if (named.empty()) {
        context.err << fmt::format(
            "quorvane: {} is not a tracked repository (see: quorvane repos list)\n", key);
        return nullptr;
    }
    context.err << fmt::format("quorvane: {} names {} repositories; give one of their paths:\n",
                               key, named.size());
    for (const RepoConfig* repo : named) {
        context.err << "  " << Text::visible(repo->localPath) << "\n";
    }
    return nullptr;
}

std::vector<const RepoConfig*> trackedRepos(const AppConfig& config) {
    std::vector<const RepoConfig*> active;
    for (const RepoConfig& repo : config.repositories) {
        if (repo.trackingEnabled) active.push_back(&repo);
    }
    return active;
}

}  // namespace quorvane::Commands
