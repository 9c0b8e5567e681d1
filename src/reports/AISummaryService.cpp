#include "reports/AISummaryService.hpp"

#include <string_view>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "base/TextHelpers.hpp"
#include "reports/AnthropicProvider.hpp"
#include "reports/OllamaProvider.hpp"

namespace quorvane::AISummaryService {

namespace {

// Notes typed in a text box may start or end with white space that is not ASCII
// (a no-break space, a line or paragraph separator); it is trimmed like a blank.
constexpr std::string_view kWideBlanks[] = {"\u0085", "\u00a0", "\u1680", "\u2000", "\u2001",
                                            "\u2002", "\u2003", "\u2004", "\u2005", "\u2006",
                                            "\u2007", "\u2008", "\u2009", "\u200a", "\u2028",
                                            "\u2029", "\u202f", "\u205f", "\u3000"};

std::string_view trimmed(std::string_view text) {
    while (true) {
        std::string_view before = text;
        text = Text::trim(text);
        while (!text.empty() && (text.front() == '\v' || text.front() == '\f')) {
            text.remove_prefix(1);
        }
        while (!text.empty() && (text.back() == '\v' || text.back() == '\f')) {
            text.remove_suffix(1);
        }
        for (std::string_view blank : kWideBlanks) {
            if (text.starts_with(blank)) text.remove_prefix(blank.size());
            if (text.ends_with(blank)) text.remove_suffix(blank.size());
        }
        if (text.size() == before.size()) return text;
    }
}

}  // namespace

std::string dailyPrompt(const std::vector<PromptRepo>& repos, const std::string& notes,
                        bool includeFileCounts) {
    std::vector<std::string> lines = {
        "Summarize my coding day from the following git activity.",
        "Be concise; group related work; surface what's left to push/finish.", ""};
    for (const PromptRepo& repo : repos) {
        std::string heading = "## " + repo.name + " — " + repo.status;
        if (includeFileCounts) heading += fmt::format(", {} files changed", repo.filesChanged);
        lines.push_back(std::move(heading));
        for (const std::string& subject : repo.commits) lines.push_back("- " + subject);
        if (repo.commits.empty()) lines.emplace_back("- (no commits)");
        lines.emplace_back();
    }
    std::string_view note = trimmed(notes);
    if (!note.empty()) {
        lines.emplace_back("## Notes");
        lines.emplace_back(note);
    }
    return fmt::format("{}", fmt::join(lines, "\n"));
}

std::unique_ptr<AIProvider> provider(const AIPrefs& prefs, KeychainStore& keychain,
                                     const HttpTransport& transport) {
    switch (prefs.provider) {
        case AIPrefs::Provider::disabled: return nullptr;
        case AIPrefs::Provider::anthropic: {
            std::optional<std::string> key = keychain.string(prefs.keychainRef);
            if (!key || key->empty()) return nullptr;
            return std::make_unique<AnthropicProvider>(std::move(*key), prefs.anthropicModel,
                                                       transport, prefs.anthropicBaseURL);
        }
        case AIPrefs::Provider::ollama:
            return std::make_unique<OllamaProvider>(prefs.ollamaBaseURL, prefs.ollamaModel,
                                                    transport);
    }
    return nullptr;
}

}  // namespace quorvane::AISummaryService
