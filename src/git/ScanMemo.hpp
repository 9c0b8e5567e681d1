#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "records/CommitRecord.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// What one scan of a repository learned that the next scan may reuse instead of
// asking git again, each part with what it depends on. A part is reused only when
// everything it depends on is unchanged; otherwise it is read anew.
struct ScanMemo {
    // One file a result depended on, as it was then: a different identity, size or
    // time, or a file appearing or going, means the result may have changed.
    struct FileStamp {
        std::string path;
        bool exists = false;
        unsigned long long device = 0, inode = 0, size = 0;
        long long modifiedNs = 0, changedNs = 0;
        bool operator==(const FileStamp&) const = default;
    };

    std::string repoID;

    // The configuration: the files it was read from and what it said. Everything
    // below depends on it too: it can change how log prints.
    std::vector<FileStamp> configFiles;  // empty: not to be reused
    std::string commonDir;               // the git folder shared by all work trees
    std::vector<std::string> filterDrivers;
    std::optional<std::string> remoteURL;
    bool quotePath = true;
    std::vector<std::string> userEmails;

    // HEAD: what the newest commit depends on; with the day and the refs below, what
    // today's commits depend on.
    std::string headOid;
    std::string since;
    int commitsToday = 0;
    std::optional<std::string> lastCommitSha;
    std::optional<std::string> lastCommitMessage;
    std::optional<Date> lastCommitAt;
    std::vector<CommitRecord> todaysCommits;

    // The branches, remote-tracking, replacement and shallow state today's commits
    // and their unpushed marks depend on, as one fingerprint.
    std::string refsFingerprint;

    bool operator==(const ScanMemo&) const = default;

    // The state of a file, or of each file, now.
    static FileStamp stamp(const std::string& path);
    static std::vector<FileStamp> stamp(const std::vector<std::string>& paths);

    // Files stamped once for a pass over many repositories, by path.
    using StampCache = std::map<std::string, FileStamp>;
    // The user's and the system's files every repository's reading depends on
    // alike, stamped now: a pass over many repositories takes a few milliseconds.
    static StampCache sharedStamps();

    // A fingerprint of the refs and files under `commonDir` that decide which
    // commits the branches hold and which a remote holds: refs/heads, refs/remotes,
    // refs/replace, packed-refs, shallow and info/grafts. Read without following links or opening
    // any file.
    // With `newest`, raises it to the latest time any of them was changed.
    static std::string refsFingerprintOf(const std::string& commonDir, long long* newest = nullptr);

    // A fingerprint of what a reading of the work tree at `path` depends on outside
    // its own files: the configuration files it was read from, HEAD, the index,
    // FETCH_HEAD, the refs (as refsFingerprintOf), the repository's own exclude and
    // attribute files and the user's. While it is unchanged and no file of the work
    // tree changed, reading again gives what the reading that kept this memo gave.
    // Nothing when this memo cannot vouch for that: its configuration is not to be
    // reused, or the repository has submodules, whose state lives elsewhere. Reads
    // one small file at most (a linked work tree's ".git") and stats the rest.
    // A file `shared` holds is taken from it rather than stamped again.
    std::optional<std::string> quietFingerprint(const std::string& path,
                                                const StampCache* shared = nullptr) const;

    // The fingerprint of a memo a reading has just made, which no fingerprint taken
    // before it could cover (the repository's first reading): given only when every
    // file and ref it covers was last changed before the reading started
    // (`readStartedNs`, on the system's real-time clock), so that the reading saw
    // them as they are now; otherwise the next scan reads the repository again.
    std::optional<std::string> settledFingerprint(const std::string& path,
                                                  long long readStartedNs) const;
    // How much older than the reading a change must be to count as settled: file
    // times come from the kernel's coarse clock, a tick or so behind.
    static constexpr std::chrono::milliseconds kTimestampSlack{100};

    // The user's and the system's configuration files, which apply to every
    // repository whether or not they said anything the scan asked for.
    static std::vector<std::string> userConfigFiles();

private:
    // The user's own ignore and attribute files for git.
    static std::vector<std::string> userIgnoreFiles();
    std::optional<std::string> fingerprint(const std::string& path, long long* newest,
                                           const StampCache* shared) const;
};

void fromJson(const Json& json, ScanMemo& out, const std::string& path);
Json toJson(const ScanMemo& memo);
void fromJson(const Json& json, ScanMemo::FileStamp& out, const std::string& path);
Json toJson(const ScanMemo::FileStamp& stamp);

}  // namespace quorvane
