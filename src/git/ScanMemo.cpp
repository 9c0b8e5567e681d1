#include "git/ScanMemo.hpp"

#include <dirent.h>
#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <fmt/format.h>

#include "base/PathHelpers.hpp"
#include "base/RemoteURL.hpp"

namespace quorvane {

namespace {

namespace fs = std::filesystem;

long long nanoseconds(const struct timespec& time) {
    return static_cast<long long>(time.tv_sec) * 1'000'000'000LL + time.tv_nsec;
}

ScanMemo::FileStamp stampOf(const std::string& path, const struct stat* info) {
    ScanMemo::FileStamp stamp;
    stamp.path = path;
    if (info != nullptr) {
        stamp.exists = true;
        stamp.device = info->st_dev;
        stamp.inode = info->st_ino;
        stamp.size = static_cast<unsigned long long>(info->st_size);
        stamp.modifiedNs = nanoseconds(info->st_mtim);
        stamp.changedNs = nanoseconds(info->st_ctim);
    }
    return stamp;
}

// FNV-1a, enough to tell one listing from another; not a defence against anyone.
void mix(unsigned long long& hash, std::string_view text) {
    for (char c : text) {
        hash ^= static_cast<unsigned char>(c);
        hash *= 1099511628211ULL;
    }
}

// A number as decimal text. The periodic scan mixes every ref of every repository
// this way; formatting through fmt cost more than the stat that gave the number.
template <typename Number>
void appendNumber(std::string& text, Number value) {
    char digits[24];
    auto written = std::to_chars(digits, digits + sizeof digits, value);
    text.append(digits, written.ptr);
}

// The latest change of what a fingerprint took in, when the caller asks for it.
void noteChange(long long* newest, long long modifiedNs, long long changedNs) {
    if (newest != nullptr) *newest = std::max({*newest, modifiedNs, changedNs});
}

// Mixes "name\ninode:size:mtime:ctime:mode\n". The text is what the stored refs
// fingerprints were made of, so a new version still recognises them.
void mixEntry(unsigned long long& hash, std::string_view name, const struct stat& info,
              long long* newest) {
    std::string text(name);
    text += '\n';
    appendNumber(text, info.st_ino);
    text += ':';
    appendNumber(text, info.st_size);
    text += ':';
    appendNumber(text, nanoseconds(info.st_mtim));
    text += ':';
    appendNumber(text, nanoseconds(info.st_ctim));
    text += ':';
    appendNumber(text, info.st_mode);
    text += '\n';
    mix(hash, text);
    noteChange(newest, nanoseconds(info.st_mtim), nanoseconds(info.st_ctim));
}

void mixTree(unsigned long long& hash, const std::string& dir, const std::string& name,
             long long* newest) {
    std::string full = dir + "/" + name;
    struct stat info {};
    if (::lstat(full.c_str(), &info) != 0) {
        mix(hash, name + "\nabsent\n");
        return;
    }
    mixEntry(hash, name, info, newest);
    if (!S_ISDIR(info.st_mode)) return;
    // A folder's own times change when an entry is added, removed or renamed, but
    // not when a loose ref file is rewritten in place: every entry is stamped.
    std::vector<std::string> children;
    if (DIR* folder = ::opendir(full.c_str())) {
        while (const dirent* entry = ::readdir(folder)) {
            std::string_view child = entry->d_name;
            if (child != "." && child != "..") children.emplace_back(child);
        }
        ::closedir(folder);
    }
    std::sort(children.begin(), children.end());
    for (const std::string& child : children) mixTree(hash, dir, name + "/" + child, newest);
}

// A file's state, mixed as it is held: the fingerprint lives only in memory, so
// its bytes need not match any earlier version's.
void mixStamp(unsigned long long& hash, const ScanMemo::FileStamp& stamp) {
    mix(hash, stamp.path);
    auto mixValue = [&](const auto& value) {
        mix(hash, std::string_view(reinterpret_cast<const char*>(&value), sizeof value));
    };
    mixValue(stamp.exists);
    mixValue(stamp.device);
    mixValue(stamp.inode);
    mixValue(stamp.size);
    mixValue(stamp.modifiedNs);
    mixValue(stamp.changedNs);
}

}  // namespace

ScanMemo::FileStamp ScanMemo::stamp(const std::string& path) {
    struct stat info {};
    // Followed, as git follows a link when it reads a config file.
    return stampOf(path, ::stat(path.c_str(), &info) == 0 ? &info : nullptr);
}

std::vector<ScanMemo::FileStamp> ScanMemo::stamp(const std::vector<std::string>& paths) {
    std::vector<FileStamp> stamps;
    stamps.reserve(paths.size());
    for (const std::string& path : paths) stamps.push_back(stamp(path));
    return stamps;
}

std::string ScanMemo::refsFingerprintOf(const std::string& commonDir, long long* newest) {
    unsigned long long hash = 14695981039346656037ULL;
    for (const char* name :
         {"refs/heads", "refs/remotes", "refs/replace", "packed-refs", "shallow", "info/grafts"}) {
        mixTree(hash, commonDir, name, newest);
    }
    return fmt::format("{:016x}", hash);
}

std::optional<std::string> ScanMemo::quietFingerprint(const std::string& path,
                                                      const StampCache* shared) const {
    return fingerprint(path, nullptr, shared);
}

std::optional<std::string> ScanMemo::settledFingerprint(const std::string& path,
                                                        long long readStartedNs) const {
    long long newest = 0;
    std::optional<std::string> result = fingerprint(path, &newest, nullptr);
    // File times come from a clock coarser than the one that timed the start: the
    // margin keeps a change made just after it from passing for older.
    if (newest >= readStartedNs - std::chrono::nanoseconds(kTimestampSlack).count()) {
        return std::nullopt;
    }
    return result;
}

std::optional<std::string> ScanMemo::fingerprint(const std::string& path, long long* newest,
                                                 const StampCache* shared) const {
    if (configFiles.empty() || commonDir.empty()) return std::nullopt;
    fs::path tree(PathHelpers::expandTilde(path));
    std::error_code error;
    // A submodule's checkout moves by its own HEAD, in a folder no one watches here.
    if (fs::exists(tree / ".gitmodules", error)) return std::nullopt;
    // The git folder of this work tree: ".git" itself, or the one a linked work
    // tree's ".git" file names; HEAD and the index live there, the refs in commonDir.
    fs::path gitDir = tree / ".git";
    struct stat info {};
    if (::lstat(gitDir.c_str(), &info) != 0) return std::nullopt;
    std::string pointer;
    if (S_ISREG(info.st_mode)) {
        if (info.st_size > 4096) return std::nullopt;
        std::ifstream file(gitDir);
        std::getline(file, pointer);
        constexpr std::string_view kPrefix = "gitdir: ";
        if (!pointer.starts_with(kPrefix)) return std::nullopt;
        fs::path named(pointer.substr(kPrefix.size()));
        gitDir = named.is_absolute() ? named : tree / named;
    } else if (!S_ISDIR(info.st_mode)) {
        return std::nullopt;
    }
    fs::path common(commonDir);
    // A ".git" folder stats the same followed or not; a ".git" file is its own
    // stamp.
    std::vector<FileStamp> stamps = {stampOf((tree / ".git").string(), &info)};
    for (const fs::path& file : {gitDir / "HEAD", gitDir / "index", gitDir / "FETCH_HEAD",
                                 gitDir / "info" / "sparse-checkout", common / "info" / "exclude",
                                 common / "info" / "attributes"}) {
        stamps.push_back(stamp(file.string()));
    }
    // The user's files, then the configuration; in a pass over many repositories,
    // what they share was stamped once, before it.
    std::vector<std::string> userWide = userIgnoreFiles();
    for (const FileStamp& config : configFiles) userWide.push_back(config.path);
    for (const std::string& file : userWide) {
        auto taken = shared == nullptr ? StampCache::const_iterator() : shared->find(file);
        stamps.push_back(shared != nullptr && taken != shared->end() ? taken->second : stamp(file));
    }

    unsigned long long hash = 14695981039346656037ULL;
    mix(hash, pointer);
    for (const FileStamp& file : stamps) {
        mixStamp(hash, file);
        noteChange(newest, file.modifiedNs, file.changedNs);
    }
    // A configuration file changed since it was read: the memo's reading is stale
    // even if the file is not changed again, so this never matches a later one.
    // The configuration files are the last ones stamped.
    if (!std::equal(configFiles.begin(), configFiles.end(),
                    stamps.end() - static_cast<std::ptrdiff_t>(configFiles.size()))) {
        mix(hash, "stale configuration");
    }
    return fmt::format("{:016x}:{}", hash, refsFingerprintOf(commonDir, newest));
}

std::vector<std::string> ScanMemo::userIgnoreFiles() {
    const char* xdg = std::getenv("XDG_CONFIG_HOME");
    fs::path base =
        xdg != nullptr && xdg[0] == '/' ? fs::path(xdg) : PathHelpers::homeDirectory() / ".config";
    return {(base / "git" / "ignore").string(), (base / "git" / "attributes").string()};
}

ScanMemo::StampCache ScanMemo::sharedStamps() {
    StampCache stamps;
    for (const std::string& file : userIgnoreFiles()) stamps.emplace(file, stamp(file));
    for (const std::string& file : userConfigFiles()) stamps.emplace(file, stamp(file));
    return stamps;
}

std::vector<std::string> ScanMemo::userConfigFiles() {
    std::vector<std::string> files;
    fs::path home = PathHelpers::homeDirectory();
    const char* global = std::getenv("GIT_CONFIG_GLOBAL");
    if (global != nullptr && global[0] != '\0') {
        files.emplace_back(global);
    } else {
        files.push_back((home / ".gitconfig").string());
        const char* xdg = std::getenv("XDG_CONFIG_HOME");
        fs::path base = xdg != nullptr && xdg[0] == '/' ? fs::path(xdg) : home / ".config";
        files.push_back((base / "git" / "config").string());
    }
    const char* system = std::getenv("GIT_CONFIG_SYSTEM");
    files.emplace_back(system != nullptr && system[0] != '\0' ? system : "/etc/gitconfig");
    return files;
}

void fromJson(const Json& json, ScanMemo::FileStamp& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.path = reader.required<std::string>("path");
    out.exists = reader.required<bool>("exists");
    out.device = static_cast<unsigned long long>(reader.orDefault<long long>("device", 0));
    out.inode = static_cast<unsigned long long>(reader.orDefault<long long>("inode", 0));
    out.size = static_cast<unsigned long long>(reader.orDefault<long long>("size", 0));
    out.modifiedNs = reader.orDefault<long long>("modifiedNs", 0);
    out.changedNs = reader.orDefault<long long>("changedNs", 0);
}

Json toJson(const ScanMemo::FileStamp& stamp) {
    return Json{{"path", stamp.path},
                {"exists", stamp.exists},
                {"device", static_cast<long long>(stamp.device)},
                {"inode", static_cast<long long>(stamp.inode)},
                {"size", static_cast<long long>(stamp.size)},
                {"modifiedNs", stamp.modifiedNs},
                {"changedNs", stamp.changedNs}};
}

void fromJson(const Json& json, ScanMemo& out, const std::string& path) {
    ObjectReader reader(json, path);
    out.repoID = reader.required<std::string>("repoID");
    out.configFiles = reader.required<std::vector<ScanMemo::FileStamp>>("configFiles");
    out.commonDir = reader.orDefault<std::string>("commonDir", "");
    out.filterDrivers = reader.required<std::vector<std::string>>("filterDrivers");
    out.remoteURL = reader.optional<std::string>("remoteURL");
    if (out.remoteURL) out.remoteURL = RemoteURL::withoutCredentials(*out.remoteURL);
    out.quotePath = reader.required<bool>("quotePath");
    out.userEmails = reader.orDefault<std::vector<std::string>>("userEmails", {});
    out.headOid = reader.required<std::string>("headOid");
    out.since = reader.required<std::string>("since");
    out.commitsToday = reader.required<int>("commitsToday");
    out.lastCommitSha = reader.optional<std::string>("lastCommitSha");
    out.lastCommitMessage = reader.optional<std::string>("lastCommitMessage");
    out.lastCommitAt = reader.optional<Date>("lastCommitAt");
    out.todaysCommits = reader.required<std::vector<CommitRecord>>("todaysCommits");
    out.refsFingerprint = reader.required<std::string>("refsFingerprint");
    // A memo written before the addresses were read never asked for them: its
    // configuration is read again rather than taken to have none.
    if (!json.contains("userEmails")) out.configFiles.clear();
}

Json toJson(const ScanMemo& memo) {
    Json json{{"repoID", memo.repoID},
              {"configFiles", toJson(memo.configFiles)},
              {"commonDir", memo.commonDir},
              {"filterDrivers", toJson(memo.filterDrivers)},
              {"quotePath", memo.quotePath},
              {"userEmails", toJson(memo.userEmails)},
              {"headOid", memo.headOid},
              {"since", memo.since},
              {"commitsToday", memo.commitsToday},
              {"todaysCommits", toJson(memo.todaysCommits)},
              {"refsFingerprint", memo.refsFingerprint}};
    putIfPresent(json, "remoteURL", memo.remoteURL);
    putIfPresent(json, "lastCommitSha", memo.lastCommitSha);
    putIfPresent(json, "lastCommitMessage", memo.lastCommitMessage);
    putIfPresent(json, "lastCommitAt", memo.lastCommitAt);
    return json;
}

}  // namespace quorvane
