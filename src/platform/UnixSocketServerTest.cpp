#include "platform/UnixSocketServer.hpp"

#include <sys/stat.h>

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "platform/UnixSocket.hpp"
#include "testing/StrangerConnection.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

using namespace std::chrono_literals;

// Only a server that has stopped answering ever uses it up, and then the test
// fails in seconds rather than sitting out the suite's timeout.
constexpr auto kPatience = 10s;

// What the server sent before it closed the connection, or stopped sending.
std::string firstWords(const Fd& socket) {
    UnixSocket::Received got = UnixSocket::receive(socket.get(), 64, kPatience);
    return got.closed ? "closed" : got.bytes;
}

class Reports {
public:
    void add(std::string_view line) {
        std::lock_guard lock(mutex_);
        lines_.emplace_back(line);
        changed_.notify_all();
    }
    bool waitFor(const std::string& line) {
        std::unique_lock lock(mutex_);
        return changed_.wait_for(lock, kPatience,
                                 [&] { return std::ranges::find(lines_, line) != lines_.end(); });
    }
    std::vector<std::string> lines() const {
        std::lock_guard lock(mutex_);
        return lines_;
    }

private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> lines_;
};

TEST(UnixSocketServerTest, AdmitsUpToItsCapTurnsTheRestAwayAndOutlivesAConnectionThatFails) {
    testing::TempDir dir{"socket-server"};
    const std::filesystem::path path = dir / "server.sock";
    Reports reports;
    std::atomic<int> turnedAway{0};
    int wake = -1;
    UnixSocketServer server(path, {.maxConnections = 2},
                            {.serve =
                                 [&wake](Fd connection) {
                                     UnixSocket::sendAll(connection.get(), "admitted", 1s);
                                     UnixSocket::Received got =
                                         UnixSocket::receive(connection.get(), 1, kPatience, wake);
                                     if (got.bytes == "!")
                                         throw std::runtime_error("asked to fail");
                                 },
                             .turnAway =
                                 [&turnedAway](int connection) {
                                     ++turnedAway;
                                     UnixSocket::sendAll(connection, "busy", 1s);
                                 },
                             .report = [&reports](std::string_view line) { reports.add(line); }});
    wake = server.wakeFd();
    ASSERT_FALSE(server.start().has_value());
    struct stat info {};
    ASSERT_EQ(::lstat(path.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0600u);

    std::vector<Fd> admitted;
    for (int i = 0; i < 2; ++i) {
        admitted.push_back(UnixSocket::connect(path).fd);
        ASSERT_EQ(firstWords(admitted.back()), "admitted");
    }
    for (int i = 0; i < 3; ++i) {
        Fd refused = UnixSocket::connect(path).fd;
        EXPECT_EQ(firstWords(refused), "busy");
        EXPECT_EQ(firstWords(refused), "closed");
    }
    EXPECT_EQ(turnedAway, 3);
    EXPECT_EQ(reports.lines(),
              std::vector<std::string>{"2 connections are open: turning new ones away"});

    // Once one leaves there is room again. The server notices the leaving on its
    // own time, so newcomers may still be turned away for a while.
    admitted.pop_back();
    Fd newcomer;
    const auto deadline = std::chrono::steady_clock::now() + kPatience;
    while (std::chrono::steady_clock::now() < deadline) {
        newcomer = UnixSocket::connect(path).fd;
        if (firstWords(newcomer) == "admitted") break;
        newcomer.reset();
    }
    ASSERT_TRUE(newcomer.valid());
    // A connection whose handling throws is lost alone.
    ASSERT_TRUE(UnixSocket::sendAll(newcomer.get(), "!", 1s));
    EXPECT_EQ(firstWords(newcomer), "closed");
    EXPECT_TRUE(reports.waitFor("a connection ended on an error: asked to fail"));

    // Stopping ends the connection still open and removes the socket file.
    server.stop();
    EXPECT_EQ(firstWords(admitted.front()), "closed");
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_FALSE(UnixSocket::connect(path).fd.valid());
}

TEST(UnixSocketServerTest, TakesOverADeadSocketButNeverALiveOneAFileOrAnotherUser) {
    testing::TempDir dir{"socket-server"};
    const std::filesystem::path path = dir / "server.sock";
    std::atomic<int> served{0};
    auto answering = [&served] {
        UnixSocketServer::Handlers handlers;
        handlers.serve = [&served](Fd connection) {
            ++served;
            UnixSocket::sendAll(connection.get(), "hello", 1s);
        };
        return handlers;
    };
    // A crashed server's socket file, with nobody listening: replaced.
    { ASSERT_TRUE(UnixSocket::listen(path).fd.valid()); }
    ASSERT_TRUE(std::filesystem::exists(path));
    UnixSocketServer first(path, {}, answering());
    ASSERT_FALSE(first.start().has_value());
    EXPECT_EQ(firstWords(UnixSocket::connect(path).fd), "hello");

    // A live one is left to its server, which goes on answering.
    UnixSocketServer second(path, {}, answering());
    std::optional<UnixSocketServer::Failure> refused = second.start();
    ASSERT_TRUE(refused.has_value());
    EXPECT_THAT(refused->error, ::testing::HasSubstr("listening"));
    EXPECT_EQ(firstWords(UnixSocket::connect(path).fd), "hello");

    // Someone else's socket put there meanwhile survives the first server's stop.
    std::filesystem::remove(path);
    UnixSocket::Listening other = UnixSocket::listen(path);
    ASSERT_TRUE(other.fd.valid()) << other.error;
    first.stop();
    EXPECT_TRUE(UnixSocket::connect(path).fd.valid());
    other.fd.reset();
    std::filesystem::remove(path);

    // Anything that is not a socket is never replaced, whatever it holds.
    const std::string bytes("someone's notes\n\0\xff", 18);
    std::ofstream(path, std::ios::binary) << bytes;
    UnixSocketServer third(path, {}, answering());
    ASSERT_TRUE(third.start().has_value());
    EXPECT_EQ(testing::readFile(path), bytes);
    std::filesystem::remove(path);

    if (::geteuid() != 0) GTEST_SKIP() << "needs root to act as another user";
    const int before = served;
    UnixSocketServer fourth(path, {}, answering());
    ASSERT_FALSE(fourth.start().has_value());
    EXPECT_TRUE(testing::strangerIsTurnedAway(path, "hello?\n"));
    EXPECT_EQ(served, before);
}

}  // namespace
}  // namespace quorvane
