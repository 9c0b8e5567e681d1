// Runs `quorvane daemon` over the benchmark corpus and prints what it costs while
// nothing happens, minute by minute, then while one file in one repository changes
// every second: CPU seconds, wake-ups (context switches of all its threads) and
// resident memory, peak and current. The daemon scans every `--interval` minutes
// (1 by default, so that each idle minute holds a periodic scan).
//
//   quorvane_bench_daemon [--repos N] [--idle SECONDS] [--touch SECONDS] [--interval MINUTES]
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <fmt/format.h>

#include "bench/Corpus.hpp"
#include "platform/Shell.hpp"
#include "testing/BackgroundProcess.hpp"
#include "testing/TempDir.hpp"

namespace {

using namespace quorvane;
using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

// What the kernel has counted for a process so far.
struct Usage {
    double cpuSeconds = 0;     // user plus system time of all its threads
    long contextSwitches = 0;  // voluntary and involuntary, all threads
    long peakKiB = 0;          // VmHWM: the highest resident set size
    long currentKiB = 0;       // VmRSS: the resident set size now
};

std::string readText(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

long statusField(const std::string& status, const std::string& name) {
    size_t at = status.find(name + ":");
    return at == std::string::npos ? 0 : std::atol(status.c_str() + at + name.size() + 1);
}

Usage usageOf(pid_t pid) {
    Usage usage;
    std::string stat = readText(fmt::format("/proc/{}/stat", pid));
    // Fields after the command name, which sits in parentheses and may hold spaces.
    std::istringstream fields(stat.substr(stat.rfind(')') + 2));
    std::vector<std::string> values;
    for (std::string value; fields >> value;) values.push_back(value);
    double ticks = static_cast<double>(sysconf(_SC_CLK_TCK));
    if (values.size() > 13) {
        usage.cpuSeconds = (std::stod(values[11]) + std::stod(values[12])) / ticks;
    }
    std::string own = readText(fmt::format("/proc/{}/status", pid));
    usage.peakKiB = statusField(own, "VmHWM");
    usage.currentKiB = statusField(own, "VmRSS");
    for (const auto& task :
         std::filesystem::directory_iterator(fmt::format("/proc/{}/task", pid))) {
        std::string status = readText((task.path() / "status").string());
        usage.contextSwitches += statusField(status, "voluntary_ctxt_switches") +
                                 statusField(status, "nonvoluntary_ctxt_switches");
    }
    return usage;
}

void report(const std::string& phase, int seconds, const Usage& before, const Usage& after) {
    std::cout << fmt::format(
        "{:<34} {:3} s  cpu {:7.3f} s  wake-ups {:6}  peak {:7.1f} MiB  now {:7.1f} MiB\n", phase,
        seconds, after.cpuSeconds - before.cpuSeconds,
        after.contextSwitches - before.contextSwitches, static_cast<double>(after.peakKiB) / 1024.0,
        static_cast<double>(after.currentKiB) / 1024.0);
}

int runQuorvane(const std::filesystem::path& dataDir, std::vector<std::string> arguments) {
    ProcessRequest request;
    request.executable = QUORVANE_BINARY;
    request.arguments = std::move(arguments);
    request.arguments.push_back("--data-dir");
    request.arguments.push_back(dataDir.string());
    request.timeout = 600;
    ShellResult result = Shell().run(request);
    if (!result.succeeded()) std::cerr << result.stdErr;
    return result.exitCode;
}

}  // namespace

int main(int argc, char** argv) {
    int repos = 100, idle = 60, touch = 60, interval = 1;
    for (int i = 1; i + 1 < argc; i += 2) {
        std::string flag = argv[i];
        if (flag == "--repos") repos = std::atoi(argv[i + 1]);
        if (flag == "--idle") idle = std::atoi(argv[i + 1]);
        if (flag == "--touch") touch = std::atoi(argv[i + 1]);
        if (flag == "--interval") interval = std::atoi(argv[i + 1]);
    }
    if (repos < 1 || idle < 1 || touch < 1 || interval < 1) {
        std::cerr << "usage: quorvane_bench_daemon [--repos N] [--idle SECONDS] [--touch SECONDS] "
                     "[--interval MINUTES]\n";
        return 2;
    }
    bench::useBenchIdentity();
    testing::TempDir root("quorvane-bench");
    bench::Corpus corpus = bench::buildCorpus(root / "code", repos);
    std::filesystem::path dataDir = root / "data";

    std::vector<std::string> add = {"repos", "add"};
    add.insert(add.end(), corpus.paths.begin(), corpus.paths.end());
    if (runQuorvane(dataDir, add) != 0) return 1;
    // The periodic scan is what an idle daemon spends on: by default one falls in
    // every idle minute measured.
    if (runQuorvane(dataDir, {"config", "set", "scanIntervalMinutes", std::to_string(interval)}) !=
        0) {
        return 1;
    }

    testing::BackgroundProcess daemon(QUORVANE_BINARY, {"daemon", "--data-dir", dataDir.string()},
                                      root / "daemon.log");
    // Ready once it says so: the first scan is saved and the watches are set. A
    // thousand repositories take their first scan and a watch on every folder.
    auto started = SteadyClock::now();
    bool ready = testing::eventually(std::chrono::seconds(300 + repos), [&] {
        return daemon.output().find("ready;") != std::string::npos;
    });
    if (!ready) {
        std::cerr << "the daemon did not get ready:\n" << daemon.output();
        return 1;
    }
    double startSeconds = std::chrono::duration<double>(SteadyClock::now() - started).count();
    std::cout << fmt::format("corpus: {} repositories, {} commits, {} files\n", corpus.paths.size(),
                             corpus.commits, corpus.files);
    std::cout << fmt::format("daemon ready after {:.1f} s (first scan saved, watches set)\n",
                             startSeconds);

    // A minute at a time, so a cost that comes with the periodic scan shows in
    // each minute it falls in, and memory that creeps shows as it creeps.
    Usage idleStart = usageOf(daemon.pid());
    Usage minuteStart = idleStart;
    for (int done = 0, minute = 1; done < idle; ++minute) {
        int length = std::min(60, idle - done);
        std::this_thread::sleep_for(std::chrono::seconds(length));
        done += length;
        Usage minuteEnd = usageOf(daemon.pid());
        if (idle > 60)
            report(fmt::format("idle, minute {}", minute), length, minuteStart, minuteEnd);
        minuteStart = minuteEnd;
    }
    Usage idleEnd = minuteStart;
    report("idle, no activity", idle, idleStart, idleEnd);
    std::cout << fmt::format("idle cpu per minute: {:.3f} s\n",
                             (idleEnd.cpuSeconds - idleStart.cpuSeconds) * 60.0 / idle);

    std::filesystem::path touched = std::filesystem::path(corpus.paths.front()) / "touched.txt";
    for (int s = 0; s < touch; ++s) {
        std::ofstream(touched, std::ios::app) << "tick " << s << '\n';
        std::this_thread::sleep_for(1s);
    }
    Usage touchEnd = usageOf(daemon.pid());
    report("one file touched every second", touch, idleEnd, touchEnd);

    auto stopAt = SteadyClock::now();
    daemon.signal(SIGTERM);
    std::optional<int> status = daemon.waitForExit(60s);
    double stopSeconds = std::chrono::duration<double>(SteadyClock::now() - stopAt).count();
    if (!status || *status != 0) {
        std::cerr << "the daemon did not stop cleanly:\n" << daemon.output();
        return 1;
    }
    std::cout << fmt::format("SIGTERM to exit 0: {:.3f} s\n", stopSeconds);
    return 0;
}
