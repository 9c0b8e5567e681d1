// How long an agent waits for a read tool: `quorvane-mcp` started as an agent starts
// it, the daemon behind it with a full audit log (every call rewrites it), and
// `tools/call` of a read tool timed from the request written to the reply read.
// The same calls straight on the agent socket show what the bridge adds.
//
//   quorvane_bench_bridge [--calls N] [--audit ENTRIES] [--tool NAME]
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "base/Uuid.hpp"
#include "platform/Clock.hpp"
#include "platform/FileDescriptor.hpp"
#include "platform/UnixSocket.hpp"
#include "records/AuditLogEntry.hpp"
#include "records/JsonCodec.hpp"
#include "testing/BackgroundProcess.hpp"
#include "testing/LineClient.hpp"
#include "testing/TempDir.hpp"

extern char** environ;

namespace {

using namespace quorvane;
using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

// An audit log as full as it gets, written once rather than call by call.
void writeAuditLog(const std::filesystem::path& dataDir, int entries) {
    SystemClock clock;
    Json log = Json::array();
    for (int i = 0; i < entries; ++i) {
        AuditLogEntry entry;
        entry.id = newUUID();
        entry.at = clock.now() - std::chrono::minutes(entries - i);
        entry.actor = "claude";
        entry.tool = "get_repository_status";
        entry.argsSummary = fmt::format("repoId=/home/dev/code/project-{:03}", i % 100);
        entry.status = "ok";
        log.push_back(toJson(entry));
    }
    std::ofstream(dataDir / "agent_audit.json") << JsonCodec::pretty(log);
    std::filesystem::permissions(
        dataDir / "agent_audit.json",
        std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);
}

// The bridge as an agent runs it: its standard input and output are our pipes.
class Bridge {
public:
    explicit Bridge(const std::filesystem::path& dataDir) {
        int toChild[2];
        int fromChild[2];
        if (::pipe2(toChild, O_CLOEXEC) != 0 || ::pipe2(fromChild, O_CLOEXEC) != 0) {
            throw std::runtime_error("pipe2 failed");
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, toChild[0], STDIN_FILENO);
        posix_spawn_file_actions_adddup2(&actions, fromChild[1], STDOUT_FILENO);
        std::string program = QUORVANE_MCP_BINARY;
        std::string flag = "--data-dir";
        std::string dir = dataDir.string();
        char* argv[] = {program.data(), flag.data(), dir.data(), nullptr};
        int failed = ::posix_spawn(&pid_, program.c_str(), &actions, nullptr, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(toChild[0]);
        ::close(fromChild[1]);
        in_ = Fd(toChild[1]);
        out_ = Fd(fromChild[0]);
        if (failed != 0)
            throw std::runtime_error(std::string("cannot start the bridge: ") +
                                     std::strerror(failed));
    }
    ~Bridge() {
        in_.reset();  // the end of its input ends it
        int status = 0;
        ::waitpid(pid_, &status, 0);
    }

    // Blocking pipe reads and writes: a bridge that stops answering hangs the
    // benchmark, which is what a person running it should see.
    nlohmann::json call(const nlohmann::json& request) {
        const std::string line = request.dump() + "\n";
        if (!writeAll(in_.get(), line)) throw std::runtime_error("the bridge stopped reading");
        for (;;) {
            if (size_t lf = buffered_.find('\n'); lf != std::string::npos) {
                nlohmann::json reply = nlohmann::json::parse(buffered_.substr(0, lf));
                buffered_.erase(0, lf + 1);
                return reply;
            }
            char chunk[64 * 1024];
            ssize_t got = ::read(out_.get(), chunk, sizeof chunk);
            if (got < 0 && errno == EINTR) continue;
            if (got <= 0) throw std::runtime_error("the bridge did not reply");
            buffered_.append(chunk, static_cast<size_t>(got));
        }
    }

private:
    pid_t pid_ = -1;
    Fd in_;
    Fd out_;
    std::string buffered_;
};

struct Figures {
    double p50 = 0, p99 = 0, max = 0, mean = 0;
};

Figures figuresOf(std::vector<double> millis) {
    std::sort(millis.begin(), millis.end());
    Figures figures;
    auto at = [&](double quantile) {
        return millis[static_cast<size_t>(quantile * static_cast<double>(millis.size() - 1))];
    };
    figures.p50 = at(0.50);
    figures.p99 = at(0.99);
    figures.max = millis.back();
    for (double each : millis) figures.mean += each / static_cast<double>(millis.size());
    return figures;
}

template <class Call>
std::vector<double> timed(int calls, Call call) {
    std::vector<double> millis;
    millis.reserve(static_cast<size_t>(calls));
    for (int i = 0; i < calls; ++i) {
        auto start = SteadyClock::now();
        call();
        millis.push_back(
            std::chrono::duration<double, std::milli>(SteadyClock::now() - start).count());
    }
    return millis;
}

void print(const std::string& what, const Figures& f) {
    std::cout << fmt::format(
        "{:<28} p50 {:7.2f} ms   p99 {:7.2f} ms   max {:7.2f} ms   mean {:7.2f} ms\n", what, f.p50,
        f.p99, f.max, f.mean);
}

}  // namespace

int main(int argc, char** argv) {
    ::signal(SIGPIPE, SIG_IGN);
    int calls = 1000;
    int auditEntries = 5000;
    std::string tool = "get_settings";
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string flag = argv[i];
        if (flag == "--calls")
            calls = std::max(1, std::atoi(argv[i + 1]));
        else if (flag == "--audit")
            auditEntries = std::max(0, std::atoi(argv[i + 1]));
        else if (flag == "--tool")
            tool = argv[i + 1];
        else {
            std::cerr
                << "usage: quorvane_bench_bridge [--calls N] [--audit ENTRIES] [--tool NAME]\n";
            return 2;
        }
    }

    testing::TempDir dir("quorvane-bench-bridge");
    const std::filesystem::path dataDir = dir / "data";
    std::filesystem::create_directories(dataDir);
    std::filesystem::permissions(dataDir, std::filesystem::perms::owner_all);
    writeAuditLog(dataDir, auditEntries);

    testing::BackgroundProcess daemon(QUORVANE_BINARY, {"daemon", "--data-dir", dataDir.string()},
                                      dir / "daemon.log");
    const std::filesystem::path socket = dataDir / "quorvane-agent.sock";
    if (!testing::eventually(60s, [&] { return UnixSocket::connect(socket).error == 0; })) {
        std::cerr << "the daemon's agent socket did not come up:\n" << daemon.output();
        return 1;
    }

    Bridge bridge(dataDir);
    bridge.call(
        {{"jsonrpc", "2.0"},
         {"id", 0},
         {"method", "initialize"},
         {"params",
          {{"protocolVersion", "2025-06-18"}, {"capabilities", nlohmann::json::object()}}}});
    const nlohmann::json request = {
        {"jsonrpc", "2.0"},
        {"id", 1},
        {"method", "tools/call"},
        {"params", {{"name", tool}, {"arguments", nlohmann::json::object()}}}};
    nlohmann::json first = bridge.call(request);
    if (first["result"].value("isError", true)) {
        std::cerr << "the tool failed: " << first.dump() << "\n";
        return 1;
    }
    Figures throughBridge = figuresOf(timed(calls, [&] { bridge.call(request); }));

    testing::LineClient direct(socket);
    const std::string line =
        nlohmann::json({{"tool", tool}, {"args", nlohmann::json::object()}}).dump();
    Figures onSocket = figuresOf(timed(calls, [&] { direct.call(line); }));

    std::cout << fmt::format("{} calls of {} with a {}-entry audit log\n", calls, tool,
                             auditEntries);
    print("through quorvane-mcp", throughBridge);
    print("straight on the agent socket", onSocket);

    daemon.signal(SIGTERM);
    daemon.waitForExit(60s);
    return 0;
}
