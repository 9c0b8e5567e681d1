// How fast the dashboard answers its two busiest reads, Today and Agent Review,
// with a hundred tracked repositories holding a year of history and a review
// queue of settings changes and git pushes an agent asked for. The real daemon
// serves them; the benchmark logs in with a one-time link as a browser would and
// asks over one keep-alive connection, timing each request from sent to read.
//
//   quorvane_bench_dashboard [--repos N] [--requests N] [--proposals N]
#include <curl/curl.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "bench/Corpus.hpp"
#include "persistence/Store.hpp"
#include "platform/Clock.hpp"
#include "platform/Shell.hpp"
#include "platform/UnixSocket.hpp"
#include "testing/BackgroundProcess.hpp"
#include "testing/LineClient.hpp"
#include "testing/TempDir.hpp"

namespace {

using namespace quorvane;
using namespace std::chrono_literals;
using SteadyClock = std::chrono::steady_clock;

constexpr int kHistoryDays = 365;
constexpr int kWarmUp = 5;

double secondsSince(SteadyClock::time_point start) {
    return std::chrono::duration<double>(SteadyClock::now() - start).count();
}

ShellResult runQuorvane(const std::filesystem::path& dataDir, std::vector<std::string> arguments) {
    ProcessRequest request;
    request.executable = QUORVANE_BINARY;
    request.arguments = std::move(arguments);
    request.arguments.push_back("--data-dir");
    request.arguments.push_back(dataDir.string());
    request.timeout = 900;
    ShellResult result = Shell().run(request);
    if (!result.succeeded()) std::cerr << result.stdOut << result.stdErr;
    return result;
}

size_t appendBody(char* data, size_t size, size_t count, void* sink) {
    static_cast<std::string*>(sink)->append(data, size * count);
    return size * count;
}

// One libcurl handle, so that every request after the first reuses its connection
// as a browser's page does.
class DashboardClient {
public:
    DashboardClient() : curl_(curl_easy_init()) {
        if (curl_ == nullptr) throw std::runtime_error("curl_easy_init failed");
        curl_easy_setopt(curl_, CURLOPT_WRITEFUNCTION, appendBody);
        curl_easy_setopt(curl_, CURLOPT_WRITEDATA, &body_);
        curl_easy_setopt(curl_, CURLOPT_HEADERFUNCTION, appendBody);
        curl_easy_setopt(curl_, CURLOPT_HEADERDATA, &headers_);
        curl_easy_setopt(curl_, CURLOPT_FOLLOWLOCATION, 0L);
        curl_easy_setopt(curl_, CURLOPT_TIMEOUT, 120L);
        // The cookie engine on, with nothing to load: it keeps what /login sets.
        curl_easy_setopt(curl_, CURLOPT_COOKIEFILE, "");
    }
    ~DashboardClient() { curl_easy_cleanup(curl_); }
    DashboardClient(const DashboardClient&) = delete;
    DashboardClient& operator=(const DashboardClient&) = delete;

    // The status of a GET of `url`; the body and headers stay until the next one.
    long get(const std::string& url) {
        body_.clear();
        headers_.clear();
        curl_easy_setopt(curl_, CURLOPT_URL, url.c_str());
        CURLcode done = curl_easy_perform(curl_);
        if (done != CURLE_OK) {
            throw std::runtime_error(fmt::format("GET {}: {}", url, curl_easy_strerror(done)));
        }
        long status = 0;
        curl_easy_getinfo(curl_, CURLINFO_RESPONSE_CODE, &status);
        long opened = 0;
        curl_easy_getinfo(curl_, CURLINFO_NUM_CONNECTS, &opened);
        connections_ += opened;
        return status;
    }
    const std::string& body() const { return body_; }
    const std::string& headers() const { return headers_; }
    long connections() const { return connections_; }

private:
    CURL* curl_;
    std::string body_;
    std::string headers_;
    long connections_ = 0;
};

struct Figures {
    size_t requests = 0;
    double p50 = 0, p95 = 0, max = 0;
    size_t bytes = 0;
};

// Nearest rank: the smallest time that `quantile` of the requests did not exceed.
double rank(const std::vector<double>& sorted, double quantile) {
    size_t at = static_cast<size_t>(std::ceil(quantile * static_cast<double>(sorted.size())));
    return sorted[std::clamp<size_t>(at, 1, sorted.size()) - 1];
}

Figures measure(DashboardClient& client, const std::string& url, int requests) {
    for (int i = 0; i < kWarmUp; ++i) client.get(url);
    std::vector<double> millis;
    Figures figures;
    for (int i = 0; i < requests; ++i) {
        auto start = SteadyClock::now();
        long status = client.get(url);
        millis.push_back(
            std::chrono::duration<double, std::milli>(SteadyClock::now() - start).count());
        if (status != 200) {
            throw std::runtime_error(
                fmt::format("GET {} answered {}: {}", url, status, client.body()));
        }
        figures.bytes = client.body().size();
    }
    std::sort(millis.begin(), millis.end());
    figures.requests = millis.size();
    figures.p50 = rank(millis, 0.50);
    figures.p95 = rank(millis, 0.95);
    figures.max = millis.back();
    return figures;
}

// The review queue an agent leaves: every other proposal a git push of a repository
// with an upstream, the rest changes to repositories' settings. Each answer must
// say a proposal was made; the number made comes back.
int askForReview(const std::filesystem::path& socket, const std::vector<std::string>& repos,
                 int count) {
    testing::LineClient agent(socket);
    if (!agent.connected()) throw std::runtime_error("cannot connect to the agent socket");
    static const char* kFields[] = {"priority", "category", "aliases", "trackingEnabled"};
    int made = 0;
    for (int i = 0; i < count; ++i) {
        // Repositories 3 and 4 of every 8 have an upstream to push to.
        const std::string& pushed = repos[(static_cast<size_t>(i / 2) * 8 + 3) % repos.size()];
        const std::string& changed = repos[(static_cast<size_t>(i / 2) * 8 + 1) % repos.size()];
        Json reply;
        if (i % 2 == 0) {
            reply = agent.call("git_push", {{"repoId", pushed}});
        } else {
            std::string field = kFields[(i / 2) % 4];
            Json value = field == "priority"   ? Json("high")
                         : field == "category" ? Json("client work")
                         : field == "aliases"  ? Json::array({fmt::format("bench-{}", i)})
                                               : Json(false);
            reply = agent.call(
                "propose_settings_change",
                {{"changes",
                  Json::array({{{"repoId", changed}, {"field", field}, {"value", value}}})}});
        }
        // A git push without a token is turned into a proposal and answered so.
        std::string said = reply.dump();
        if (said.find("proposal") == std::string::npos) {
            throw std::runtime_error("the agent's request made no proposal: " + said);
        }
        ++made;
    }
    return made;
}

void print(const std::string& endpoint, const Figures& f) {
    std::cout << fmt::format(
        "GET {:<18} {:4} requests   p50 {:7.2f} ms   p95 {:7.2f} ms   max {:7.2f} ms   answer "
        "{} bytes\n",
        endpoint, f.requests, f.p50, f.p95, f.max, f.bytes);
}

std::string readText(const std::filesystem::path& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

int run(int repos, int requests, int proposals) {
    bench::useBenchIdentity();
    testing::TempDir root("quorvane-bench-dashboard");
    const std::filesystem::path dataDir = root / "data";

    auto started = SteadyClock::now();
    bench::Corpus corpus = bench::buildCorpus(root / "code", repos, kHistoryDays);
    const double buildSeconds = secondsSince(started);

    // Enrolled as a person does it: a year of history read when they are added.
    for (const std::vector<std::string>& set :
         {std::vector<std::string>{"config", "set", "historyDays", std::to_string(kHistoryDays)},
          std::vector<std::string>{"config", "set", "agent.permissionLevel", "safeGit"},
          std::vector<std::string>{"config", "add", "agent.allowedRoots", corpus.root.string()}}) {
        if (!runQuorvane(dataDir, set).succeeded()) return 1;
    }
    started = SteadyClock::now();
    std::vector<std::string> add = {"repos", "add"};
    add.insert(add.end(), corpus.paths.begin(), corpus.paths.end());
    if (!runQuorvane(dataDir, add).succeeded()) return 1;
    const double enrolSeconds = secondsSince(started);
    size_t stored = 0;
    {
        SystemClock clock;
        Store store(dataDir, clock);
        store.load();
        stored = store.commits(std::nullopt).size();
    }
    std::cout << fmt::format(
        "corpus: {} repositories, {} commits over {} days, built in {:.1f} s\n",
        corpus.paths.size(), corpus.commits, kHistoryDays, buildSeconds);
    std::cout << fmt::format(
        "enrolled with repos add (historyDays {}) in {:.1f} s: {} commits in "
        "the store\n",
        kHistoryDays, enrolSeconds, stored);

    testing::BackgroundProcess daemon(QUORVANE_BINARY, {"daemon", "--data-dir", dataDir.string()},
                                      root / "daemon.log");
    started = SteadyClock::now();
    const std::filesystem::path address = dataDir / "dashboard.json";
    bool ready = testing::eventually(300s, [&] {
        return daemon.output().find("ready;") != std::string::npos &&
               std::filesystem::exists(address);
    });
    if (!ready) {
        std::cerr << "the daemon did not get ready:\n" << daemon.output();
        return 1;
    }
    std::cerr << fmt::format("daemon ready after {:.1f} s\n", secondsSince(started));

    std::vector<std::string> ids;
    for (const std::string& path : corpus.paths) {
        ids.push_back(std::filesystem::canonical(path).string());
    }
    const int made = askForReview(dataDir / "quorvane-agent.sock", ids, proposals);
    std::cerr << fmt::format("{} proposals made on the agent socket\n", made);

    // The login link, fetched without following its redirect: the answer sets the
    // session cookie the client keeps from then on.
    ShellResult printed = runQuorvane(dataDir, {"dashboard", "url"});
    size_t at = printed.stdOut.find("http://127.0.0.1:");
    if (!printed.succeeded() || at == std::string::npos) {
        std::cerr << "no login link in: " << printed.stdOut << "\n";
        return 1;
    }
    const std::string link =
        printed.stdOut.substr(at, printed.stdOut.find_first_of(" \n", at) - at);
    const int port = Json::parse(readText(address)).at("port").get<int>();
    const std::string base = fmt::format("http://127.0.0.1:{}", port);

    DashboardClient client;
    long loggedIn = client.get(link);
    if (loggedIn != 303 || client.headers().find("quorvane_session=") == std::string::npos) {
        std::cerr << fmt::format("the login link answered {} without a session\n", loggedIn);
        return 1;
    }
    Figures today = measure(client, base + "/api/v1/today", requests);
    Figures review = measure(client, base + "/api/v1/proposals", requests);
    const size_t waiting = Json::parse(client.body()).size();

    std::cout << fmt::format("review queue: {} pending proposals ({} asked for)\n", waiting, made);
    print("/api/v1/today", today);
    print("/api/v1/proposals", review);
    std::cout << fmt::format("connections opened: {} for {} requests (keep-alive)\n",
                             client.connections(), 1 + 2 * (kWarmUp + requests));

    daemon.signal(SIGTERM);
    std::optional<int> status = daemon.waitForExit(60s);
    if (!status || *status != 0) {
        std::cerr << "the daemon did not stop cleanly:\n" << daemon.output();
        return 1;
    }
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    ::signal(SIGPIPE, SIG_IGN);
    int repos = 100, requests = 200, proposals = 20;
    bool understood = true;
    for (int i = 1; i < argc; i += 2) {
        std::string flag = argv[i];
        int value = i + 1 < argc ? std::atoi(argv[i + 1]) : 0;
        if (flag == "--repos")
            repos = value;
        else if (flag == "--requests")
            requests = value;
        else if (flag == "--proposals")
            proposals = value;
        else
            understood = false;
    }
    if (!understood || repos < 1 || requests < 1 || proposals < 0) {
        std::cerr << "usage: quorvane_bench_dashboard [--repos N] [--requests N] "
                     "[--proposals N]\n";
        return 2;
    }
    curl_global_init(CURL_GLOBAL_DEFAULT);
    try {
        int status = run(repos, requests, proposals);
        curl_global_cleanup();
        return status;
    } catch (const std::exception& error) {
        std::cerr << "quorvane_bench_dashboard: " << error.what() << "\n";
        return 1;
    }
}
