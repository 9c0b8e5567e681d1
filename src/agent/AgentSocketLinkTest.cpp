#include "agent/AgentSocketLink.hpp"

#include <thread>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "agent/MCPSocketServer.hpp"
#include "platform/UnixSocket.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using namespace std::chrono_literals;
using ::testing::HasSubstr;

class EchoDispatcher final : public ToolDispatcher {
public:
    AgentResult handle(const std::string&, const std::string& argsJSON) override {
        return AgentResult::success(argsJSON);
    }
};

std::optional<nlohmann::json> resultOf(const AgentLink::Reply& reply) {
    if (!reply.line) return std::nullopt;
    nlohmann::json answer = nlohmann::json::parse(*reply.line);
    return answer.value("ok", false) ? std::optional(answer["result"]) : std::nullopt;
}

TEST(AgentSocketLinkTest, ASessionOutlivesARestartOfTheDaemon) {
    testing::TempDir dir;
    const std::filesystem::path path = dir / "agent.sock";
    AgentSocketLink link(path, "quorvane --data-dir /d daemon");
    const std::string request = R"({"tool":"get_settings","args":{"n":1}})";

    AgentLink::Reply down = link.exchange(request);
    EXPECT_FALSE(down.line);
    EXPECT_THAT(down.problem, HasSubstr("Quorvane is not running"));
    EXPECT_THAT(down.problem, HasSubstr(path.string()));
    EXPECT_THAT(down.problem, HasSubstr("`quorvane --data-dir /d daemon`"));

    EchoDispatcher dispatcher;
    MCPSocketServer server(dispatcher, path);
    server.start();
    ASSERT_TRUE(server.running());
    EXPECT_EQ(resultOf(link.exchange(request)), nlohmann::json({{"n", 1}}));
    EXPECT_EQ(resultOf(link.exchange(request)), nlohmann::json({{"n", 1}}));

    // The connection the link holds is gone with the server; the next call says so
    // instead of writing into it, and the one after the restart connects afresh.
    server.stop();
    AgentLink::Reply stopped = link.exchange(request);
    EXPECT_FALSE(stopped.line);
    EXPECT_THAT(stopped.problem, HasSubstr("not running"));
    server.start();
    ASSERT_TRUE(server.running());
    EXPECT_EQ(resultOf(link.exchange(request)), nlohmann::json({{"n", 1}}));
    server.stop();
}

TEST(AgentSocketLinkTest, APeerThatStaysSilentOrHangsUpIsAnAnswerNotAHang) {
    testing::TempDir dir;
    const std::filesystem::path path = dir / "agent.sock";
    UnixSocket::Listening listening = UnixSocket::listen(path);
    ASSERT_TRUE(listening.fd.valid()) << listening.error;
    AgentSocketLink link(path, "quorvane daemon", 300ms);

    // Takes the request and keeps the connection open without a word.
    Fd silent;
    std::thread peer([&] {
        while (!silent.valid()) {
            if (UnixSocket::waitFor(listening.fd.get(), false, 60s) != UnixSocket::Wait::ready)
                return;
            silent = UnixSocket::accept(listening.fd.get());
        }
    });
    AgentLink::Reply slow = link.exchange(R"({"tool":"rescan_now"})");
    peer.join();
    EXPECT_FALSE(slow.line);
    EXPECT_THAT(slow.problem, HasSubstr("did not reply within"));

    // Takes the request, then hangs up: the link connects anew and says what happened.
    std::thread hangUp([&] {
        if (UnixSocket::waitFor(listening.fd.get(), false, 60s) != UnixSocket::Wait::ready) return;
        Fd connection = UnixSocket::accept(listening.fd.get());
        UnixSocket::receive(connection.get(), 4096, 60s);
    });
    AgentLink::Reply gone = link.exchange(R"({"tool":"get_settings"})");
    hangUp.join();
    EXPECT_FALSE(gone.line);
    EXPECT_THAT(gone.problem, HasSubstr("closed the connection before it replied"));
}

}  // namespace
}  // namespace quorvane
