#pragma once

#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "platform/Clock.hpp"
#include "records/CommitRecord.hpp"

namespace quorvane {

// The commits of the data folder: one file per repository and month of authoring,
// "commits/<YYYY-MM>/<folder name>-<hash of the repository id>.json", each an array
// of commit records. A new commit changes one small file instead of the whole
// history, and a file is read only when a question first needs its month.
//
// What stays in memory: the months a change touched until they are written, and
// the current and previous month once read, since the daemon asks about today, this
// week and this month over and over. An older month is read for the question that
// needs it and dropped again.
//
// Not locked: the store calls it under its own lock.
class CommitFiles {
public:
    // How a file that cannot be read is told to the store, by its path in the folder.
    using Report = std::function<void(const std::string& name, const std::string& problem)>;

    CommitFiles(std::filesystem::path dataDir, const Clock& clock, bool readOnly, Report report);

    // Forgets what is in memory and lists the files on disk, reading none. A
    // "commits.json" of the single-file layout is then split by the writer into the
    // month files, and removed only once every one of them is written; a crash before
    // that leaves it for the next load to finish. A reader takes it in as it is.
    void load();

    // The repository's commits (all when no id), newest first, cut to `limit`.
    // Reads months newest first until the limit is met.
    std::vector<CommitRecord> newestFirst(const std::optional<std::string>& repoID,
                                          std::optional<size_t> limit);
    // Those authored from `from` to `to`, inclusive, by repository and sha.
    std::vector<CommitRecord> between(Date from, Date to);
    void upsert(const std::vector<CommitRecord>& commits);
    void purge(const std::string& repoID);

    // Writes every changed file; an emptied one is removed. False when one could not
    // be written, with the reason in `problem`; it stays changed for the next try.
    bool flush(std::string& problem);
    // Drops the months read for a question that are neither changed nor recent.
    void trim();

    // Every commit file on disk, by its path in the data folder.
    std::vector<std::string> fileNames() const;
    // The file a commit belongs in, by its path in the data folder.
    static std::string fileFor(const CommitRecord& commit);
    // The name of a repository's file in each month's folder.
    static std::string ownName(const std::string& repoID);

    static constexpr const char* kSingleFile = "commits.json";
    static constexpr const char* kFolder = "commits";

private:
    struct File {
        std::map<std::string, CommitRecord> items;  // by "<repoID>:<sha>"
        bool onDisk = false;
        bool loaded = false;
        bool dirty = false;
        bool unreadable = false;  // kept in memory so it is reported once
        bool blocked = false;     // unreadable and still in place: never written over
    };

    File& ensure(const std::string& name);
    void read(const std::string& name, File& file);
    // True when every changed file was written.
    bool writeChanged(std::string& problem);
    void adoptSingleFile();
    std::string recentMonth() const;  // the previous month: it and later ones stay

    std::filesystem::path dir_;
    const Clock& clock_;
    bool readOnly_;
    Report report_;
    std::map<std::string, File> files_;  // by path in the folder, so by month
    bool keepAll_ = false;  // a reader holding the single file's commits in memory only
};

}  // namespace quorvane
