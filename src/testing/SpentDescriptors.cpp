#include "testing/SpentDescriptors.hpp"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <sstream>
#include <string>

namespace quorvane::testing {

namespace {

int highestOpenDescriptor() {
    int highest = STDERR_FILENO;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd", ec)) {
        try {
            highest = std::max(highest, std::stoi(entry.path().filename().string()));
        } catch (const std::exception&) {}
    }
    return highest;
}

}  // namespace

SpentDescriptors::SpentDescriptors() {
    if (::getrlimit(RLIMIT_NOFILE, &saved_) != 0) return;
    // A little room above the open ones, so the limit itself is what runs out.
    rlimit lowered = saved_;
    lowered.rlim_cur = static_cast<rlim_t>(highestOpenDescriptor()) + 8;
    if (lowered.rlim_cur > saved_.rlim_cur) return;
    if (::setrlimit(RLIMIT_NOFILE, &lowered) != 0) return;
    lowered_ = true;
    for (;;) {
        Fd fd(::fcntl(STDIN_FILENO, F_DUPFD_CLOEXEC, 0));
        if (!fd.valid()) {
            spent_ = errno == EMFILE;
            return;
        }
        taken_.push_back(std::move(fd));
    }
}

SpentDescriptors::~SpentDescriptors() {
    taken_.clear();
    if (lowered_) ::setrlimit(RLIMIT_NOFILE, &saved_);
}

std::set<pid_t> threadIds() {
    std::set<pid_t> ids;
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task", ec)) {
        try {
            ids.insert(static_cast<pid_t>(std::stol(entry.path().filename().string())));
        } catch (const std::exception&) {}
    }
    return ids;
}

ThreadCpuTime::ThreadCpuTime(pid_t thread)
    : stat_(::open(("/proc/self/task/" + std::to_string(thread) + "/stat").c_str(),
                   O_RDONLY | O_CLOEXEC)) {}

long ThreadCpuTime::ticks() const {
    char buffer[1024];
    // Read again from the start: the kernel makes the text anew for each read.
    ssize_t got = ::pread(stat_.get(), buffer, sizeof buffer - 1, 0);
    if (got <= 0) return -1;
    std::string text(buffer, static_cast<size_t>(got));
    // The name in parentheses may hold spaces; the fields after it do not.
    size_t close = text.rfind(')');
    if (close == std::string::npos) return -1;
    std::istringstream fields(text.substr(close + 1));
    std::string field;
    long user = -1, system = -1;
    // After the name come the state (field 3) and then fields 4 to 13; user and
    // system time are fields 14 and 15.
    for (int index = 3; index <= 15 && fields >> field; ++index) {
        if (index == 14) user = std::stol(field);
        if (index == 15) system = std::stol(field);
    }
    return user < 0 || system < 0 ? -1 : user + system;
}

}  // namespace quorvane::testing
