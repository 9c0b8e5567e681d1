// The agent socket end to end: raw lines against the real daemon, and the whole
// propose, approve, apply loop with the person's review commands.
#include <sys/socket.h>
#include <unistd.h>

#include <fstream>
#include <latch>
#include <sstream>
#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "app/AppEnvironment.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "cli/CommandLine.hpp"
#include "persistence/ConfigService.hpp"
#include "platform/HttpTransport.hpp"
#include "platform/Shell.hpp"
#include "testing/BackgroundProcess.hpp"
#include "testing/FakeClock.hpp"
#include "testing/LineClient.hpp"
#include "testing/NotificationServer.hpp"
#include "testing/RepoConfigs.hpp"
#include "testing/ScopedEnvironment.hpp"
#include "testing/TempDir.hpp"
#include "testing/TestRepo.hpp"
#include "tests/CliRunner.hpp"
#include "web/DashboardAddress.hpp"

namespace quorvane {
namespace {

using namespace std::chrono_literals;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using testing::LineClient;

std::string fileText(const std::filesystem::path& path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

std::string errorCode(const Json& reply) {
    return reply.is_object() && reply.contains("error") ? reply["error"].value("code", "") : "";
}

std::string errorMessage(const Json& reply) {
    return reply.is_object() && reply.contains("error") ? reply["error"].value("message", "") : "";
}

Json parsed(const std::optional<std::string>& line) {
    return line ? Json::parse(*line, nullptr, false) : Json();
}

// The proposal id in a "confirmation_required" hint.
std::string proposalIn(const Json& reply) {
    const std::string hint = errorMessage(reply);
    const std::string prefix = "(proposal ";
    size_t at = hint.find(prefix);
    return at == std::string::npos ? "" : hint.substr(at + prefix.size(), 36);
}

class AgentSocketTest : public ::testing::Test {
protected:
    std::filesystem::path dataDir() const { return dir_ / "data"; }
    std::filesystem::path agentSocket() const { return dataDir() / "quorvane-agent.sock"; }

    void writeConfig(const std::function<void(AppConfig&)>& change) {
        SystemClock clock;
        ConfigService service(dataDir() / "config.json", clock);
        AppConfig config = service.load();
        change(config);
        ASSERT_TRUE(service.save(config).ok());
    }

    std::unique_ptr<testing::BackgroundProcess> startDaemon(const std::string& logName) {
        auto daemon = std::make_unique<testing::BackgroundProcess>(
            QUORVANE_BINARY, std::vector<std::string>{"daemon", "--data-dir", dataDir().string()},
            dir_ / logName);
        EXPECT_TRUE(testing::eventually(60s, [&] {
            return daemon->output().find("quorvane daemon: ready") != std::string::npos;
        })) << daemon->output();
        return daemon;
    }

    // A desktop without a desktop environment: xdg-open hands the address to
    // $BROWSER, which writes it down, and finds no browser of the machine's own.
    struct CapturedBrowser {
        explicit CapturedBrowser(const std::filesystem::path& dir)
            : script(dir / "browser"),
              display("DISPLAY", ":99"),
              wayland("WAYLAND_DISPLAY", std::nullopt),
              browser("BROWSER", script.string()),
              desktop("XDG_CURRENT_DESKTOP", std::nullopt),
              dataDirs("XDG_DATA_DIRS", (dir / "none").string()),
              configDirs("XDG_CONFIG_DIRS", (dir / "none").string()) {
            testing::writeFile(script, "#!/bin/sh\nprintf '%s' \"$1\" > \"$0.opened\"\n");
            std::filesystem::permissions(script, std::filesystem::perms::owner_all);
        }

        // Waits for the browser to be given an address, then follows it: it must log
        // in once, on the daemon's dashboard. Where it leads, or "" on any failure.
        // The address itself is a login and is never printed.
        std::string loginTarget(const std::filesystem::path& dataDir) {
            const std::filesystem::path opened = script.string() + ".opened";
            if (!testing::eventually(30s, [&] { return fileText(opened).size() > 0; })) return "";
            const std::string address = fileText(opened);
            std::filesystem::remove(opened);
            std::optional<int> port = DashboardAddress::find(dataDir).port;
            if (!port) return "";
            const std::string origin = "http://127.0.0.1:" + std::to_string(*port) + "/";
            if (address.rfind(origin + "login?", 0) != 0) return "";
            CurlTransport http;
            HttpResponse login = http.get({address, {}, 10, nullptr});
            if (login.status != 303) return "";
            EXPECT_EQ(http.get({address, {}, 10, nullptr}).status / 100, 4) << "it is spent";
            return login.header("Location").value_or("");
        }

        std::filesystem::path script;
        testing::ScopedEnvironment display, wayland, browser, desktop, dataDirs, configDirs;
    };

    testing::TempDir dir_;
};

TEST_F(AgentSocketTest, TheDaemonsSocketAnswersRawLinesAndEveryRefusal) {
    std::filesystem::create_directories(dir_ / "code");
    writeConfig([&](AppConfig& config) { config.agent.allowedRoots = {(dir_ / "code").string()}; });
    // The socket file itself (a stale one replaced, its mode, its path limit) is the
    // socket server's; here, what the daemon adds to it.
    auto daemon = startDaemon("daemon.log");
    // The line protocol itself is the socket server's; here, that the daemon's
    // socket reaches the real service, which refuses and proposes as it should.
    LineClient agent(agentSocket());
    ASSERT_TRUE(agent.connected());
    EXPECT_TRUE(agent.call("get_settings", Json::object())["result"].contains("scanFolders"));
    Json outside = agent.call("read_git_status", {{"path", "/tmp/../etc"}});
    EXPECT_EQ(errorCode(outside), "not_in_allowed_root");
    EXPECT_EQ(outside["error"]["hint"], errorMessage(outside));
    Json proposed = agent.call("set_daily_review_time", {{"time", "08:00"}});
    EXPECT_EQ(errorCode(proposed), "confirmation_required");
    EXPECT_EQ(proposalIn(proposed).size(), 36u);

    // The level and the switch are followed as they change, through the control socket.
    ShellResult lowered =
        testing::runQuorvane(dataDir(), {"config", "set", "agent.permissionLevel", "readOnly"});
    ASSERT_EQ(lowered.exitCode, 0) << lowered.stdErr;
    Json denied = agent.call("set_daily_review_time", {{"time", "08:00"}});
    EXPECT_EQ(errorCode(denied), "permission_denied");
    EXPECT_EQ(errorMessage(denied), "Raise permission in Quorvane → MCP/Settings");
    ASSERT_EQ(testing::runQuorvane(dataDir(), {"config", "set", "agent.enabled", "false"}).exitCode,
              0);
    EXPECT_TRUE(agent.closedQuietly()) << "the socket closes with the agent switched off";
    EXPECT_TRUE(testing::eventually(30s, [&] { return !std::filesystem::exists(agentSocket()); }));
    ASSERT_EQ(testing::runQuorvane(dataDir(), {"config", "set", "agent.enabled", "true"}).exitCode,
              0);
    ASSERT_TRUE(testing::eventually(30s, [&] { return LineClient(agentSocket()).connected(); }));
    ShellResult status = testing::runQuorvane(dataDir(), {"agent", "status", "--json"});
    ASSERT_EQ(status.exitCode, 0) << status.stdErr;
    Json state = Json::parse(status.stdOut);
    EXPECT_EQ(state["running"], true);
    EXPECT_EQ(state["toolCount"], 60);
    EXPECT_EQ(state["permissionLevel"], "readOnly");
    EXPECT_EQ(state["socketPath"], agentSocket().string());

    // The daemon follows the setting to a new path, and says why one too long to bind
    // is refused; where the limit lies is MCPSocketServerTest's.
    const std::filesystem::path shortDir = "/tmp/qv-agent-" + std::to_string(::getpid());
    std::filesystem::create_directories(shortDir);
    const std::string moved = (shortDir / "agent.sock").string(),
                      tooLong = (shortDir / std::string(120, 'k')).string();
    ASSERT_EQ(
        testing::runQuorvane(dataDir(), {"config", "set", "agent.socketPath", moved}).exitCode, 0);
    EXPECT_TRUE(testing::eventually(30s, [&] { return LineClient(moved).connected(); }));
    EXPECT_FALSE(std::filesystem::exists(agentSocket())) << "the old socket is gone";
    daemon->signal(SIGTERM);
    ASSERT_EQ(daemon->waitForExit(60s), 0) << daemon->output();
    EXPECT_FALSE(std::filesystem::exists(moved));

    writeConfig([&](AppConfig& config) { config.agent.socketPath = tooLong; });
    auto second = startDaemon("second.log");
    Json stopped =
        Json::parse(testing::runQuorvane(dataDir(), {"agent", "status", "--json"}).stdOut);
    EXPECT_EQ(stopped["running"], false);
    EXPECT_EQ(stopped["problem"], "its path is longer than 103 bytes");
    // A folder in the socket's place, which the daemon follows the setting to and
    // cannot take: the status says the daemon runs, and why agents cannot reach it.
    const std::filesystem::path blocked = shortDir / "blocked";
    std::filesystem::create_directories(blocked);
    ASSERT_EQ(
        testing::runQuorvane(dataDir(), {"config", "set", "agent.socketPath", blocked.string()})
            .exitCode,
        0);
    ShellResult blockedStatus = testing::runQuorvane(dataDir(), {"agent", "status"});
    EXPECT_EQ(blockedStatus.exitCode, 0) << blockedStatus.stdErr;
    EXPECT_THAT(blockedStatus.stdOut,
                HasSubstr("not running: the daemon runs, but its agent socket could not be "
                          "opened at " +
                          blocked.string() + ": a folder is in its place"));
    EXPECT_TRUE(std::filesystem::is_directory(blocked));
    second->signal(SIGTERM);
    EXPECT_EQ(second->waitForExit(60s), 0);
    std::filesystem::remove_all(shortDir);
}

TEST_F(AgentSocketTest, AProposalIsShownWithAButtonThatOpensAgentReviewUntilItIsDecided) {
    testing::NotificationServer server;
    ASSERT_EQ(server.problem(), "");
    CapturedBrowser browser(dir_.path());
    auto daemon = startDaemon("daemon.log");
    LineClient agent(agentSocket());
    ASSERT_TRUE(agent.connected());

    Json one = agent.call(
        R"({"tool":"propose_settings_change","args":{"changes":[{"field":"dailyReviewTime","value":"20:15"}]}})");
    const std::string single = one["result"].value("proposalId", "");
    ASSERT_EQ(single.size(), 36u) << one.dump();
    // The call answers once the notification is posted.
    std::vector<testing::NotificationServer::Notification> shown = server.notifications();
    ASSERT_EQ(shown.size(), 1u) << daemon->output();
    EXPECT_EQ(shown[0].summary, "Quorvane \u2014 Agent Review");
    EXPECT_EQ(shown[0].body, "Apply set_daily_review_time");
    EXPECT_THAT(shown[0].actions, ElementsAre("review", "Review"));

    ASSERT_TRUE(server.invokeAction(shown[0].id, "review"));
    EXPECT_EQ(browser.loginTarget(dataDir()), "/review") << daemon->output();

    // Several proposals of one call are one notification, taken down once the last
    // of them is decided, wherever that is.
    Json two = agent.call("propose_settings_change",
                          {{"changes",
                            {{{"field", "dailyReviewTime"}, {"value", "21:00"}},
                             {{"field", "dailyReviewTime"}, {"value", "22:00"}}}}});
    ASSERT_EQ(two["result"]["proposalIds"].size(), 2u) << two.dump();
    shown = server.notifications();
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_EQ(shown[1].body, "2 proposals wait for your review");
    EXPECT_EQ(shown[1].replacesID, 0u);

    ASSERT_EQ(testing::runQuorvane(dataDir(), {"proposals", "reject", single}).exitCode, 0);
    EXPECT_THAT(server.closed(), ElementsAre(shown[0].id));
    ASSERT_EQ(testing::runQuorvane(dataDir(), {"proposals", "reject",
                                               two["result"]["proposalIds"][0].get<std::string>()})
                  .exitCode,
              0);
    EXPECT_THAT(server.closed(), ElementsAre(shown[0].id)) << "one of the two still waits";
    const std::string last = two["result"]["proposalIds"][1].get<std::string>();
    ASSERT_EQ(testing::runQuorvane(dataDir(), {"proposals", "reject", last}).exitCode, 0);
    EXPECT_THAT(server.closed(), ElementsAre(shown[0].id, shown[1].id));
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->waitForExit(60s), 0) << daemon->output();
}

TEST_F(AgentSocketTest, AReminderIsShownWithButtonsThatOpenItsPageAndSnoozeItForAnHour) {
    testing::NotificationServer server;
    ASSERT_EQ(server.problem(), "");
    CapturedBrowser browser(dir_.path());
    testing::TestRepo origin(dir_ / "origin.git", testing::TestRepo::Kind::bare);
    testing::TestRepo seed = testing::TestRepo::cloneOf(origin, dir_ / "seed");
    seed.commitFile("a.txt", "a", "first");
    seed.git({"push", "-q", "origin", "main"});
    testing::TestRepo work = testing::TestRepo::cloneOf(origin, dir_ / "api");
    work.commitFile("b.txt", "b", "not pushed yet");
    writeConfig(
        [&](AppConfig& config) { config.repositories = {testing::repoAt(work.path().string())}; });
    auto daemon = startDaemon("daemon.log");
    std::vector<testing::NotificationServer::Notification> shown = server.waitFor(1, 30s);
    ASSERT_EQ(shown.size(), 1u) << daemon->output();
    EXPECT_EQ(shown[0].summary, "Quorvane \u2014 Push pending");
    EXPECT_THAT(shown[0].actions, ElementsAre("open", "Open", "snooze", "Snooze 1 h"));
    auto reminders = [&] {
        return Json::parse(testing::runQuorvane(dataDir(), {"reminders", "--json"}).stdOut);
    };
    ASSERT_EQ(reminders().size(), 1u);

    // A button the daemon never offered, and a notification it never sent, do
    // nothing; the buttons are heard in order, so once the page has opened they
    // have been passed over.
    ASSERT_TRUE(server.invokeAction(shown[0].id, "review-all"));
    ASSERT_TRUE(server.invokeAction(shown[0].id + 100, "snooze"));
    ASSERT_TRUE(server.invokeAction(shown[0].id, "open"));
    EXPECT_EQ(browser.loginTarget(dataDir()), "/attention") << daemon->output();
    EXPECT_FALSE(reminders()[0].contains("snoozedUntil"));
    EXPECT_TRUE(server.closed().empty());

    ASSERT_TRUE(server.invokeAction(shown[0].id, "snooze"));
    ASSERT_TRUE(testing::eventually(30s, [&] { return reminders()[0].contains("snoozedUntil"); }))
        << daemon->output();
    Date until = *DateHelpers::parseISO(reminders()[0]["snoozedUntil"].get<std::string>());
    EXPECT_GT(until, SystemClock().now() + 55min);
    EXPECT_THAT(server.closed(), ElementsAre(shown[0].id));
    EXPECT_THAT(testing::runQuorvane(dataDir(), {"reminders"}).stdOut,
                HasSubstr("(snoozed until "));
    daemon->signal(SIGTERM);
    EXPECT_EQ(daemon->waitForExit(60s), 0) << daemon->output();
}

// The propose, approve, apply loop with the person's commands, beside the
// service itself so the test can read its store. How a token is bound and spent
// is pinned in AgentServiceTest; here, that the person's commands take part.
class AgentLoopTest : public AgentSocketTest {
protected:
    void SetUp() override {
        writeConfig([&](AppConfig& config) {
            config.agent.allowedRoots = {dir_.path().string()};
            config.agent.permissionLevel = AgentPermissionLevel::applySettings;
        });
        env_ = std::make_unique<AppEnvironment>(dataDir(), clock_, shell_);
        env_->bootstrap();
        ASSERT_TRUE(env_->isAgentServerRunning());
    }

    // A review command as the daemon runs it for the person's client.
    int review(std::vector<std::string> words, std::string& output) {
        ControlProtocol::Request request;
        request.arguments = std::move(words);
        request.workingDirectory = dir_.path().string();
        std::ostringstream out, err;
        int status = runForwardedCommand(request, out, err, shell_, clock_, *env_, dataDir());
        output = out.str() + err.str();
        return status;
    }

    // Approves through the review command; the token it printed.
    std::string approve(const std::string& id) {
        std::string output;
        EXPECT_EQ(review({"proposals", "approve", id.substr(0, 8)}, output), 0);
        const std::string label = "token:    ";
        size_t at = output.find(label);
        return at == std::string::npos ? "" : output.substr(at + label.size(), 36);
    }

    // A read-only command, as typed beside the running service.
    std::string read(std::vector<std::string> words) {
        words.insert(words.end(), {"--data-dir", dataDir().string()});
        std::vector<const char*> argv = {"quorvane"};
        for (const std::string& word : words) argv.push_back(word.c_str());
        std::ostringstream out, err;
        EXPECT_EQ(runCommandLine(static_cast<int>(argv.size()), argv.data(), out, err, shell_,
                                 clock_, TerminalStyle{false, 200}),
                  0)
            << err.str();
        return out.str();
    }

    testing::FakeClock clock_{*DateHelpers::parseISO("2026-11-25T10:00:00Z")};
    Shell shell_;
    std::unique_ptr<AppEnvironment> env_;
};

TEST_F(AgentLoopTest, AProposalIsApprovedByThePersonAndAppliedOnce) {
    LineClient agent(agentSocket());
    const Json args = {{"time", "18:00"}};
    const std::string id = proposalIn(agent.call("set_daily_review_time", args));
    ASSERT_EQ(id.size(), 36u);
    EXPECT_EQ(proposalIn(agent.call("set_daily_review_time", args)), id) << "one proposal";

    EXPECT_THAT(read({"proposals"}), HasSubstr("Apply set_daily_review_time"));
    EXPECT_THAT(read({"proposals", "show", id.substr(0, 6)}),
                HasSubstr("\n\nChange:\n  dailyReviewTime: 21:30 → 18:00\n\n  time=18:00\n"));
    // A folder to scan is looked for on disk before the person decides.
    std::filesystem::create_directories(dir_ / "empty");
    const std::string folders = proposalIn(
        agent.call("update_scan_folders", {{"folders", {(dir_ / "empty").string(), "~/nowhere"}}}));
    EXPECT_THAT(
        read({"proposals", "show", folders}),
        HasSubstr("Change:\n  scan folder: - → " + (dir_ / "empty").string() +
                  "\n  scan folder: - → ~/nowhere\n  warning: " + (dir_ / "empty").string() +
                  " holds no repository\n  warning: ~/nowhere does not exist\n"));
    const std::string token = approve(id);
    ASSERT_EQ(token.size(), 36u);
    EXPECT_EQ(env_->store().auditEntries(1).at(0).tool, "agent_review.confirm");

    // The token the person's approval printed is the one the socket takes.
    Json withToken = args;
    withToken["confirmationToken"] = token;
    Json applied = agent.call("set_daily_review_time", withToken);
    EXPECT_EQ(applied["ok"], true) << errorMessage(applied);
    EXPECT_EQ(ConfigService(dataDir() / "config.json", clock_).load().dailyReviewTime, "18:00");

    // A rejected proposal's token is void, and the agent's next try asks anew.
    const std::string rejectedID =
        proposalIn(agent.call("set_daily_review_time", {{"time", "06:00"}}));
    std::string output;
    EXPECT_EQ(review({"proposals", "reject", rejectedID}, output), 0) << output;
    EXPECT_EQ(review({"proposals", "approve", rejectedID}, output), 1);
    EXPECT_THAT(output, HasSubstr("only a pending proposal can be approved"));
    EXPECT_NE(proposalIn(agent.call("set_daily_review_time", {{"time", "06:00"}})), rejectedID);

    // Neither the log nor what the person reads of it holds a token.
    const std::string audit = fileText(dataDir() / "agent_audit.json") + read({"audit"}) +
                              read({"audit", "--json"}) + read({"proposals", "--all", "--json"});
    EXPECT_EQ(audit.find(token), std::string::npos) << "a token was found in the audit";
    EXPECT_THAT(read({"audit"}), HasSubstr("agent_review.confirm"));
}

TEST_F(AgentLoopTest, AnAgentsArgumentsAreReviewedWithTheirControlsShownNotObeyed) {
    LineClient agent(agentSocket());
    // Erases the line above and draws over it: the Arguments line the person reads.
    const std::string folder = "/srv/clones\x1b[2K\r\x1b[1A";
    const std::string id = proposalIn(agent.call("set_default_clone_folder", {{"path", folder}}));
    ASSERT_EQ(id.size(), 36u);
    const std::string repoId =
        "/srv/\xe2\x80\xae"
        "cod\xc2\x9b"
        "2J";
    const std::string ignored =
        proposalIn(agent.call("mark_repository_ignored", {{"repoId", repoId}}));
    ASSERT_EQ(ignored.size(), 36u);

    const std::string shown = read({"proposals", "show", id});
    EXPECT_THAT(shown,
                HasSubstr("  Arguments: {\"path\":\"/srv/clones\\u001b[2K\\r\\u001b[1A\"}\n"));
    EXPECT_THAT(shown, HasSubstr(R"(path=/srv/clones\x1b[2K\x0d\x1b[1A)"));
    const std::string other = read({"proposals", "show", ignored});
    EXPECT_THAT(other, HasSubstr(R"(  Arguments: {"repoId":"/srv/\u202ecod\u009b2J"})"));
    EXPECT_THAT(other, HasSubstr(R"(Ignore repository /srv/\u202ecod\u009b2J)"));
    const std::string listed = read({"proposals"});
    EXPECT_THAT(listed, HasSubstr(R"(Ignore repository /srv/\u202ecod\u009b2J)"));
    const std::string audit = read({"audit"});
    for (const std::string& output : {shown, other, listed, audit}) {
        for (const std::string raw : {"\x1b", "\r", "\xe2\x80\xae", "\xc2\x9b"}) {
            EXPECT_EQ(output.find(raw), std::string::npos)
                << Text::visible(output, Text::Lines::many);
        }
    }
}

TEST_F(AgentLoopTest, AGitProposalShowsTheCommandWhereItConnectsAndWhatTheRepositoryRuns) {
    testing::TestRepo repo(PathHelpers::homeDirectory() / "code/api");
    repo.commitFile("a.txt", "a", "first");
    repo.git({"remote", "add", "origin", "https://tok3n@github.com/me/api.git"});
    repo.git({"config", "core.sshCommand", "/opt/tools/ssh -i key"});
    const std::string path = repo.path().string();
    ASSERT_TRUE(env_->applyConfigChange([&](AppConfig& config) {
        config.agent.permissionLevel = AgentPermissionLevel::safeGit;
        config.repositories.push_back(testing::repoAt(path));
    }));
    LineClient agent(agentSocket());
    const std::string id =
        proposalIn(agent.call("git_push", {{"repoId", path}, {"branch", "main"}}));
    ASSERT_EQ(id.size(), 36u);

    const std::string shown = read({"proposals", "show", id});
    EXPECT_THAT(shown, HasSubstr("\nRuns: /usr/bin/git -C ~/code/api push --end-of-options "
                                 "origin main\n  Remote:"));
    EXPECT_THAT(shown, ::testing::Not(HasSubstr("Command:"))) << "the command is said once";
    EXPECT_THAT(shown, HasSubstr("  Remote:    origin https://github.com/me/api.git\n"));
    EXPECT_THAT(shown, HasSubstr("core.sshcommand=/opt/tools/ssh -i key"));
    const std::string listed = read({"proposals"});
    EXPECT_THAT(listed, HasSubstr("https://github.com/me/api.git"));
    std::string approved;
    EXPECT_EQ(review({"proposals", "approve", id.substr(0, 8)}, approved), 0) << approved;
    // Said again once approved, on the daemon's narrower default width.
    EXPECT_THAT(approved, HasSubstr("  Command:   /usr/bin/git -C " + path));
    EXPECT_THAT(approved, HasSubstr("  Remote:    origin https://github.com/me/api.git\n"));
    for (const std::string& output : {shown, listed, approved}) {
        EXPECT_THAT(output, ::testing::Not(HasSubstr("tok3n")));
    }
}

TEST_F(AgentLoopTest, OneTokenPresentedByAHundredConnectionsAtOnceSucceedsOnce) {
    LineClient agent(agentSocket());
    const std::string id = proposalIn(agent.call("set_daily_review_time", {{"time", "17:45"}}));
    const std::string token = approve(id);
    ASSERT_EQ(token.size(), 36u);

    constexpr int kClients = 100;
    std::vector<std::unique_ptr<LineClient>> clients;
    for (int i = 0; i < kClients; ++i) {
        clients.push_back(std::make_unique<LineClient>(agentSocket()));
        ASSERT_TRUE(clients.back()->connected());
    }
    const std::string line = Json{{"tool", "set_daily_review_time"},
                                  {"args", {{"time", "17:45"}, {"confirmationToken", token}}}}
                                 .dump() +
                             "\n";
    std::latch start(kClients);
    std::vector<Json> replies(kClients);
    std::vector<std::thread> threads;
    for (int i = 0; i < kClients; ++i) {
        threads.emplace_back([&, i] {
            start.arrive_and_wait();
            if (clients[i]->send(line)) replies[i] = parsed(clients[i]->line());
        });
    }
    for (std::thread& thread : threads) thread.join();
    int succeeded = 0, invalid = 0;
    for (const Json& reply : replies) {
        if (reply.is_object() && reply["ok"] == true) ++succeeded;
        if (errorCode(reply) == "invalid_token") ++invalid;
    }
    EXPECT_EQ(succeeded, 1);
    EXPECT_EQ(invalid, kClients - 1);
    EXPECT_EQ(fileText(dataDir() / "agent_audit.json").find(token), std::string::npos);
}

}  // namespace
}  // namespace quorvane
