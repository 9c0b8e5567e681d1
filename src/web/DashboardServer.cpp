#include "web/DashboardServer.hpp"

#include <sys/socket.h>

#include <condition_variable>
#include <deque>
#include <mutex>

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include "base/Log.hpp"
#include "base/TextHelpers.hpp"

namespace quorvane {

namespace {

constexpr auto kIoTimeout = std::chrono::seconds(10);

// httplib's own pool queues every accepted connection without bound. This one
// makes the accepting thread wait while every worker is busy and `workers` more
// are queued, so a flood waits in the kernel's listen queue instead of in memory.
class BoundedPool : public httplib::TaskQueue {
public:
    explicit BoundedPool(size_t workers) : limit_(workers) {
        for (size_t i = 0; i < workers; ++i) threads_.emplace_back([this] { work(); });
    }
    ~BoundedPool() override { shutdown(); }

    void enqueue(std::function<void()> fn) override {
        std::unique_lock lock(mutex_);
        changed_.wait(lock, [&] { return stopping_ || jobs_.size() < limit_; });
        if (stopping_) return;
        jobs_.push_back(std::move(fn));
        changed_.notify_all();
    }

    void shutdown() override {
        {
            std::lock_guard lock(mutex_);
            if (stopping_ && threads_.empty()) return;
            stopping_ = true;
        }
        changed_.notify_all();
        for (std::thread& thread : threads_) thread.join();
        threads_.clear();
    }

private:
    void work() {
        while (true) {
            std::function<void()> job;
            {
                std::unique_lock lock(mutex_);
                changed_.wait(lock, [&] { return stopping_ || !jobs_.empty(); });
                // Jobs already accepted are served before the pool ends: each
                // holds a connection that must be answered and closed.
                if (jobs_.empty()) return;
                job = std::move(jobs_.front());
                jobs_.pop_front();
            }
            changed_.notify_all();
            job();
        }
    }

    const size_t limit_;
    std::mutex mutex_;
    std::condition_variable changed_;
    std::deque<std::function<void()>> jobs_;
    std::vector<std::thread> threads_;
    bool stopping_ = false;
};

void refuse(httplib::Response& response, int status, const std::string& reason) {
    response.status = status;
    response.set_content(nlohmann::json{{"error", reason}}.dump(), "application/json");
}

// A person who opened an address in the browser reads a page, not JSON: what went
// wrong and the command that lets them in.
void refuse(const httplib::Request& request, httplib::Response& response, int status,
            const std::string& reason) {
    if (request.get_header_value("Accept").find("text/html") == std::string::npos) {
        refuse(response, status, reason);
        return;
    }
    response.status = status;
    response.set_content(
        fmt::format("<!doctype html><html lang=\"en\"><head><meta charset=\"utf-8\">"
                    "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">"
                    "<title>Quorvane: not let in</title></head><body><main>"
                    "<h1>Quorvane: not let in</h1><p>{}.</p>"
                    "<p>Run <code>quorvane open</code> in a terminal: it opens the dashboard "
                    "with a link that logs you in. Over SSH, <code>quorvane dashboard url</code> "
                    "prints one.</p></main></body></html>",
                    Text::escapeMarkup(reason)),
        "text/html; charset=utf-8");
}

}  // namespace

DashboardServer::DashboardServer(const Clock& clock) : clock_(clock) {
    server_.set_default_headers({
        {"Content-Security-Policy",
         "default-src 'self'; frame-ancestors 'none'; base-uri 'none'; form-action 'self'"},
        {"X-Content-Type-Options", "nosniff"},
        {"Referrer-Policy", "no-referrer"},
        {"Cache-Control", "no-store"},
    });
    // httplib would also set SO_REUSEPORT, which lets another process of the same
    // user bind the very same port and take a share of the connections; only the
    // quick restart after TIME_WAIT is wanted.
    server_.set_socket_options([](int socket) {
        int yes = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    });
    // An answer goes out as headers and body in two writes; without this the body
    // waits for the browser's delayed acknowledgement, 40 ms on every request.
    server_.set_tcp_nodelay(true);
    server_.set_payload_max_length(kMaxBody);
    server_.set_read_timeout(kIoTimeout);
    server_.set_write_timeout(kIoTimeout);
    server_.set_keep_alive_timeout(5);
    server_.set_pre_routing_handler(
        [this](const httplib::Request& request, httplib::Response& response) {
            return guard(request, response);
        });

    server_.Get("/login", [this](const httplib::Request& request, httplib::Response& response) {
        std::map<std::string, std::string> query;
        for (const auto& [name, value] : request.params) query.emplace(name, value);
        std::string page;
        LoginLink::Verdict verdict = tickets_.redeem(key_, query, clock_.now(), &page);
        if (verdict != LoginLink::Verdict::accepted) {
            refuse(request, response, 401, std::string(LoginLink::explain(verdict)));
            return;
        }
        DashboardSessions::Session session = sessions_.open(clock_.now());
        response.set_header("Set-Cookie",
                            fmt::format("{}={}; HttpOnly; SameSite=Strict; Path=/; Max-Age={}",
                                        DashboardSessions::kCookie, session.cookie,
                                        DashboardSessions::kLifetime.count()));
        // To a clean address, so the link leaves nothing in the history.
        response.set_redirect("/" + page, 303);
    });
    get("/api/v1/session", [](const httplib::Request&, httplib::Response& response,
                              const DashboardSessions::Session& session) {
        response.set_content(nlohmann::json{{"csrfToken", session.csrf}}.dump(),
                             "application/json");
    });
}

DashboardServer::~DashboardServer() {
    stop();
}

httplib::Server::HandlerResponse DashboardServer::guard(const httplib::Request& request,
                                                        httplib::Response& response) {
    auto header = [&](const char* name) -> std::optional<std::string_view> {
        if (!request.has_header(name)) return std::nullopt;
        // Not a view into a temporary: the request owns its header values.
        auto found = request.headers.find(name);
        return std::string_view(found->second);
    };
    DashboardAccess::Request seen{request.method,
                                  request.path,
                                  header("Host").value_or(std::string_view()),
                                  header("Origin"),
                                  header("Cookie"),
                                  header(std::string(DashboardAccess::kCsrfHeader).c_str())};
    DashboardAccess::Verdict verdict = DashboardAccess::check(seen, port_, sessions_, clock_.now());
    if (verdict.status == 0) return httplib::Server::HandlerResponse::Unhandled;
    refuse(request, response, verdict.status, verdict.reason);
    return httplib::Server::HandlerResponse::Handled;
}

httplib::Server::Handler DashboardServer::wrap(Handler handler) {
    return [this, handler = std::move(handler)](const httplib::Request& request,
                                                httplib::Response& response) {
        std::optional<std::string_view> cookies;
        if (request.has_header("Cookie")) {
            cookies = std::string_view(request.headers.find("Cookie")->second);
        }
        std::optional<std::string_view> cookie;
        if (cookies) cookie = DashboardAccess::cookieValue(*cookies, DashboardSessions::kCookie);
        std::optional<DashboardSessions::Session> session;
        if (cookie) session = sessions_.find(*cookie, clock_.now());
        // The guard has let the request in; a session that ended since is refused.
        if (!session) {
            refuse(request, response, 401, "log in with the link 'quorvane open' gives");
            return;
        }
        handler(request, response, *session);
    };
}

void DashboardServer::get(const std::string& pattern, Handler handler) {
    server_.Get(pattern, wrap(std::move(handler)));
}

void DashboardServer::post(const std::string& pattern, Handler handler) {
    server_.Post(pattern, wrap(std::move(handler)));
}

std::string DashboardServer::start(const Options& options) {
    key_ = options.key;
    size_t workers = options.workers;
    server_.new_task_queue = [workers] { return new BoundedPool(workers); };
    for (int i = 0; i < options.tries; ++i) {
        int port = options.port + i;
        if (port > 65535) break;
        if (server_.bind_to_port("127.0.0.1", port)) {
            port_ = port;
            if (i > 0) {
                Log::app().info(
                    fmt::format("dashboard: port {} is taken, serving on {}", options.port, port));
            }
            listenEnded_ = false;
            thread_ = std::thread([this] {
                server_.listen_after_bind();
                listenEnded_ = true;
            });
            return "";
        }
    }
    return fmt::format("no free port for the dashboard from {} to {}", options.port,
                       options.port + options.tries - 1);
}

std::string DashboardServer::address() const {
    return fmt::format("http://127.0.0.1:{}/", port_);
}

void DashboardServer::whenStopping(std::function<void()> action) {
    stopActions_.push_back(std::move(action));
}

void DashboardServer::stop() {
    for (const auto& action : stopActions_) action();
    // httplib's stop does nothing until its loop has begun, and a loop begun after
    // it would wait in accept for ever: a server stopped at once after its start
    // waits for the loop first, which takes no longer than a thread takes to start.
    while (thread_.joinable() && !server_.is_running() && !listenEnded_) {
        std::this_thread::yield();
    }
    server_.stop();
    if (thread_.joinable()) thread_.join();
}

}  // namespace quorvane
