#include "cli/DaemonControl.hpp"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <thread>

#include <fmt/format.h>

#include "app/LoginService.hpp"
#include "base/PathHelpers.hpp"
#include "cli/ControlProtocol.hpp"
#include "persistence/AtomicFile.hpp"
#include "platform/UnixSocket.hpp"

extern char** environ;

namespace quorvane::DaemonControl {

namespace fs = std::filesystem;

namespace {

bool processExists(pid_t pid) {
    return ::kill(pid, 0) == 0 || errno == EPERM;
}

}  // namespace

std::optional<RunningDaemon> runningDaemon(const fs::path& dataDir) {
    UnixSocket::Connected connection = UnixSocket::connect(dataDir / ControlProtocol::kSocketName);
    if (!connection.fd.valid()) return std::nullopt;
    std::optional<uid_t> uid = UnixSocket::peerUid(connection.fd.get());
    std::optional<pid_t> pid = UnixSocket::peerPid(connection.fd.get());
    if (!uid || *uid != ::geteuid() || !pid) return std::nullopt;
    RunningDaemon daemon;
    daemon.pid = *pid;
    std::error_code ec;
    fs::path proc = fs::path("/proc") / std::to_string(*pid);
    std::string exe = fs::read_symlink(proc / "exe", ec).string();
    // The kernel marks a program whose file was removed or replaced since it started.
    constexpr std::string_view kDeleted = " (deleted)";
    if (exe.ends_with(kDeleted)) {
        daemon.replaced = true;
        exe.resize(exe.size() - kDeleted.size());
    }
    daemon.executable = exe;
    AtomicFile::ReadResult cgroup = AtomicFile::read(proc / "cgroup");
    daemon.underUnit =
        cgroup.bytes &&
        cgroup.bytes->find(std::string("/") + LoginService::kUnitName) != std::string::npos;
    return daemon;
}

bool stop(const RunningDaemon& daemon, std::chrono::milliseconds limit) {
    if (::kill(daemon.pid, SIGTERM) != 0) return !processExists(daemon.pid);
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (processExists(daemon.pid)) {
        // A child of ours is reaped here; anyone else's goes when its parent reaps it.
        ::waitpid(daemon.pid, nullptr, WNOHANG);
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return true;
}

fs::path backgroundLog(const fs::path& dataDir) {
    return dataDir / "daemon.log";
}

Started startInBackground(const fs::path& executable, const std::optional<fs::path>& dataDir,
                          const fs::path& effectiveDataDir, std::chrono::milliseconds limit) {
    Started started;
    if (!PathHelpers::ensurePrivateDirectory(effectiveDataDir)) {
        started.problem = fmt::format("cannot create {}", effectiveDataDir.string());
        return started;
    }
    fs::path log = backgroundLog(effectiveDataDir);
    // One old log is kept beside the new one, so it never grows without end.
    std::error_code ec;
    if (fs::file_size(log, ec) > (4u << 20) && !ec) fs::rename(log, fs::path(log) += ".1", ec);
    std::vector<std::string> words = {executable.string(), "daemon"};
    if (dataDir) words.insert(words.end(), {"--data-dir", dataDir->string()});
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawnattr_t attributes;
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attributes);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, log.c_str(),
                                     O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    posix_spawn_file_actions_adddup2(&actions, STDOUT_FILENO, STDERR_FILENO);
    // A session of its own: closing the terminal that started it does not stop it.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    pid_t pid = 0;
    int spawned = ::posix_spawn(&pid, argv[0], &actions, &attributes, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    if (spawned != 0) {
        started.problem =
            fmt::format("cannot start {}: {}", executable.string(), std::strerror(spawned));
        return started;
    }
    started.pid = pid;
    auto deadline = std::chrono::steady_clock::now() + limit;
    for (;;) {
        if (std::optional<RunningDaemon> daemon = runningDaemon(effectiveDataDir);
            daemon && daemon->pid == pid) {
            return started;
        }
        int status = 0;
        if (::waitpid(pid, &status, WNOHANG) == pid) {
            started.problem = fmt::format("the daemon stopped at once; see {}", log.string());
            return started;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            started.problem = fmt::format(
                "the daemon did not answer within {} s; see {}",
                std::chrono::duration_cast<std::chrono::seconds>(limit).count(), log.string());
            return started;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

}  // namespace quorvane::DaemonControl
