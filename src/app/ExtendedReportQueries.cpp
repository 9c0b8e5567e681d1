#include "app/ExtendedReportQueries.hpp"

#include <algorithm>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "app/AlignmentQueries.hpp"
#include "app/Queries.hpp"
#include "github/RepoStanding.hpp"

namespace quorvane::Queries {

namespace {

// A commit's subject: its body may say more than the person means to send anywhere.
std::string subjectOf(const std::string& message) {
    return message.substr(0, message.find_first_of("\r\n"));
}

}  // namespace

V2DailyReport v2DailyReport(const Store& store, const AppConfig& config, Date now, Date day) {
    V2DailyReport report;
    report.base = dailyReport(store, config, now, day).report;
    report.alignment = alignment(store, config, day);

    // A repository tracked since the last sync has no stored state yet; the local
    // scan still says how it stands.
    std::map<std::string, V2RepoLine> lineByRepo;
    for (const AlignmentGroups& groups :
         {gitAlignmentGroupsDerived(store, config), gitAlignmentGroups(store, config)}) {
        for (const auto& [status, lines] : groups) {
            for (const V2RepoLine& line : lines) lineByRepo[line.repoID] = line;
        }
    }
    using Standing = RepoStanding::Standing;
    for (const RepoConfig& repo : config.repositories) {
        auto found = lineByRepo.find(repo.id);
        if (!repo.trackingEnabled || found == lineByRepo.end()) continue;
        report.perRepo.push_back(found->second);
        // The counts at the head are those of the lines below, word for word.
        Standing standing = found->second.standing;
        if (standing == Standing::needsPush) ++report.alignment.needsPush;
        if (standing == Standing::needsPull) ++report.alignment.needsPull;
        if (standing == Standing::noUpstream) ++report.alignment.noUpstream;
    }
    return report;
}

std::vector<AISummaryService::PromptRepo> aiPromptRepos(const Store& store,
                                                        const AppConfig& config,
                                                        const DailyReport& report) {
    const Identity identity = Queries::identity(store, config);
    std::vector<AISummaryService::PromptRepo> repos;
    for (const RepoTodayLine& line : report.summary.lines) {
        AISummaryService::PromptRepo repo;
        repo.name = line.name;
        repo.filesChanged = line.files.total();
        std::vector<std::string> words;
        for (const StatusWord& word : RepoStanding::describe(line.statuses, nullptr, nullptr).words)
            words.push_back(word.text);
        repo.status = fmt::format("{}", fmt::join(words, ", "));
        // The store keeps a repository's commits newest first; the day reads in order.
        std::vector<CommitRecord> commits = store.commits(line.repoID);
        for (auto commit = commits.rbegin(); commit != commits.rend(); ++commit) {
            if (DateHelpers::dateKey(commit->committedAt) == report.dateKey &&
                identity.counts(*commit)) {
                repo.commits.push_back(subjectOf(commit->message));
            }
        }
        repos.push_back(std::move(repo));
    }
    return repos;
}

std::string aiPromptNotes(const DailyReport& report) {
    if (!report.journal) return "";
    std::vector<std::string> parts;
    auto add = [&parts](const char* label, const std::optional<std::string>& text) {
        if (text && !text->empty()) parts.push_back(label + *text);
    };
    add("", report.journal->manualNotes);
    add("Blockers: ", report.journal->blockers);
    add("Tomorrow: ", report.journal->tomorrowNotes);
    return fmt::format("{}", fmt::join(parts, "\n"));
}

std::string generateAISummary(const Store& store, const AppConfig& config,
                              const DailyReport& report, const AIProvider& provider) {
    std::string prompt = AISummaryService::dailyPrompt(
        aiPromptRepos(store, config, report), aiPromptNotes(report), config.ai.includeDiffStat);
    return provider.summarize(AISummaryService::kSystemText, prompt, AISummaryService::kMaxTokens);
}

}  // namespace quorvane::Queries
