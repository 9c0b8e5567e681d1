#include "reports/AISummaryService.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "reports/AnthropicProvider.hpp"
#include "reports/OllamaProvider.hpp"
#include "testing/FakeClock.hpp"
#include "testing/LoopbackHttpServer.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using AISummaryService::PromptRepo;
using ::testing::HasSubstr;

constexpr const char* kOpening =
    "Summarize my coding day from the following git activity.\n"
    "Be concise; group related work; surface what's left to push/finish.\n";

TEST(AISummaryServiceTest, ThePromptShowsEachRepositoryItsCommitsAndTheTrimmedNotes) {
    std::vector<PromptRepo> repos = {{"api", {"Add login", "Fix token refresh"}, 7, "2 unpushed"},
                                     {"docs", {}, 0, "clean"}};
    EXPECT_EQ(AISummaryService::dailyPrompt(repos, " \n\tShip the notes\nto QA \r\n", true),
              std::string(kOpening) +
                  "\n"
                  "## api — 2 unpushed, 7 files changed\n"
                  "- Add login\n"
                  "- Fix token refresh\n"
                  "\n"
                  "## docs — clean, 0 files changed\n"
                  "- (no commits)\n"
                  "\n"
                  "## Notes\n"
                  "Ship the notes\nto QA");

    // Without counts or notes, the last repository's empty line ends the prompt.
    EXPECT_EQ(AISummaryService::dailyPrompt({repos[1]}, "   ", false),
              std::string(kOpening) + "\n## docs — clean\n- (no commits)\n");
    EXPECT_EQ(AISummaryService::dailyPrompt({}, "\u00a0done\u2028", true),
              std::string(kOpening) + "\n## Notes\ndone");
}

// Each provider is called against a server: that shows the key, model and address
// the settings name are the ones used.
TEST(AISummaryServiceTest, TheSettingsChooseTheProviderAndAnthropicNeedsAStoredKey) {
    testing::TempDir dir;
    testing::FakeClock clock(Date(std::chrono::seconds(1795000000)));
    KeychainStore keychain(KeychainStore::kService,
                           std::make_unique<FileSecretBackend>(dir / "secrets.json", clock));
    testing::LoopbackHttpServer server;
    server.set("/v1/messages", {200, {}, R"({"content": [{"type": "text", "text": "A"}]})"});
    server.set("/api/chat", {200, {}, R"({"message": {"content": "O"}})"});
    CurlTransport transport;
    AIPrefs prefs;
    prefs.anthropicBaseURL = server.base();
    prefs.ollamaBaseURL = server.base();
    prefs.ollamaModel = "qwen2.5-coder";
    auto provider = [&] { return AISummaryService::provider(prefs, keychain, transport); };

    prefs.provider = AIPrefs::Provider::anthropic;
    EXPECT_EQ(provider(), nullptr);
    ASSERT_TRUE(keychain.set("", prefs.keychainRef));
    EXPECT_EQ(provider(), nullptr);
    ASSERT_TRUE(keychain.set("sk-ant-test-key", prefs.keychainRef));
    std::unique_ptr<AIProvider> anthropic = provider();
    ASSERT_NE(dynamic_cast<AnthropicProvider*>(anthropic.get()), nullptr);
    EXPECT_EQ(anthropic->summarize("s", "p", AISummaryService::kMaxTokens), "A");
    ASSERT_EQ(server.requests().size(), 1u);
    EXPECT_TRUE(server.requests()[0].find("\r\nx-api-key: sk-ant-test-key\r\n") !=
                std::string::npos);
    EXPECT_THAT(server.bodies()[0], HasSubstr(R"("model":"claude-opus-4-8")"));
    prefs.keychainRef = "com.example.elsewhere";
    EXPECT_EQ(provider(), nullptr);

    prefs.provider = AIPrefs::Provider::ollama;
    std::unique_ptr<AIProvider> ollama = provider();
    ASSERT_NE(dynamic_cast<OllamaProvider*>(ollama.get()), nullptr);
    EXPECT_EQ(ollama->summarize("s", "p", AISummaryService::kMaxTokens), "O");
    EXPECT_THAT(server.bodies().back(), HasSubstr(R"("model":"qwen2.5-coder")"));

    prefs.provider = AIPrefs::Provider::disabled;
    prefs.keychainRef = AIPrefs{}.keychainRef;
    EXPECT_EQ(provider(), nullptr);
}

}  // namespace
}  // namespace quorvane
