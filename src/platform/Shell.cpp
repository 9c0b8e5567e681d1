#include "platform/Shell.hpp"

#include <fcntl.h>
#include <poll.h>
#include <pwd.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <set>
#include <vector>

#include <fmt/format.h>

#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "platform/Cancellation.hpp"
#include "platform/FileDescriptor.hpp"

extern char** environ;

namespace quorvane {
namespace {

using SteadyClock = std::chrono::steady_clock;

struct Pipe {
    Fd read;
    Fd write;
};

bool makePipe(Pipe& pipe) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0) return false;
    pipe.read = Fd(fds[0]);
    pipe.write = Fd(fds[1]);
    return true;
}

void setNonBlocking(int fd) {
    int flags = ::fcntl(fd, F_GETFL);
    if (flags >= 0) ::fcntl(fd, F_SETFL, flags | O_NONBLOCK);
}

// Signals this process may ignore or handle; a child starts with their defaults.
constexpr int kSignalsResetForChildren[] = {SIGPIPE, SIGINT,  SIGTERM, SIGHUP,
                                            SIGQUIT, SIGCHLD, SIGUSR1, SIGUSR2};

ShellResult launchFailure(std::string description) {
    return ShellResult{"", std::move(description), -1};
}

// The child's environment: ours, with PATH enriched and the request's variables on top.
std::vector<std::string> childEnvironment(const ProcessRequest& request) {
    std::vector<std::string> entries;
    const char* inheritedPath = nullptr;
    std::set<std::string> overridden{"PATH"};
    for (const auto& [name, value] : request.environment) overridden.insert(name);
    for (const auto& name : request.unsetEnvironment) overridden.insert(name);
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        std::string_view text(*entry);
        size_t eq = text.find('=');
        std::string name(text.substr(0, eq));
        if (name == "PATH" && eq != std::string_view::npos) inheritedPath = *entry + eq + 1;
        if (overridden.count(name) == 0) entries.emplace_back(text);
    }
    std::optional<std::string_view> current;
    if (inheritedPath != nullptr) current = inheritedPath;
    bool pathGiven = false;
    for (const auto& [name, value] : request.environment) {
        entries.push_back(name + "=" + value);
        pathGiven = pathGiven || name == "PATH";
    }
    if (!pathGiven) entries.push_back("PATH=" + Shell::enrichedPath(current));
    return entries;
}

// The request's working folder with a leading "~" expanded, or why it cannot be used.
std::optional<std::string> workingFolder(const ProcessRequest& request, std::string& problem) {
    if (!request.cwd) return std::nullopt;
    std::string cwd = PathHelpers::expandTilde(*request.cwd);
    struct stat info {};
    if (::stat(cwd.c_str(), &info) != 0 || !S_ISDIR(info.st_mode)) {
        problem = fmt::format("working folder {} does not exist", cwd);
    }
    return cwd;
}

// The program's own path first, as every program expects to find it in argv[0].
std::vector<std::string> argumentVector(const ProcessRequest& request) {
    std::vector<std::string> argv;
    argv.reserve(request.arguments.size() + 1);
    argv.push_back(request.executable);
    argv.insert(argv.end(), request.arguments.begin(), request.arguments.end());
    return argv;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    result.reserve(strings.size() + 1);
    for (auto& s : strings) result.push_back(s.data());
    result.push_back(nullptr);
    return result;
}

// Writing to a child that has stopped reading must not kill this process with
// SIGPIPE; the signal is held back on this thread and any pending one is consumed.
class SigpipeGuard {
public:
    SigpipeGuard() {
        sigset_t pipeOnly;
        sigemptyset(&pipeOnly);
        sigaddset(&pipeOnly, SIGPIPE);
        sigset_t pending;
        sigpending(&pending);
        wasPending_ = sigismember(&pending, SIGPIPE) == 1;
        pthread_sigmask(SIG_BLOCK, &pipeOnly, &old_);
    }
    ~SigpipeGuard() {
        if (!wasPending_) {
            sigset_t pipeOnly;
            sigemptyset(&pipeOnly);
            sigaddset(&pipeOnly, SIGPIPE);
            timespec zero{0, 0};
            while (sigtimedwait(&pipeOnly, nullptr, &zero) > 0) {}
        }
        pthread_sigmask(SIG_SETMASK, &old_, nullptr);
    }
    SigpipeGuard(const SigpipeGuard&) = delete;
    SigpipeGuard& operator=(const SigpipeGuard&) = delete;

private:
    sigset_t old_{};
    bool wasPending_ = false;
};

int pidfdOpen(pid_t pid) {
#ifdef SYS_pidfd_open
    return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
#else
    (void)pid;
    errno = ENOSYS;
    return -1;
#endif
}

int decodeStatus(int status) {
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (WIFSIGNALED(status)) return WTERMSIG(status);
    return -1;
}

// Reads what is available now; returns false once the stream is at its end.
bool readAvailable(Fd& fd, std::string& into) {
    char buffer[65536];
    while (true) {
        ssize_t n = ::read(fd.get(), buffer, sizeof buffer);
        if (n > 0) {
            into.append(buffer, static_cast<size_t>(n));
            continue;
        }
        if (n == 0) {
            fd.reset();
            return false;
        }
        if (errno == EINTR) continue;
        if (errno == EAGAIN || errno == EWOULDBLOCK) return true;
        fd.reset();
        return false;
    }
}

// Everything that happens between a successful spawn and the child's end.
class Supervisor {
public:
    Supervisor(pid_t pid, Pipe& out, Pipe& err, Pipe& in, std::string input, double timeout,
               const Cancellation* cancellation)
        : pid_(pid),
          out_(std::move(out.read)),
          err_(std::move(err.read)),
          in_(std::move(in.write)),
          input_(std::move(input)),
          deadline_(SteadyClock::now() + toDuration(timeout)),
          cancellation_(cancellation) {
        setNonBlocking(out_.get());
        setNonBlocking(err_.get());
        if (in_.valid()) setNonBlocking(in_.get());
        pidfd_ = Fd(pidfdOpen(pid_));
    }

    ShellResult wait() {
        SigpipeGuard guard;
        while (true) {
            if (!childDone_) reapIfExited();
            if (childDone_ && !out_.valid() && !err_.valid()) break;
            auto now = SteadyClock::now();
            if (!childDone_) escalate(now);
            if (childDone_ && now >= deadline_) break;  // a grandchild keeps a pipe open
            pollOnce(now);
        }
        if (out_.valid()) readAvailable(out_, outBytes_);
        if (err_.valid()) readAvailable(err_, errBytes_);
        return ShellResult{Text::repairUtf8(outBytes_), Text::repairUtf8(errBytes_),
                           decodeStatus(status_)};
    }

private:
    static SteadyClock::duration toDuration(double seconds) {
        if (seconds < 0) seconds = 0;
        return std::chrono::duration_cast<SteadyClock::duration>(
            std::chrono::duration<double>(seconds));
    }

    void reapIfExited() {
        int status = 0;
        pid_t result;
        do {
            result = ::waitpid(pid_, &status, WNOHANG);
        } while (result < 0 && errno == EINTR);
        if (result == pid_) {
            childDone_ = true;
            status_ = status;
            in_.reset();
        } else if (result < 0) {
            // Someone else reaped it (a SIGCHLD handler set to SIG_IGN); nothing to wait for.
            childDone_ = true;
            status_ = 0;
        }
    }

    // The timeout: SIGTERM to the child's group at the deadline, SIGKILL 3 s later.
    // A cancellation moves the deadline to now.
    void escalate(SteadyClock::time_point now) {
        if (!termSent_ && cancellation_ != nullptr && cancellation_->isCancelled()) {
            deadline_ = std::min(deadline_, now);
        }
        if (!termSent_ && now >= deadline_) {
            signalGroup(SIGTERM);
            termSent_ = true;
            killAt_ = now + toDuration(Shell::kKillGraceSeconds);
        }
        if (termSent_ && !killSent_ && now >= killAt_) {
            signalGroup(SIGKILL);
            killSent_ = true;
        }
    }

    void signalGroup(int signal) {
        if (::kill(-pid_, signal) != 0) ::kill(pid_, signal);
    }

    int millisecondsUntilNextEvent(SteadyClock::time_point now) const {
        SteadyClock::time_point next = deadline_;
        if (!childDone_ && termSent_) next = killSent_ ? now + std::chrono::hours(1) : killAt_;
        // Without a pidfd (or a cancellation descriptor) the child's end (or the
        // cancellation) is noticed by looking every 10 ms.
        bool cancelUnseen = cancellation_ != nullptr && cancellation_->pollDescriptor() < 0;
        if (!childDone_ && (!pidfd_.valid() || cancelUnseen))
            next = std::min(next, now + std::chrono::milliseconds(10));
        if (next <= now) return 0;
        auto ms = std::chrono::ceil<std::chrono::milliseconds>(next - now).count();
        return static_cast<int>(std::min<long long>(ms, 60'000));
    }

    void pollOnce(SteadyClock::time_point now) {
        pollfd fds[5];
        int count = 0;
        int outIndex = -1, errIndex = -1, inIndex = -1, pidIndex = -1;
        if (out_.valid()) {
            outIndex = count;
            fds[count++] = pollfd{out_.get(), POLLIN, 0};
        }
        if (err_.valid()) {
            errIndex = count;
            fds[count++] = pollfd{err_.get(), POLLIN, 0};
        }
        if (in_.valid()) {
            inIndex = count;
            fds[count++] = pollfd{in_.get(), POLLOUT, 0};
        }
        if (!childDone_ && pidfd_.valid()) {
            pidIndex = count;
            fds[count++] = pollfd{pidfd_.get(), POLLIN, 0};
        }
        // Once SIGTERM went out the cancellation has nothing more to say; watching its
        // descriptor, which stays readable, would only spin.
        if (!childDone_ && !termSent_ && cancellation_ != nullptr &&
            cancellation_->pollDescriptor() >= 0) {
            fds[count++] = pollfd{cancellation_->pollDescriptor(), POLLIN, 0};
        }
        int ready = ::poll(fds, static_cast<nfds_t>(count), millisecondsUntilNextEvent(now));
        if (ready <= 0) return;  // timeout or EINTR: the loop re-evaluates
        if (outIndex >= 0 && fds[outIndex].revents != 0) readAvailable(out_, outBytes_);
        if (errIndex >= 0 && fds[errIndex].revents != 0) readAvailable(err_, errBytes_);
        if (inIndex >= 0 && fds[inIndex].revents != 0) writeInput();
        if (pidIndex >= 0 && fds[pidIndex].revents != 0) reapIfExited();
    }

    void writeInput() {
        while (inputOffset_ < input_.size()) {
            ssize_t n =
                ::write(in_.get(), input_.data() + inputOffset_, input_.size() - inputOffset_);
            if (n > 0) {
                inputOffset_ += static_cast<size_t>(n);
                continue;
            }
            if (n < 0 && errno == EINTR) continue;
            if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
            break;  // EPIPE: the child stopped reading
        }
        in_.reset();
    }

    pid_t pid_;
    Fd out_, err_, in_, pidfd_;
    std::string input_;
    size_t inputOffset_ = 0;
    std::string outBytes_, errBytes_;
    SteadyClock::time_point deadline_, killAt_{};
    const Cancellation* cancellation_;
    bool childDone_ = false, termSent_ = false, killSent_ = false;
    int status_ = 0;
};

class SpawnSetup {
public:
    SpawnSetup() {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
    }
    ~SpawnSetup() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;

    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

// The steps of a detached start that can fail after the fork. The failing process
// writes the step and its errno to the report pipe; a successful exec closes the pipe
// (it is close-on-exec) without a word.
enum class DetachedStep : int { newSession, secondFork, nullStreams, enterFolder, exec };

struct DetachedFailure {
    DetachedStep step;
    int error;
};

[[noreturn]] void reportAndExit(int reportFd, DetachedStep step) {
    DetachedFailure failure{step, errno};
    // One write below PIPE_BUF arrives whole, and the parent reads until the pipe ends.
    [[maybe_unused]] ssize_t written = ::write(reportFd, &failure, sizeof failure);
    ::_exit(127);
}

// Runs in the child of fork() of a process that may have other threads, so only
// async-signal-safe calls are allowed until exec: everything was prepared before.
// The child leaves our session and forks once more; the grandchild is orphaned as
// soon as the child exits, so the system reaps it, never us.
[[noreturn]] void becomeDetachedProgram(const char* executable, char* const* argv,
                                        char* const* envp, const char* cwd, int reportFd) {
    if (::setsid() < 0) reportAndExit(reportFd, DetachedStep::newSession);
    // _Fork, unlike fork, runs no fork handlers and is async-signal-safe.
    pid_t grandchild = ::_Fork();
    if (grandchild < 0) reportAndExit(reportFd, DetachedStep::secondFork);
    if (grandchild > 0) ::_exit(0);

    sigset_t none;
    sigemptyset(&none);
    ::pthread_sigmask(SIG_SETMASK, &none, nullptr);
    struct sigaction defaults {};
    defaults.sa_handler = SIG_DFL;
    sigemptyset(&defaults.sa_mask);
    for (int signal : kSignalsResetForChildren) ::sigaction(signal, &defaults, nullptr);

    // Our pipes and terminal are no business of a program that outlives us.
    int null = ::open("/dev/null", O_RDWR);
    if (null < 0) reportAndExit(reportFd, DetachedStep::nullStreams);
    for (int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::dup2(null, stream) < 0) reportAndExit(reportFd, DetachedStep::nullStreams);
    }
    if (null > STDERR_FILENO) ::close(null);
    if (cwd != nullptr && ::chdir(cwd) != 0) reportAndExit(reportFd, DetachedStep::enterFolder);
    ::execve(executable, argv, envp);
    reportAndExit(reportFd, DetachedStep::exec);
}

std::string describeFailure(const DetachedFailure& failure, const ProcessRequest& request,
                            const std::optional<std::string>& cwd) {
    const char* reason = std::strerror(failure.error);
    switch (failure.step) {
        case DetachedStep::newSession: return fmt::format("setsid: {}", reason);
        case DetachedStep::secondFork: return fmt::format("fork: {}", reason);
        case DetachedStep::nullStreams: return fmt::format("/dev/null: {}", reason);
        case DetachedStep::enterFolder:
            return fmt::format("cannot enter working folder {}: {}", cwd.value_or(""), reason);
        case DetachedStep::exec:
            return fmt::format("cannot start {}: {}", request.executable, reason);
    }
    return fmt::format("cannot start {}", request.executable);
}

}  // namespace

ShellResult ProcessRunner::loginShell(const std::string& commandLine,
                                      std::optional<std::string> cwd, double timeout,
                                      const Cancellation* cancellation) const {
    ProcessRequest request;
    request.cancellation = cancellation;
    request.executable = Shell::loginShellPath();
    request.arguments = {"-lc", commandLine};
    request.cwd = std::move(cwd);
    request.timeout = timeout;
    return run(request);
}

bool Shell::isExecutableFile(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && S_ISREG(info.st_mode) &&
           ::access(path.c_str(), X_OK) == 0;
}

std::optional<std::string> Shell::findInPath(std::string_view name, std::string_view searchPath) {
    size_t start = 0;
    while (start <= searchPath.size()) {
        size_t end = searchPath.find(':', start);
        if (end == std::string_view::npos) end = searchPath.size();
        std::string_view folder = searchPath.substr(start, end - start);
        if (!folder.empty()) {
            std::string candidate = std::string(folder) + "/" + std::string(name);
            if (isExecutableFile(candidate)) return candidate;
        }
        start = end + 1;
    }
    return std::nullopt;
}

std::string Shell::enrichedPath(std::optional<std::string_view> current) {
    std::string base = current ? std::string(*current) : "/usr/bin:/bin:/usr/sbin:/sbin";
    std::set<std::string> present;
    size_t start = 0;
    while (start <= base.size()) {
        size_t end = base.find(':', start);
        if (end == std::string::npos) end = base.size();
        if (end > start) present.insert(base.substr(start, end - start));
        start = end + 1;
    }
    std::string home = PathHelpers::homeDirectory().string();
    const std::string candidates[] = {
        home + "/.local/bin", home + "/bin",        home + "/.cargo/bin", home + "/go/bin",
        "/opt/homebrew/bin",  "/opt/homebrew/sbin", "/usr/local/bin",     "/usr/local/sbin"};
    std::string result;
    for (const auto& candidate : candidates) {
        if (present.count(candidate) != 0) continue;
        result += candidate;
        result += ':';
    }
    return result + base;
}

std::string Shell::loginShellPath() {
    long size = sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(size > 0 ? static_cast<size_t>(size) : 16384);
    passwd entry{};
    passwd* found = nullptr;
    if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 &&
        found != nullptr && found->pw_shell != nullptr && found->pw_shell[0] == '/' &&
        ::access(found->pw_shell, X_OK) == 0) {
        return found->pw_shell;
    }
    return "/bin/sh";
}

ShellResult Shell::run(const ProcessRequest& request) const {
    if (request.cancellation != nullptr && request.cancellation->isCancelled()) {
        return launchFailure("not started: the work it belonged to was cancelled");
    }
    std::string problem;
    std::optional<std::string> cwd = workingFolder(request, problem);
    if (!problem.empty()) return launchFailure(std::move(problem));

    Pipe out, err, in;
    if (!makePipe(out) || !makePipe(err) || (request.standardInput && !makePipe(in))) {
        return launchFailure(fmt::format("pipe2: {}", std::strerror(errno)));
    }

    SpawnSetup setup;
    if (request.standardInput) {
        posix_spawn_file_actions_adddup2(&setup.actions_, in.read.get(), STDIN_FILENO);
    } else {
        posix_spawn_file_actions_addopen(&setup.actions_, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    }
    posix_spawn_file_actions_adddup2(&setup.actions_, out.write.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&setup.actions_, err.write.get(), STDERR_FILENO);
    if (cwd) posix_spawn_file_actions_addchdir_np(&setup.actions_, cwd->c_str());

    // A session of its own: no controlling terminal to prompt on, and one group to
    // signal on timeout. Signals this process ignores or blocks are reset for the child.
    sigset_t none, defaults;
    sigemptyset(&none);
    sigemptyset(&defaults);
    for (int signal : kSignalsResetForChildren) sigaddset(&defaults, signal);
    posix_spawnattr_setsigmask(&setup.attributes_, &none);
    posix_spawnattr_setsigdefault(&setup.attributes_, &defaults);
    posix_spawnattr_setflags(&setup.attributes_,
                             POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

    std::vector<std::string> argvStrings = argumentVector(request);
    std::vector<std::string> envStrings = childEnvironment(request);
    std::vector<char*> argv = pointers(argvStrings);
    std::vector<char*> envp = pointers(envStrings);

    pid_t pid = 0;
    int rc = ::posix_spawn(&pid, request.executable.c_str(), &setup.actions_, &setup.attributes_,
                           argv.data(), envp.data());
    out.write.reset();
    err.write.reset();
    in.read.reset();
    if (rc != 0) {
        return launchFailure(
            fmt::format("cannot start {}: {}", request.executable, std::strerror(rc)));
    }
    Supervisor supervisor(pid, out, err, in, request.standardInput.value_or(""), request.timeout,
                          request.cancellation);
    return supervisor.wait();
}

LaunchResult Shell::startDetached(const ProcessRequest& request) const {
    if (request.cancellation != nullptr && request.cancellation->isCancelled()) {
        return LaunchResult{false, "not started: the work it belonged to was cancelled"};
    }
    std::string problem;
    std::optional<std::string> cwd = workingFolder(request, problem);
    if (!problem.empty()) return LaunchResult{false, std::move(problem)};

    std::vector<std::string> argvStrings = argumentVector(request);
    std::vector<std::string> envStrings = childEnvironment(request);
    std::vector<char*> argv = pointers(argvStrings);
    std::vector<char*> envp = pointers(envStrings);
    Pipe report;
    if (!makePipe(report))
        return LaunchResult{false, fmt::format("pipe2: {}", std::strerror(errno))};

    pid_t child = ::fork();
    if (child < 0) return LaunchResult{false, fmt::format("fork: {}", std::strerror(errno))};
    if (child == 0) {
        becomeDetachedProgram(request.executable.c_str(), argv.data(), envp.data(),
                              cwd ? cwd->c_str() : nullptr, report.write.get());
    }
    report.write.reset();

    // The pipe ends when the program is running (exec closed it) or a step failed.
    DetachedFailure failure{};
    size_t received = 0;
    while (received < sizeof failure) {
        ssize_t n = ::read(report.read.get(), reinterpret_cast<char*>(&failure) + received,
                           sizeof failure - received);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        received += static_cast<size_t>(n);
    }
    // The intermediate child exits at once; reaping it leaves no zombie behind.
    int status = 0;
    while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {}
    if (received == sizeof failure) {
        return LaunchResult{false, describeFailure(failure, request, cwd)};
    }
    return LaunchResult{true, ""};
}

}  // namespace quorvane
