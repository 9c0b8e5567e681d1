#include "persistence/CommitFiles.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <ranges>

#include <fmt/format.h>

#include "base/Log.hpp"
#include "base/PathHelpers.hpp"
#include "persistence/AtomicFile.hpp"
#include "persistence/JsonArray.hpp"

namespace quorvane {

namespace fs = std::filesystem;

namespace {

constexpr size_t kMonthAt = 8;  // "commits/" before the month in a file's name
constexpr size_t kMonthLength = 7;

std::string monthOf(Date date) {
    std::chrono::year_month_day day{std::chrono::floor<std::chrono::days>(date)};
    return fmt::format("{:04}-{:02}", static_cast<int>(day.year()),
                       static_cast<unsigned>(day.month()));
}

std::string monthOfName(const std::string& name) {
    return name.substr(kMonthAt, kMonthLength);
}

bool isMonth(const std::string& text) {
    if (text.size() != kMonthLength || text[4] != '-') return false;
    for (size_t i = 0; i < text.size(); ++i) {
        if (i != 4 && (text[i] < '0' || text[i] > '9')) return false;
    }
    return true;
}

// FNV-1a: the same on every machine and in every release, unlike std::hash, so a
// repository's files keep their names.
std::string stableHash(const std::string& text) {
    uint64_t hash = 14695981039346656037ULL;
    for (unsigned char c : text) {
        hash ^= c;
        hash *= 1099511628211ULL;
    }
    return fmt::format("{:016x}", hash);
}

// The repository's folder name, kept to characters any file system takes, so a
// person looking into the folder sees whose commits a file holds.
std::string readableName(const std::string& repoID) {
    std::string base = fs::path(repoID).filename().string();
    if (base.empty()) base = fs::path(repoID).parent_path().filename().string();
    std::string name;
    for (char c : base) {
        bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
                     c == '-' || c == '_' || c == '.';
        name += plain ? c : '_';
        if (name.size() == 48) break;
    }
    // No hidden name: those are the writer's temporaries.
    while (!name.empty() && name.front() == '.') name.erase(0, 1);
    return name.empty() ? "repo" : name;
}

bool isCommitFileName(const std::string& name) {
    return name.ends_with(".json") && !name.starts_with(".");
}

// A folder made for a new month must itself survive a crash, not only its file.
void syncFolder(const fs::path& folder) {
    int fd = ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) return;
    ::fsync(fd);
    ::close(fd);
}

// An array of commit records into `into`, by key; a later record with the same key
// replaces an earlier one. Throws DecodeError.
void decodeCommits(const std::string& bytes, std::map<std::string, CommitRecord>& into) {
    JsonCodec::forEachArrayElement(bytes, [&](const Json& element, size_t index) {
        CommitRecord record{};
        fromJson(element, record, "[" + std::to_string(index) + "]");
        std::string key = record.id();
        into.insert_or_assign(std::move(key), std::move(record));
    });
}

}  // namespace

CommitFiles::CommitFiles(fs::path dataDir, const Clock& clock, bool readOnly, Report report)
    : dir_(std::move(dataDir)), clock_(clock), readOnly_(readOnly), report_(std::move(report)) {}

std::string CommitFiles::fileFor(const CommitRecord& commit) {
    return fmt::format("{}/{}/{}", kFolder, monthOf(commit.committedAt), ownName(commit.repoID));
}

std::string CommitFiles::ownName(const std::string& repoID) {
    return fmt::format("{}-{}.json", readableName(repoID), stableHash(repoID));
}

std::string CommitFiles::recentMonth() const {
    std::chrono::year_month_day today{std::chrono::floor<std::chrono::days>(clock_.now())};
    std::chrono::year_month previous = today.year() / today.month() - std::chrono::months(1);
    return fmt::format("{:04}-{:02}", static_cast<int>(previous.year()),
                       static_cast<unsigned>(previous.month()));
}

void CommitFiles::load() {
    files_.clear();
    keepAll_ = false;
    std::error_code ec;
    for (const auto& month : fs::directory_iterator(dir_ / kFolder, ec)) {
        std::string monthName = month.path().filename().string();
        // A link would take the writer's files outside the data folder.
        if (!isMonth(monthName) || month.is_symlink(ec) || !month.is_directory(ec)) continue;
        std::error_code inner;
        for (const auto& entry : fs::directory_iterator(month.path(), inner)) {
            std::string name = entry.path().filename().string();
            // The writer's temporaries of an interrupted write are its own to clear.
            if (!readOnly_ && name.starts_with(".") && name.find(".tmp-") != std::string::npos) {
                fs::remove(entry.path(), inner);
                continue;
            }
            if (!isCommitFileName(name)) continue;
            files_[fmt::format("{}/{}/{}", kFolder, monthName, name)].onDisk = true;
        }
    }
    adoptSingleFile();
}

CommitFiles::File& CommitFiles::ensure(const std::string& name) {
    File& file = files_[name];
    if (!file.loaded) read(name, file);
    return file;
}

void CommitFiles::read(const std::string& name, File& file) {
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
            decodeCommits(*result.bytes, file.items);
            return;
        } catch (const DecodeError& error) {
            problem = error.what();
        }
    }
    // A file that is there but cannot be read still holds what the user recorded: it
    // is set aside, never written over.
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

void CommitFiles::adoptSingleFile() {
    fs::path single = dir_ / kSingleFile;
    if (!readOnly_) AtomicFile::removeStaleTemporaries(single);
    AtomicFile::ReadResult result = AtomicFile::read(single);
    if (result.missing) return;
    std::map<std::string, CommitRecord> records;
    std::string problem = result.error;
    if (result.bytes) {
        try {
            decodeCommits(*result.bytes, records);
            problem.clear();
        } catch (const DecodeError& error) {
            problem = error.what();
        }
        result.bytes.reset();
    }
    if (!problem.empty()) {
        // Not split: half a history in the new files would pass for all of it.
        report_(kSingleFile, problem);
        if (readOnly_) return;
        std::string why;
        if (AtomicFile::quarantine(single, clock_.now(), &why)) {
            Log::store().error(
                fmt::format("{} unreadable — quarantined: {}", kSingleFile, problem));
        } else {
            Log::store().error(fmt::format("{} unreadable and could not be set aside ({}): {}",
                                           kSingleFile, why, problem));
        }
        return;
    }
    // A file written since (after an earlier split stopped half-way, the writer went
    // on) holds the newer record, so it wins.
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
        Log::store().error(fmt::format("{} kept until its commits are all in the month files: {}",
                                       kSingleFile, writeProblem));
        return;
    }
    std::error_code ec;
    fs::remove(single, ec);
    if (ec) {
        Log::store().error(fmt::format("{} split but not removed: {}", kSingleFile, ec.message()));
        return;
    }
    syncFolder(dir_);
    Log::store().info(fmt::format("{} split into the month files under {}/", kSingleFile, kFolder));
    trim();
}

std::vector<CommitRecord> CommitFiles::newestFirst(const std::optional<std::string>& repoID,
                                                   std::optional<size_t> limit) {
    std::string own = repoID ? "/" + ownName(*repoID) : "";
    std::vector<std::string> names;
    for (const auto& [name, file] : files_) {
        if (!repoID || name.ends_with(own)) names.push_back(name);
    }
    std::vector<const std::pair<const std::string, CommitRecord>*> found;
    // Newest month first; once a month brings the count to the limit, older ones
    // cannot hold a newer commit.
    for (size_t i = names.size(); i > 0;) {
        std::string month = monthOfName(names[i - 1]);
        for (; i > 0 && monthOfName(names[i - 1]) == month; --i) {
            for (const auto& entry : ensure(names[i - 1]).items) {
                if (!repoID || entry.second.repoID == *repoID) found.push_back(&entry);
            }
        }
        if (limit && found.size() >= *limit) break;
    }
    std::sort(found.begin(), found.end(), [](const auto* a, const auto* b) {
        if (a->second.committedAt != b->second.committedAt) {
            return a->second.committedAt > b->second.committedAt;
        }
        return a->first < b->first;
    });
    if (limit && found.size() > *limit) found.resize(*limit);
    std::vector<CommitRecord> result;
    result.reserve(found.size());
    for (const auto* entry : found) result.push_back(entry->second);
    return result;
}

std::vector<CommitRecord> CommitFiles::between(Date from, Date to) {
    if (to < from) return {};
    std::string first = fmt::format("{}/{}/", kFolder, monthOf(from));
    std::string last = monthOf(to);
    std::vector<const std::pair<const std::string, CommitRecord>*> found;
    for (auto it = files_.lower_bound(first); it != files_.end() && monthOfName(it->first) <= last;
         ++it) {
        for (const auto& entry : ensure(it->first).items) {
            Date at = entry.second.committedAt;
            if (at >= from && at <= to) found.push_back(&entry);
        }
    }
    std::sort(found.begin(), found.end(),
              [](const auto* a, const auto* b) { return a->first < b->first; });
    std::vector<CommitRecord> result;
    result.reserve(found.size());
    for (const auto* entry : found) result.push_back(entry->second);
    return result;
}

void CommitFiles::upsert(const std::vector<CommitRecord>& commits) {
    for (const CommitRecord& commit : commits) {
        File& file = ensure(fileFor(commit));
        // Every scan hands back the day's commits; only a new or changed one makes
        // its file worth writing again.
        auto [at, added] = file.items.try_emplace(commit.id(), commit);
        if (!added) {
            if (at->second == commit) continue;
            at->second = commit;
        }
        if (!readOnly_) file.dirty = true;
    }
}

void CommitFiles::purge(const std::string& repoID) {
    std::string own = "/" + ownName(repoID);
    for (auto& [name, entry] : files_) {
        if (!name.ends_with(own)) continue;
        File& file = ensure(name);
        if (std::erase_if(file.items,
                          [&](const auto& item) { return item.second.repoID == repoID; }) > 0 &&
            !readOnly_) {
            file.dirty = true;
        }
    }
}

bool CommitFiles::flush(std::string& problem) {
    bool written = writeChanged(problem);
    trim();
    return written;
}

bool CommitFiles::writeChanged(std::string& problem) {
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
                "{} was not written: it could not be read when needed and could not be set aside",
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
            syncFolder(month.parent_path());
            syncFolder(dir_);
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

void CommitFiles::trim() {
    if (keepAll_) return;
    std::string keepFrom = fmt::format("{}/{}/", kFolder, recentMonth());
    for (auto& [name, file] : files_) {
        if (name >= keepFrom) break;
        if (!file.loaded || file.dirty || file.unreadable || file.blocked) continue;
        file.items.clear();
        file.loaded = false;
    }
    std::erase_if(files_,
                  [](const auto& entry) { return !entry.second.onDisk && !entry.second.loaded; });
}

std::vector<std::string> CommitFiles::fileNames() const {
    std::vector<std::string> names;
    for (const auto& [name, file] : files_) {
        if (file.onDisk) names.push_back(name);
    }
    return names;
}

}  // namespace quorvane
