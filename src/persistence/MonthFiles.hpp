#pragma once

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <ranges>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "base/Log.hpp"
#include "base/PathHelpers.hpp"
#include "persistence/AtomicFile.hpp"
#include "persistence/JsonArray.hpp"
#include "platform/Clock.hpp"

namespace quorvane {

// What the month files of every kind share: their names and their folders.
namespace MonthFileNames {

// "YYYY-MM" of a moment, in UTC as commit times are kept.
std::string monthOf(Date date);
// Whether `text` is "YYYY-MM" in digits.
bool isMonth(const std::string& text);
// The month before the one `now` falls in.
std::string previousMonth(Date now);
// "<folder name>-<hash of the repository id>.json": readable by a person looking into
// the folder, and the same on every machine and in every release.
std::string ownName(const std::string& repoID);
// A folder made for a new month must itself survive a crash, not only its file.
void syncFolder(const std::filesystem::path& folder);

}  // namespace MonthFileNames

// Records kept in one file per repository and month, "<folder>/<YYYY-MM>/<own
// name>.json", each an array of records. A change rewrites one small file instead of
// the whole history, and a file is read only when a question first needs its month.
//
// What stays in memory: the months a change touched until they are written, and the
// current and previous month once read, since the daemon asks about today, this week
// and this month over and over. An older month is read for the question that needs it
// and dropped again.
//
// `Kind` names the record type, the folder, the single file of the older layout, and
// each record's key, month and repository. Not locked: the store calls it under its
// own lock.
template <class Kind>
class MonthFiles {
public:
    using Record = typename Kind::Record;
    // How a file that cannot be read is told to the store, by its path in the folder.
    using Report = std::function<void(const std::string& name, const std::string& problem)>;

    MonthFiles(std::filesystem::path dataDir, const Clock& clock, bool readOnly, Report report)
        : dir_(std::move(dataDir)),
          clock_(clock),
          readOnly_(readOnly),
          report_(std::move(report)) {}

    // Forgets what is in memory and lists the files on disk, reading none. A single
    // file of the older layout is then split by the writer into the month files, and
    // removed only once every one of them is written; a crash before that leaves it
    // for the next load to finish. A reader takes it in as it is.
    void load() {
        namespace fs = std::filesystem;
        files_.clear();
        keepAll_ = false;
        std::error_code ec;
        for (const auto& month : fs::directory_iterator(dir_ / Kind::kFolder, ec)) {
            std::string monthName = month.path().filename().string();
            // A link would take the writer's files outside the data folder.
            if (!MonthFileNames::isMonth(monthName) || month.is_symlink(ec) ||
                !month.is_directory(ec)) {
                continue;
            }
            std::error_code inner;
            for (const auto& entry : fs::directory_iterator(month.path(), inner)) {
                std::string name = entry.path().filename().string();
                // The writer's temporaries of an interrupted write are its own to clear.
                if (!readOnly_ && name.starts_with(".") &&
                    name.find(".tmp-") != std::string::npos) {
                    fs::remove(entry.path(), inner);
                    continue;
                }
                if (!name.ends_with(".json") || name.starts_with(".")) continue;
                files_[fmt::format("{}/{}/{}", Kind::kFolder, monthName, name)].onDisk = true;
            }
        }
        adoptSingleFile();
    }

    // Adds each record, or replaces the one under its key. Handing back a record as
    // it is changes nothing, so the file is not written again for it.
    template <class Range>
    void upsert(const Range& records) {
        for (const Record& record : records) {
            File& file = ensure(fileFor(record));
            auto [at, added] = file.items.try_emplace(Kind::key(record), record);
            if (!added) {
                if (at->second == record) continue;
                at->second = record;
            }
            if (!readOnly_) file.dirty = true;
        }
    }

    void purge(const std::string& repoID) {
        std::string own = "/" + MonthFileNames::ownName(repoID);
        for (auto& [name, entry] : files_) {
            if (!name.ends_with(own)) continue;
            File& file = ensure(name);
            if (std::erase_if(
                    file.items,
                    [&](const auto& item) { return Kind::repoID(item.second) == repoID; }) > 0 &&
                !readOnly_) {
                file.dirty = true;
            }
        }
    }

    // Writes every changed file; an emptied one is removed. False when one could not
    // be written, with the reason in `problem`; it stays changed for the next try.
    bool flush(std::string& problem) {
        bool written = writeChanged(problem);
        trim();
        return written;
    }

    // Drops the months read for a question that are neither changed nor recent.
    void trim() {
        if (keepAll_) return;
        std::string keepFrom =
            fmt::format("{}/{}/", Kind::kFolder, MonthFileNames::previousMonth(clock_.now()));
        for (auto& [name, file] : files_) {
            if (name >= keepFrom) break;
            if (!file.loaded || file.dirty || file.unreadable || file.blocked) continue;
            file.items.clear();
            file.loaded = false;
        }
        std::erase_if(
            files_, [](const auto& entry) { return !entry.second.onDisk && !entry.second.loaded; });
    }

    // Every file of this kind on disk, by its path in the data folder.
    std::vector<std::string> fileNames() const {
        std::vector<std::string> names;
        for (const auto& [name, file] : files_) {
            if (file.onDisk) names.push_back(name);
        }
        return names;
    }

    // The file a record belongs in, by its path in the data folder.
    static std::string fileFor(const Record& record) {
        return fmt::format("{}/{}/{}", Kind::kFolder, Kind::month(record),
                           MonthFileNames::ownName(Kind::repoID(record)));
    }

protected:
    struct File {
        std::map<std::string, Record> items;  // by Kind::key
        bool onDisk = false;
        bool loaded = false;
        bool dirty = false;
        bool unreadable = false;  // kept in memory so it is reported once
        bool blocked = false;     // unreadable and still in place: never written over
    };

    // The month of a file, from its path in the data folder.
    static std::string monthOfName(const std::string& name) {
        return name.substr(std::char_traits<char>::length(Kind::kFolder) + 1, 7);
    }

    File& ensure(const std::string& name) {
        File& file = files_[name];
        if (!file.loaded) read(name, file);
        return file;
    }

    // Every record held in the months from `first` to `last` ("YYYY-MM"), each month's
    // files read as needed.
    template <class Visit>
    void forEachIn(const std::string& first, const std::string& last, Visit visit) {
        if (last < first) return;
        for (auto it = files_.lower_bound(fmt::format("{}/{}/", Kind::kFolder, first));
             it != files_.end() && monthOfName(it->first) <= last; ++it) {
            for (const auto& entry : ensure(it->first).items) visit(entry);
        }
    }

    // The records of the months `first` to `last` that `keep` accepts, in key order:
    // a kind's key starts with its repository.
    template <class Keep>
    std::vector<Record> keptInKeyOrder(const std::string& first, const std::string& last,
                                       Keep keep) {
        std::vector<const std::pair<const std::string, Record>*> found;
        forEachIn(first, last, [&](const auto& entry) {
            if (keep(entry.second)) found.push_back(&entry);
        });
        std::sort(found.begin(), found.end(),
                  [](const auto* a, const auto* b) { return a->first < b->first; });
        std::vector<Record> result;
        result.reserve(found.size());
        for (const auto* entry : found) result.push_back(entry->second);
        return result;
    }

    std::map<std::string, File> files_;  // by path in the folder, so by month

private:
    // An array of records into `into`, by key; a later record with the same key
    // replaces an earlier one. Throws DecodeError.
    static void decode(const std::string& bytes, std::map<std::string, Record>& into) {
        JsonCodec::forEachArrayElement(bytes, [&](const Json& element, size_t index) {
            Record record{};
            fromJson(element, record, "[" + std::to_string(index) + "]");
            std::string key = Kind::key(record);
            into.insert_or_assign(std::move(key), std::move(record));
        });
    }

    void read(const std::string& name, File& file) {
        file.loaded = true;
        file.items.clear();
        if (!file.onDisk) return;
        AtomicFile::ReadResult result = AtomicFile::read(dir_ / name);
        if (result.missing) {
            file.onDisk = false;
            return;
        }
        std::string problem = result.error;
        if (result.bytes) {
            try {
                decode(*result.bytes, file.items);
                return;
            } catch (const DecodeError& error) {
                problem = error.what();
            }
        }
        // A file that is there but cannot be read still holds what the user recorded:
        // it is set aside, never written over.
        file.items.clear();
        file.unreadable = true;
        report_(name, problem);
        if (readOnly_) return;
        std::string why;
        if (AtomicFile::quarantine(dir_ / name, clock_.now(), &why)) {
            file.onDisk = false;
            Log::store().error(fmt::format("{} unreadable — quarantined: {}", name, problem));
            return;
        }
        file.blocked = true;
        Log::store().error(
            fmt::format("{} unreadable and could not be set aside ({}); it will not "
                        "be written until it is moved away: {}",
                        name, why, problem));
    }

    // True when every changed file was written.
    bool writeChanged(std::string& problem) {
        namespace fs = std::filesystem;
        if (readOnly_) return true;
        bool allWritten = true;
        auto fail = [&](std::string why) {
            problem = std::move(why);
            Log::store().error(problem);
            allWritten = false;
        };
        for (auto& [name, file] : files_) {
            if (!file.dirty) continue;
            if (file.blocked) {
                problem = fmt::format(
                    "{} was not written: it could not be read when needed and could not be set "
                    "aside",
                    name);
                allWritten = false;
                continue;
            }
            fs::path path = dir_ / name;
            if (file.items.empty()) {
                // Nothing left in it (the repository was forgotten): no empty file stays.
                std::error_code ec;
                fs::remove(path, ec);
                if (ec) {
                    fail(fmt::format("remove {} failed: {}", name, ec.message()));
                    continue;
                }
                file.onDisk = false;
                file.dirty = false;
                continue;
            }
            fs::path month = path.parent_path();
            if (!fs::is_directory(month)) {
                if (!PathHelpers::ensurePrivateDirectory(month)) {
                    fail(fmt::format("write {} failed: cannot create the folder {}", name,
                                     month.string()));
                    continue;
                }
                MonthFileNames::syncFolder(month.parent_path());
                MonthFileNames::syncFolder(dir_);
            }
            if (auto error =
                    AtomicFile::write(path, JsonArray::encode(file.items | std::views::values))) {
                fail(fmt::format("write {} failed: {}", name, *error));
                continue;
            }
            file.onDisk = true;
            file.dirty = false;
        }
        return allWritten;
    }

    void adoptSingleFile() {
        namespace fs = std::filesystem;
        fs::path single = dir_ / Kind::kSingleFile;
        if (!readOnly_) AtomicFile::removeStaleTemporaries(single);
        AtomicFile::ReadResult result = AtomicFile::read(single);
        if (result.missing) return;
        std::map<std::string, Record> records;
        std::string problem = result.error;
        if (result.bytes) {
            try {
                decode(*result.bytes, records);
                problem.clear();
            } catch (const DecodeError& error) {
                problem = error.what();
            }
            result.bytes.reset();
        }
        if (!problem.empty()) {
            // Not split: half a history in the new files would pass for all of it.
            report_(Kind::kSingleFile, problem);
            if (readOnly_) return;
            std::string why;
            if (AtomicFile::quarantine(single, clock_.now(), &why)) {
                Log::store().error(
                    fmt::format("{} unreadable — quarantined: {}", Kind::kSingleFile, problem));
            } else {
                Log::store().error(fmt::format("{} unreadable and could not be set aside ({}): {}",
                                               Kind::kSingleFile, why, problem));
            }
            return;
        }
        // A file written since (after an earlier split stopped half-way, the writer
        // went on) holds the newer record, so it wins.
        for (auto& [key, record] : records) {
            File& file = ensure(fileFor(record));
            if (file.items.contains(key)) continue;
            file.items.emplace(key, std::move(record));
            if (!readOnly_) file.dirty = true;
        }
        records.clear();
        if (readOnly_) {
            keepAll_ = true;
            return;
        }
        std::string writeProblem;
        if (!writeChanged(writeProblem)) {
            Log::store().error(
                fmt::format("{} kept until its records are all in the month files: {}",
                            Kind::kSingleFile, writeProblem));
            return;
        }
        std::error_code ec;
        fs::remove(single, ec);
        if (ec) {
            Log::store().error(
                fmt::format("{} split but not removed: {}", Kind::kSingleFile, ec.message()));
            return;
        }
        MonthFileNames::syncFolder(dir_);
        Log::store().info(fmt::format("{} split into the month files under {}/", Kind::kSingleFile,
                                      Kind::kFolder));
        trim();
    }

    std::filesystem::path dir_;
    const Clock& clock_;
    bool readOnly_;
    Report report_;
    bool keepAll_ = false;  // a reader holding the single file's records in memory only
};

}  // namespace quorvane
