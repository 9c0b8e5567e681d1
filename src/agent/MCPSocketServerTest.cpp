#include "agent/MCPSocketServer.hpp"

#include <fcntl.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <condition_variable>
#include <fstream>
#include <iterator>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "platform/UnixSocket.hpp"
#include "testing/LineClient.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using ::testing::HasSubstr;

// Only a server that has stopped answering ever uses it up.
constexpr auto kPatience = 60s;

// Records each call. "echo" answers with its arguments, "block" waits until the
// test releases it, any other tool answers what the test set.
class RecordingDispatcher final : public ToolDispatcher {
public:
    struct Call {
        std::string tool;
        std::string argsJSON;
    };

    AgentResult handle(const std::string& tool, const std::string& argsJSON) override {
        std::unique_lock lock(mutex_);
        calls_.push_back({tool, argsJSON});
        changed_.notify_all();
        if (tool == "echo") return AgentResult::success(argsJSON);
        if (tool == "block") {
            changed_.wait(lock, [this] { return released_; });
            ++finished_;
            return AgentResult::success(R"({"unblocked":true})");
        }
        return answer_;
    }

    void answer(AgentResult result) {
        std::lock_guard lock(mutex_);
        answer_ = std::move(result);
    }
    void release() {
        std::lock_guard lock(mutex_);
        released_ = true;
        changed_.notify_all();
    }
    size_t finishedBlocks() const {
        std::lock_guard lock(mutex_);
        return finished_;
    }
    std::vector<Call> calls() const {
        std::lock_guard lock(mutex_);
        return calls_;
    }
    bool waitForCalls(size_t count) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience, [&] { return calls_.size() >= count; });
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<Call> calls_;
    AgentResult answer_ = AgentResult::success("{}");
    bool released_ = false;
    size_t finished_ = 0;
};

using Client = testing::LineClient;

void expectRefusal(const json& reply, const std::string& message) {
    EXPECT_EQ(reply.at("ok"), false) << reply;
    EXPECT_EQ(reply.at("error"), json({{"code", "invalid_params"}, {"message", message}})) << reply;
    EXPECT_FALSE(reply.contains("result")) << reply;
}

// Takes what is written to standard error while it exists, and writes it on to
// the real standard error at the end, so nothing else printed there is lost.
class StderrCapture {
public:
    StderrCapture() {
        int fds[2];
        if (::pipe2(fds, O_CLOEXEC) != 0) throw std::runtime_error("pipe2 failed");
        Fd readEnd(fds[0]);
        Fd writeEnd(fds[1]);
        saved_ = Fd(::fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 0));
        ::dup2(writeEnd.get(), STDERR_FILENO);
        // Drained as it fills, so a writer never blocks on a full pipe.
        reader_ = std::thread([this, fd = std::move(readEnd)] {
            char buffer[4096];
            for (ssize_t got; (got = ::read(fd.get(), buffer, sizeof buffer)) != 0;) {
                if (got < 0 && errno == EINTR) continue;
                if (got < 0) return;
                text_.append(buffer, static_cast<size_t>(got));
            }
        });
    }
    ~StderrCapture() { finish(); }

    std::string finish() {
        if (!saved_.valid()) return text_;
        ::dup2(saved_.get(), STDERR_FILENO);  // closes the last write end: the reader ends
        saved_.reset();
        reader_.join();
        [[maybe_unused]] ssize_t written = ::write(STDERR_FILENO, text_.data(), text_.size());
        return text_;
    }

private:
    Fd saved_;
    std::thread reader_;
    std::string text_;
};

// A socket path of exactly `bytes` bytes inside `dir`, in folders not made yet.
std::filesystem::path pathOfLength(const std::filesystem::path& dir, size_t bytes) {
    std::filesystem::path folder = dir / "not" / "yet";
    const size_t used = folder.native().size() + 1;
    if (used + 1 > bytes) throw std::runtime_error("the temporary folder's path is too long");
    return folder / std::string(bytes - used, 's');
}

class MCPSocketServerTest : public ::testing::Test {
protected:
    void TearDown() override {
        dispatcher_.release();
        server_.stop();
    }

    void start() {
        server_.start();
        ASSERT_TRUE(server_.running());
    }

    testing::TempDir dir_{"mcp"};
    std::filesystem::path path_ = dir_ / "agent.sock";
    RecordingDispatcher dispatcher_;
    MCPSocketServer server_{dispatcher_, path_};
};

TEST_F(MCPSocketServerTest, AnswersEachLineInOrderHoweverItArrives) {
    start();
    Client client(path_);
    ASSERT_TRUE(client.connected());

    ASSERT_TRUE(client.send("\n"));
    EXPECT_EQ(client.call(R"({"tool":"echo","args":{"n":1}})").at("result"), json({{"n", 1}}));

    ASSERT_TRUE(client.send(R"({"tool":"echo","args":{"n":2}})"
                            "\n"
                            R"({"tool":"echo","args":{"n":3}})"
                            "\n"));
    EXPECT_EQ(client.reply().at("result"), json({{"n", 2}}));
    EXPECT_EQ(client.reply().at("result"), json({{"n", 3}}));

    for (std::string_view piece : {R"({"tool":"ec)", R"(ho","args":{"n")", ":4}}", "\n"}) {
        ASSERT_TRUE(client.send(piece));
        ASSERT_TRUE(client.waitUntilRead());
    }
    json split = client.reply();
    EXPECT_EQ(split, json({{"ok", true}, {"result", {{"n", 4}}}}));

    // Cut short: the last request may be incomplete, so it never runs.
    ASSERT_TRUE(client.send(R"({"tool":"echo","args":{"n":5}})"));
    ASSERT_EQ(::shutdown(client.fd(), SHUT_WR), 0);
    EXPECT_TRUE(client.closedQuietly());

    std::vector<std::string> args;
    for (const auto& call : dispatcher_.calls()) args.push_back(call.argsJSON);
    EXPECT_THAT(args,
                ::testing::ElementsAre(R"({"n":1})", R"({"n":2})", R"({"n":3})", R"({"n":4})"));
}

TEST_F(MCPSocketServerTest, RefusesLinesThatAreNotRequestsAndKeepsTheConnection) {
    start();
    Client client(path_);
    const std::string tooDeep =
        R"({"tool":"echo","args":)" + std::string(70, '[') + std::string(70, ']') + "}";
    for (const std::string& line :
         {std::string("[]"), std::string("42"), std::string("nul"), std::string(R"("tool")"),
          std::string("{\"tool\":\"echo\xff\"}"), std::string("\xc3\x28"), tooDeep,
          std::string("{\"tool\":\"echo\"}\0{", 17), std::string(R"({"tool":"echo",})")}) {
        SCOPED_TRACE(::testing::PrintToString(line));
        expectRefusal(client.call(line), "parse error");
    }
    for (const char* line : {R"({})", R"({"tool":7})", R"({"tool":null})",
                             R"({"args":{"tool":"echo"}})", R"({"Tool":"echo"})"}) {
        SCOPED_TRACE(line);
        expectRefusal(client.call(line), "missing `tool`");
    }
    EXPECT_TRUE(dispatcher_.calls().empty());
}

TEST_F(MCPSocketServerTest, PassesArgumentsOnAsTheyWereWritten) {
    start();
    Client client(path_);
    const std::pair<std::string, std::string> cases[] = {
        {R"({"tool":"read"})", "{}"},
        {R"({"tool":"read","args":5})", "5"},
        {R"({"args":{"z":1,"a":[true,2.5,"\u00e9\/"]},"tool":"read","extra":0})",
         "{\"z\":1,\"a\":[true,2.5,\"\xc3\xa9/\"]}"},
        {R"({"tool":"resources/read","args":{"uri":"quorvane://today"}})",
         R"({"uri":"quorvane://today"})"},
    };
    for (const auto& [line, argsJSON] : cases) {
        EXPECT_EQ(client.call(line).at("ok"), true) << line;
    }
    std::vector<RecordingDispatcher::Call> calls = dispatcher_.calls();
    ASSERT_EQ(calls.size(), std::size(cases));
    for (size_t i = 0; i < calls.size(); ++i) EXPECT_EQ(calls[i].argsJSON, cases[i].second);
    EXPECT_EQ(calls.back().tool, "resources/read");
}

TEST_F(MCPSocketServerTest, RepliesWithTheToolsResultOrItsRefusal) {
    start();
    Client client(path_);
    const std::string request = R"({"tool":"any"})";

    dispatcher_.answer(AgentResult::success(R"({"b":[1,2.5],"a":"x"})"));
    EXPECT_EQ(client.call(request), json::parse(R"({"ok":true,"result":{"b":[1,2.5],"a":"x"}})"));
    dispatcher_.answer(AgentResult::success("42"));
    EXPECT_EQ(client.call(request), json::parse(R"({"ok":true,"result":42})"));
    dispatcher_.answer(AgentResult::success("not json"));
    EXPECT_EQ(client.call(request), json::parse(R"({"ok":true,"result":{}})"));

    dispatcher_.answer(AgentResult::failure("not_found", "no repository 'x'"));
    EXPECT_EQ(client.call(request), json::parse(R"({"ok":false,"error":
        {"code":"not_found","message":"no repository 'x'","hint":"no repository 'x'"}})"));
    dispatcher_.answer(AgentResult{false, "{}", "permission_denied", std::nullopt});
    EXPECT_EQ(client.call(request), json::parse(R"({"ok":false,"error":
        {"code":"permission_denied","message":"tool failed"}})"));
    dispatcher_.answer(AgentResult{});
    EXPECT_EQ(client.call(request),
              json::parse(R"({"ok":false,"error":{"code":"error","message":"tool failed"}})"));
}

TEST_F(MCPSocketServerTest, ThePathLimitCountsTheTerminatingNul) {
    const std::filesystem::path longest = pathOfLength(dir_.path(), 103);
    const std::filesystem::path tooLong = pathOfLength(dir_.path(), 104);
    {
        StderrCapture capture;
        MCPSocketServer server(dispatcher_, longest);
        server.start();
        EXPECT_TRUE(server.running());
        EXPECT_EQ(capture.finish(),
                  "[quorvane-agent] MCP socket listening on " + longest.native() + "\n");
        struct stat info {};
        ASSERT_EQ(::lstat(longest.c_str(), &info), 0);
        EXPECT_TRUE(S_ISSOCK(info.st_mode));
        EXPECT_EQ(info.st_mode & 07777, 0600u);
        Client client(longest);
        EXPECT_EQ(client.call(R"({"tool":"echo","args":[1]})").at("result"), json::array({1}));
    }
    EXPECT_FALSE(std::filesystem::exists(longest));  // the destructor stopped it

    StderrCapture capture;
    MCPSocketServer server(dispatcher_, tooLong);
    server.start();
    EXPECT_FALSE(server.running());
    EXPECT_EQ(capture.finish(), "[quorvane-agent] socket path too long (105 > 104) \u2014 " +
                                    tooLong.native() + "\n");
    EXPECT_FALSE(std::filesystem::exists(tooLong));
}

// Which files the server takes over is the shared socket server's to pin; here,
// that a refusal leaves the running server alone and says where.
TEST_F(MCPSocketServerTest, ASecondServerIsRefusedWithThePathAndTheFirstGoesOn) {
    start();
    Client client(path_);
    StderrCapture capture;
    MCPSocketServer second(dispatcher_, path_);
    second.start();
    EXPECT_FALSE(second.running());
    EXPECT_THAT(capture.finish(), HasSubstr(path_.native()));
    EXPECT_EQ(client.call(R"({"tool":"echo"})").at("ok"), true);
    EXPECT_EQ(Client(path_).call(R"({"tool":"echo"})").at("ok"), true);
}

TEST_F(MCPSocketServerTest, StopClosesIdleConnectionsAndTheServerStartsAgain) {
    start();
    std::vector<Client> clients;
    for (int i = 0; i < 3; ++i) {
        clients.emplace_back(path_);
        EXPECT_EQ(clients.back().call(R"({"tool":"echo"})").at("ok"), true);  // accepted
    }
    server_.stop();
    EXPECT_FALSE(server_.running());
    EXPECT_FALSE(std::filesystem::exists(path_));
    for (Client& client : clients) EXPECT_TRUE(client.closedQuietly());

    start();
    Client again(path_);
    EXPECT_EQ(again.call(R"({"tool":"echo","args":{"again":true}})").at("result"),
              json({{"again", true}}));
}

TEST_F(MCPSocketServerTest, StopLetsTheCallInFlightFinishFirst) {
    start();
    Client client(path_);
    ASSERT_TRUE(client.sendLine(R"({"tool":"block"})"));
    ASSERT_TRUE(dispatcher_.waitForCalls(1));

    size_t finishedWhenStopReturned = 0;
    std::thread stopper([&] {
        server_.stop();
        finishedWhenStopReturned = dispatcher_.finishedBlocks();
    });
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (server_.running() && std::chrono::steady_clock::now() < deadline)
        std::this_thread::yield();
    dispatcher_.release();
    stopper.join();
    EXPECT_EQ(finishedWhenStopReturned, 1u);
    // The finished call's reply still fits the socket, so the client has it.
    EXPECT_EQ(client.reply(), json::parse(R"({"ok":true,"result":{"unblocked":true}})"));
    EXPECT_TRUE(client.closedQuietly());
}

TEST_F(MCPSocketServerTest, OneClientNeverHoldsUpAnother) {
    start();
    Client slow(path_), other(path_);
    ASSERT_TRUE(slow.sendLine(R"({"tool":"block"})"));
    ASSERT_TRUE(dispatcher_.waitForCalls(1));
    EXPECT_EQ(other.call(R"({"tool":"echo","args":1})").at("result"), 1);
    dispatcher_.release();
    EXPECT_EQ(slow.reply().at("result"), json({{"unblocked", true}}));

    // Replies bigger than a socket holds, never read: the slow client's thread
    // waits to write, and the other client is still answered.
    dispatcher_.answer(AgentResult::success("\"" + std::string(1 << 20, 'x') + "\""));
    for (int i = 0; i < 4; ++i) ASSERT_TRUE(slow.sendLine(R"({"tool":"big"})"));
    ASSERT_TRUE(dispatcher_.waitForCalls(3));
    EXPECT_EQ(other.call(R"({"tool":"echo","args":2})").at("result"), 2);
    // Stopping cuts the slow client's wait to write short.
}

TEST_F(MCPSocketServerTest, ALineOverTheLimitIsRefusedAndItsConnectionClosed) {
    start();
    Client longest(path_);
    const std::string head = R"({"tool":"big","args":")";
    std::string line =
        head + std::string(MCPSocketServer::kMaxLineBytes - head.size() - 2, 'a') + "\"}";
    ASSERT_EQ(line.size(), MCPSocketServer::kMaxLineBytes);
    EXPECT_EQ(longest.call(line).at("ok"), true);
    ASSERT_EQ(dispatcher_.calls().size(), 1u);
    EXPECT_EQ(dispatcher_.calls()[0].argsJSON.size(), MCPSocketServer::kMaxLineBytes - head.size());

    for (bool withLineFeed : {true, false}) {
        Client client(path_);
        // The server may close before it has all of it: the send result is moot.
        client.send(std::string(MCPSocketServer::kMaxLineBytes + 1, ' ') +
                    (withLineFeed ? "\n" : ""));
        expectRefusal(client.reply(), "request line too long");
        EXPECT_TRUE(client.closedQuietly());
    }
    EXPECT_EQ(dispatcher_.calls().size(), 1u);
}

TEST_F(MCPSocketServerTest, SilentClientsAndUnfinishedLinesAreClosedAfterTheirLimits) {
    // One server for each limit, so neither can end the other's case first.
    MCPSocketLimits silence, stall;
    silence.idle = 200ms;
    stall.unfinishedLine = 100ms;
    MCPSocketServer quiet(dispatcher_, dir_ / "idle.sock", silence);
    MCPSocketServer strict(dispatcher_, dir_ / "line.sock", stall);
    quiet.start();
    strict.start();
    ASSERT_TRUE(quiet.running() && strict.running());
    Client silent(dir_ / "idle.sock"), stalled(dir_ / "line.sock");
    ASSERT_TRUE(silent.connected());
    EXPECT_EQ(stalled.call(R"({"tool":"echo","args":1})").at("result"), 1);
    ASSERT_TRUE(stalled.send(R"({"tool":"echo","args":)"));
    expectRefusal(stalled.reply(), "request line not finished in time");
    EXPECT_TRUE(stalled.closedQuietly());
    EXPECT_TRUE(silent.closedQuietly());
    EXPECT_EQ(dispatcher_.calls().size(), 1u);
}

TEST_F(MCPSocketServerTest, AGreedyClientIsRefusedOnceTheBudgetIsSpentAndOthersAreAnswered) {
    MCPSocketLimits limits;
    limits.bufferBudget = 128 * 1024;
    limits.unfinishedLine = 10min;  // the held line waits as long as the test needs
    const std::filesystem::path path = dir_ / "budget.sock";
    MCPSocketServer server(dispatcher_, path, limits);
    server.start();
    ASSERT_TRUE(server.running());
    const size_t free = MCPSocketServer::kFreeLineBytes;

    // One client's unfinished line takes all but a few bytes of the budget. The
    // second write is read only once the first has been taken into account.
    Client holder(path);
    const std::string head = R"({"tool":"echo","args":")";
    const std::string held =
        head + std::string(free + limits.bufferBudget - 100 - head.size(), 'h');
    ASSERT_TRUE(holder.send(held));
    ASSERT_TRUE(holder.waitUntilRead());
    ASSERT_TRUE(holder.send("h"));
    ASSERT_TRUE(holder.waitUntilRead());

    // Another that wants more is told so and let go.
    Client greedy(path);
    greedy.send(std::string(free + 4096, 'g'));  // the server may close before it has all
    json refused = greedy.reply();
    EXPECT_EQ(refused.at("ok"), false);
    EXPECT_EQ(refused.at("error").at("code"), "busy") << refused;
    EXPECT_TRUE(greedy.closedQuietly());

    // A request of ordinary size needs none of the budget, even when cut in two.
    Client polite(path);
    EXPECT_EQ(polite.call(R"({"tool":"echo","args":1})").at("result"), 1);
    ASSERT_TRUE(polite.send(R"({"tool":"echo",)"));
    ASSERT_TRUE(polite.waitUntilRead());
    ASSERT_TRUE(polite.send("\"args\":2}\n"));
    EXPECT_EQ(polite.reply().at("result"), 2);

    // The held line, once finished, is answered and its share given back.
    ASSERT_TRUE(holder.send("\"}\n"));
    EXPECT_EQ(holder.reply().at("result").get<std::string>().size(), held.size() - head.size() + 1);
    Client next(path);
    next.send(std::string(free + 4096, 'n') + "\n");
    expectRefusal(next.reply(), "parse error");
}

}  // namespace
}  // namespace quorvane
