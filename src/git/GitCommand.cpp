#include "git/GitCommand.hpp"

#include <algorithm>

#include "base/TextHelpers.hpp"

namespace quorvane::GitCommand {

namespace {

constexpr std::string_view kFilterPrefix = "filter.";

void setConfigCount(ProcessRequest& request, size_t count) {
    for (auto& [name, value] : request.environment) {
        if (name == "GIT_CONFIG_COUNT") {
            value = std::to_string(count);
            return;
        }
    }
    request.environment.emplace_back("GIT_CONFIG_COUNT", std::to_string(count));
}

size_t configCount(const ProcessRequest& request) {
    for (const auto& [name, value] : request.environment) {
        long long count = 0;
        if (name == "GIT_CONFIG_COUNT" && Text::parseInt(value, count) && count > 0) {
            return static_cast<size_t>(count);
        }
    }
    return 0;
}

void addSettings(ProcessRequest& request,
                 const std::vector<std::pair<std::string, std::string>>& settings) {
    size_t index = configCount(request);
    for (const auto& [key, value] : settings) {
        request.environment.emplace_back("GIT_CONFIG_KEY_" + std::to_string(index), key);
        request.environment.emplace_back("GIT_CONFIG_VALUE_" + std::to_string(index), value);
        ++index;
    }
    setConfigCount(request, index);
}

// Variables that would make a child work on another repository, index or object
// store than the one it is pointed at.
std::vector<std::string> repositoryRedirects() {
    return {"GIT_DIR",    "GIT_WORK_TREE", "GIT_INDEX_FILE",      "GIT_COMMON_DIR",
            "GIT_PREFIX", "GIT_NAMESPACE", "GIT_OBJECT_DIRECTORY"};
}

}  // namespace

const std::vector<std::pair<std::string, std::string>>& readOnlySettings() {
    static const std::vector<std::pair<std::string, std::string>> settings = {
        // A monitor hook or daemon named by the repository would run on every status.
        {"core.fsmonitor", "false"},
        // No read command runs hooks, but none can be found here should one ever do.
        {"core.hooksPath", "/dev/null"},
        // "cat" is git's own word for no pager; nothing is started for it.
        {"core.pager", "cat"},
        {"core.askPass", ""},
        // An empty value clears the list of credential helpers.
        {"credential.helper", ""},
        // With it on, `log` hands every signed commit to the configured gpg.program.
        {"log.showSignature", "false"},
        {"protocol.allow", "never"},
    };
    return settings;
}

ProcessRequest request(const std::string& path, std::vector<std::string> arguments, double timeout,
                       const Cancellation* cancellation) {
    ProcessRequest request;
    request.executable = std::string(kGitPath);
    request.arguments = std::move(arguments);
    request.cwd = path;
    request.timeout = timeout;
    request.cancellation = cancellation;
    request.environment = {
        {"GIT_OPTIONAL_LOCKS", "0"},
        {"GIT_TERMINAL_PROMPT", "0"},
        {"GIT_PAGER", "cat"},
        // Set and empty, it refuses every transport, whatever protocol.<name>.allow
        // the repository's own configuration says.
        {"GIT_ALLOW_PROTOCOL", ""},
    };
    request.unsetEnvironment = repositoryRedirects();
    // Our settings are the only command-line configuration, so nothing else can
    // come after them and win.
    request.unsetEnvironment.insert(
        request.unsetEnvironment.end(),
        {"GIT_CONFIG_PARAMETERS", "GIT_CONFIG_COUNT", "GIT_EXTERNAL_DIFF"});
    addSettings(request, readOnlySettings());
    return request;
}

ProcessRequest confirmedActionRequest(std::vector<std::string> arguments, double timeout) {
    ProcessRequest request;
    request.executable = std::string(kGitPath);
    request.arguments = std::move(arguments);
    request.timeout = timeout;
    request.environment = {{"GIT_TERMINAL_PROMPT", "0"}, {"GIT_PAGER", "cat"}};
    request.unsetEnvironment = repositoryRedirects();
    return request;
}

std::vector<std::string> filterDriverQuery() {
    return {"config", "--show-scope", "--includes", "-z", "--name-only", "--get-regexp",
            "^filter\\."};
}

std::vector<std::string> repositoryFilterDrivers(std::string_view queryOutput) {
    // Pairs of scope and key, each ended by a NUL.
    std::vector<std::string_view> fields;
    size_t start = 0;
    while (start < queryOutput.size()) {
        size_t end = queryOutput.find('\0', start);
        if (end == std::string_view::npos) end = queryOutput.size();
        fields.push_back(queryOutput.substr(start, end - start));
        start = end + 1;
    }
    std::vector<std::string> drivers;
    for (size_t i = 0; i + 1 < fields.size(); i += 2) {
        addRepositoryFilterDriver(drivers, fields[i], fields[i + 1]);
    }
    return drivers;
}

void addRepositoryFilterDriver(std::vector<std::string>& drivers, std::string_view scope,
                               std::string_view key) {
    if (scope == "global" || scope == "system") return;
    if (!key.starts_with(kFilterPrefix)) return;
    std::string_view rest = key.substr(kFilterPrefix.size());
    size_t lastDot = rest.rfind('.');
    if (lastDot == std::string_view::npos || lastDot == 0) return;
    std::string name(rest.substr(0, lastDot));
    if (std::find(drivers.begin(), drivers.end(), name) == drivers.end()) {
        drivers.push_back(std::move(name));
    }
}

void disableFilterDrivers(ProcessRequest& request, const std::vector<std::string>& drivers) {
    std::vector<std::pair<std::string, std::string>> settings;
    for (const std::string& driver : drivers) {
        std::string section = std::string(kFilterPrefix) + driver;
        // An empty command is no command; "required" would otherwise make git stop
        // with an error because the filter did not run.
        settings.emplace_back(section + ".clean", "");
        settings.emplace_back(section + ".smudge", "");
        settings.emplace_back(section + ".process", "");
        settings.emplace_back(section + ".required", "false");
    }
    addSettings(request, settings);
}

}  // namespace quorvane::GitCommand
