#pragma once

#include <httplib.h>

#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/Clock.hpp"
#include "web/DashboardAccess.hpp"
#include "web/LoginLink.hpp"

namespace quorvane {

// The dashboard's HTTP server on the loopback address. Every request passes the
// access guard first; answers carry a strict content policy and are never shared
// with another origin. Routes of the API and the pages are added by the caller
// before `start`.
class DashboardServer {
public:
    struct Options {
        int port = 7717;
        // When `port` is taken, the next ones are tried, up to this many in all.
        int tries = 10;
        std::string key;  // the data folder's dashboard key
        // Connections served at once; more wait in the kernel's queue. An open
        // page's event stream holds one for as long as the page is open.
        size_t workers = 8;
    };

    using Handler = std::function<void(const httplib::Request&, httplib::Response&,
                                       const DashboardSessions::Session&)>;

    explicit DashboardServer(const Clock& clock);
    ~DashboardServer();
    DashboardServer(const DashboardServer&) = delete;
    DashboardServer& operator=(const DashboardServer&) = delete;

    void get(const std::string& pattern, Handler handler);
    void post(const std::string& pattern, Handler handler);

    // Binds and serves on a thread of its own. Returns why it could not bind, or
    // an empty text.
    std::string start(const Options& options);
    // The port it serves on, once started.
    int port() const { return port_; }
    // The address a person opens, without any login part.
    std::string address() const;
    // Stops accepting, lets the requests in flight finish and joins the thread.
    // What `whenStopping` was given runs first, so long answers (an event stream)
    // can end.
    void stop();
    void whenStopping(std::function<void()> action);

    // Everything a request may hold; beyond it the answer is 413.
    static constexpr size_t kMaxBody = 64 * 1024;

private:
    httplib::Server::HandlerResponse guard(const httplib::Request& request,
                                           httplib::Response& response);
    httplib::Server::Handler wrap(Handler handler);

    const Clock& clock_;
    httplib::Server server_;
    DashboardSessions sessions_;
    LoginLink::Tickets tickets_;
    std::string key_;
    int port_ = 0;
    std::thread thread_;
    std::atomic<bool> listenEnded_{false};
    std::vector<std::function<void()>> stopActions_;
};

}  // namespace quorvane
