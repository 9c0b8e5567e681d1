#pragma once

#include <memory>
#include <string>
#include <vector>

#include "persistence/AppConfig.hpp"
#include "persistence/KeychainStore.hpp"
#include "platform/HttpTransport.hpp"
#include "reports/AIProvider.hpp"

namespace quorvane {

// The day's summary by a language model: which provider the settings choose, and
// the prompt it is sent. The prompt holds commit subjects, repository names,
// counts, status and the user's notes; never source code or diffs.
namespace AISummaryService {

inline constexpr const char* kSystemText = "You are a concise engineering daily-standup assistant.";
inline constexpr int kMaxTokens = 1024;
// What the screens say when a summary cannot be had, whatever the cause.
inline constexpr const char* kFailureMessage =
    "Could not generate the AI summary. Check the provider and API key in Settings.";

// One repository's day, as the prompt shows it.
struct PromptRepo {
    std::string name;
    std::vector<std::string> commits;  // subjects, in the order they are shown
    int filesChanged = 0;
    std::string status;
};

// The user's part of the request: a heading per repository with its commits,
// then the notes when they hold more than white space.
std::string dailyPrompt(const std::vector<PromptRepo>& repos, const std::string& notes,
                        bool includeFileCounts);

// The provider the settings choose; nothing when summaries are disabled or the
// Anthropic key is missing or empty in `keychain` (a locked store looks the same).
// The provider uses `transport`, which must outlive it.
std::unique_ptr<AIProvider> provider(const AIPrefs& prefs, KeychainStore& keychain,
                                     const HttpTransport& transport);

}  // namespace AISummaryService

}  // namespace quorvane
