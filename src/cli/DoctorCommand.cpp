#include <unistd.h>

#include <algorithm>
#include <ostream>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "cli/CommandSupport.hpp"
#include "cli/CommandTable.hpp"
#include "cli/Style.hpp"
#include "git/GitCommand.hpp"
#include "persistence/AtomicFile.hpp"
#include "persistence/CommitFiles.hpp"
#include "persistence/ConfigService.hpp"
#include "persistence/DataFolderLock.hpp"
#include "persistence/DayFiles.hpp"
#include "persistence/KeychainStore.hpp"

namespace quorvane::Commands {

namespace fs = std::filesystem;

int doctor(CommandContext& context) {
    bool healthy = true;
    std::vector<std::vector<std::string>> rows;

    std::error_code ec;
    auto perms = fs::status(context.dataDir, ec).permissions();
    bool writable = ::access(context.dataDir.c_str(), W_OK) == 0;
    std::optional<std::string> unsafe = PathHelpers::dataFolderProblem(context.dataDir);
    rows.push_back({"data folder", context.dataDir.string(),
                    unsafe     ? Style::paint(context, Tone::problem, "unsafe: " + *unsafe)
                    : writable ? Style::paint(context, Tone::good,
                                              fmt::format("ok (mode {:o})",
                                                          static_cast<unsigned>(perms) & 0777))
                               : Style::paint(context, Tone::problem, "not writable")});
    healthy = healthy && writable && !unsafe;

    ProcessRequest version;
    version.executable = std::string(GitCommand::kGitPath);
    version.arguments = {"--version"};
    version.timeout = 15;
    ShellResult git = context.runner.run(version);
    rows.push_back(
        {"git", std::string(GitCommand::kGitPath),
         git.succeeded()
             ? Style::paint(context, Tone::good, "ok (" + firstLine(git.stdOut) + ")")
             : Style::paint(context, Tone::problem, "not usable: " + firstLine(git.stdErr))});
    healthy = healthy && git.succeeded();

    rows.push_back({"secret store",
                    KeychainStore::chooseBackend(context.dataDir, context.clock)->description(),
                    ""});

    std::optional<pid_t> holder = DataFolderLock::currentHolder(context.dataDir);
    rows.push_back({"writer",
                    holder ? (*holder > 0 ? fmt::format("held by pid {}", *holder)
                                          : std::string("held by another process"))
                           : std::string("free"),
                    ""});

    AtomicFile::ReadResult file = AtomicFile::read(context.dataDir / "config.json");
    std::string configState = Style::paint(context, Tone::dim, "not written yet (defaults)");
    if (file.bytes) {
        try {
            AppConfig config = ConfigService::decode(*file.bytes);
            configState = Style::paint(
                context, Tone::good,
                fmt::format("ok ({}, {})",
                            plural(static_cast<int>(config.repositories.size()), "repository"),
                            plural(static_cast<int>(config.scanFolders.size()), "scan folder")));
        } catch (const DecodeError& error) {
            configState =
                Style::paint(context, Tone::problem, "unreadable: " + Text::visible(error.what()));
            healthy = false;
        }
    }
    rows.push_back({"config.json", configState, ""});

    std::vector<std::string> quarantined;
    auto setAside = [&](const fs::path& folder, const std::string& prefix) {
        for (const auto& entry : fs::directory_iterator(folder, ec)) {
            std::string name = entry.path().filename().string();
            if (name.find(".corrupt-") != std::string::npos) {
                quarantined.push_back(Text::visible(prefix + name));
            }
        }
    };
    setAside(context.dataDir, "");
    // A commit or day file is set aside beside the others of its month.
    for (const char* folder : {CommitFileKind::kFolder, DayFileKind::kFolder}) {
        for (const auto& month : fs::directory_iterator(context.dataDir / folder, ec)) {
            if (month.is_directory(ec) && !month.is_symlink(ec)) {
                setAside(month.path(),
                         fmt::format("{}/{}/", folder, month.path().filename().string()));
            }
        }
    }
    std::sort(quarantined.begin(), quarantined.end());
    rows.push_back({"set aside",
                    quarantined.empty()
                        ? Style::paint(context, Tone::good, "no unreadable files")
                        : Style::paint(context, Tone::attention,
                                       fmt::format("{}", fmt::join(quarantined, ", "))),
                    ""});
    // A diagnosis keeps every word: long values wrap rather than lose their ends,
    // and a verdict with its reasons goes below its row when the row has no room.
    using TextLayout::Shrink;
    printTable(context.out, rows, {context.columns, {Shrink::never, Shrink::wrap}, false, true});
    return healthy ? 0 : 1;
}

}  // namespace quorvane::Commands

namespace quorvane {

void declareDoctorCommand(CommandTable& table) {
    table.add("doctor",
              "Check the data folder, git, the secret store and the configuration\n"
              "Says which secret store is in use: the desktop's Secret Service, or the file\n"
              "secrets.json in the data folder when none answers. Exits 1 when something is "
              "wrong.",
              // It reports an unsafe data folder rather than refusing it.
              {.use = DataUse::reads, .run = Commands::doctor, .diagnoses = true});
}

}  // namespace quorvane
