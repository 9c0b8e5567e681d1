// Every file of the data folder as anything running as the person may leave it.
// The store reads it beside a running writer (never moving it aside), and every
// question it answers is asked, so each collection's records are decoded and used.
#include <fstream>

#include "FuzzSupport.hpp"
#include "base/DateHelpers.hpp"
#include "persistence/MonthFiles.hpp"
#include "persistence/Store.hpp"

namespace quorvane::fuzz {
namespace {

// The files the first byte picks from: the collections, the single commit and
// day files of the older layout, and a month file of each.
std::vector<std::string> storeFileNames() {
    std::vector<std::string> names = Store::loadOrder();
    names.insert(names.end(), {"commits.json", "day_activity.json",
                               "commits/2026-11/" + MonthFileNames::ownName("repo") + ".json",
                               "day_activity/2026-11/" + MonthFileNames::ownName("repo") + ".json"});
    return names;
}

void readBack(const std::string& name, std::string_view bytes) {
    static const ScratchFolder scratch;
    static const FixedClock clock(fixedNoon());
    const std::filesystem::path data = scratch.path() / "data";
    std::filesystem::remove_all(data);
    std::filesystem::create_directories((data / name).parent_path());
    std::ofstream(data / name, std::ios::binary).write(bytes.data(), std::streamsize(bytes.size()));

    Store store(data, clock, Store::Access::readOnly);
    store.load();
    const Date from = *DateHelpers::parseISO("2000-01-01T00:00:00Z");
    const Date to = *DateHelpers::parseISO("2100-01-01T00:00:00Z");
    for (const RepoSnapshot& snapshot : store.snapshots()) {
        (void)store.openSession(snapshot.id);
        (void)store.metadata(snapshot.id);
    }
    (void)store.commits(std::nullopt);
    (void)store.commitsBetween(from, to);
    (void)store.sessions(std::nullopt, std::nullopt);
    (void)store.dayActivities("2000-01-01", "2100-01-01");
    (void)store.journals();
    (void)store.reminders(false);
    (void)store.accounts();
    (void)store.remoteRepos(std::nullopt);
    (void)store.mappings();
    (void)store.branches(std::nullopt);
    (void)store.syncStates();
    (void)store.health(std::nullopt);
    (void)store.proposals(std::nullopt);
    (void)store.auditEntries();
    (void)store.unreadableFiles();
}

}  // namespace
}  // namespace quorvane::fuzz

// The first byte picks the file; the rest is its content.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const std::vector<std::string> names = quorvane::fuzz::storeFileNames();
    quorvane::fuzz::Input input(data, size);
    const std::string& name = names[input.byte() % names.size()];
    quorvane::fuzz::readBack(name, input.rest());
    return 0;
}
