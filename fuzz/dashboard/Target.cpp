// The dashboard as a logged-in page, or anything else on this machine, could ask
// it: any method, address and body, sent over a real loopback connection to the
// server with every route of the daemon, on a real store in a folder of the
// target's own. No request makes it fail (an answer of 500). The guard every
// request passes, and the login link's check, are also fed raw fields.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cctype>
#include <cstdlib>
#include <memory>

#include <nlohmann/json.hpp>

#include "FuzzSupport.hpp"
#include "app/AppEnvironment.hpp"
#include "web/Dashboard.hpp"
#include "web/DashboardAccess.hpp"
#include "web/DashboardKey.hpp"
#include "web/DashboardServer.hpp"
#include "web/LoginLink.hpp"

namespace quorvane::fuzz {
namespace {

// Whether `answer` holds a whole HTTP response: its head, then the body its
// Content-Length gives (none for HEAD), or a chunked body's last chunk.
bool whole(const std::string& answer, bool head) {
    const size_t end = answer.find("\r\n\r\n");
    if (end == std::string::npos) return false;
    if (head) return true;
    std::string lower = answer.substr(0, end);
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (lower.find("transfer-encoding: chunked") != std::string::npos) {
        return answer.ends_with("0\r\n\r\n");
    }
    const size_t length = lower.find("content-length: ");
    if (length == std::string::npos) return false;
    return answer.size() - end - 4 >= std::stoull(lower.substr(length + 16));
}

// One request on a connection of its own; the whole answer, or what came of it
// before the server closed the connection or went quiet for two seconds.
std::string exchange(int port, const std::string& request, bool head = false) {
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) std::abort();
    timeval quiet{.tv_sec = 2, .tv_usec = 0};
    ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &quiet, sizeof quiet);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    std::string answer;
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0) {
        std::string_view rest = request;
        while (!rest.empty()) {
            const ssize_t sent = ::send(fd, rest.data(), rest.size(), MSG_NOSIGNAL);
            if (sent <= 0) break;
            rest.remove_prefix(static_cast<size_t>(sent));
        }
        char buffer[16384];
        ssize_t got;
        while (!whole(answer, head) && (got = ::recv(fd, buffer, sizeof buffer, 0)) > 0) {
            answer.append(buffer, size_t(got));
        }
    }
    ::close(fd);
    return answer;
}

// The daemon's dashboard, with one browser session logged in through a link.
class DashboardWorld {
public:
    DashboardWorld() {
        offline_.reply.transportError = "no network while fuzzing";
        env_.load();
        Dashboard::route(server_, env_, clock_, noChildren_);
        const int first = 40000 + static_cast<int>(::getpid() % 20000);
        if (!server_.start({.port = first, .tries = 100, .key = key_, .workers = 8}).empty()) {
            std::abort();
        }
        const std::string login = exchange(
            port(), "GET " + LoginLink::path(key_, clock_.now(), "today") + " HTTP/1.1\r\n" +
                        hostLine() + "Connection: close\r\n\r\n");
        const size_t at = login.find("quorvane_session=");
        if (at == std::string::npos) std::abort();
        cookie_ = login.substr(at, login.find(';', at) - at);
        const std::string session = exchange(
            port(), "GET /api/v1/session HTTP/1.1\r\n" + hostLine() + "Cookie: " + cookie_ +
                        "\r\nConnection: close\r\n\r\n");
        csrf_ = nlohmann::json::parse(session.substr(session.find("\r\n\r\n") + 4))
                    .at("csrfToken")
                    .get<std::string>();
    }

    int port() const { return server_.port(); }
    std::string hostLine() const { return "Host: 127.0.0.1:" + std::to_string(port()) + "\r\n"; }

    // What the page itself would send: its cookie, origin and CSRF token.
    std::string request(std::string_view method, std::string_view target,
                        std::string_view body) const {
        return std::string(method) + " " + std::string(target) + " HTTP/1.1\r\n" + hostLine() +
               "Cookie: " + cookie_ + "\r\nOrigin: http://127.0.0.1:" + std::to_string(port()) +
               "\r\nX-Quorvane-CSRF: " + csrf_ + "\r\nContent-Type: application/json\r\n" +
               "Content-Length: " + std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" +
               std::string(body);
    }

private:
    const std::filesystem::path folder_ = runFolder();
    // Before the environment is made, which may read them.
    const bool homeKept_ = (keepHomeIn(folder_), true);
    FixedClock clock_{fixedNoon()};
    NoChildren noChildren_;
    CannedTransport offline_;
    AppEnvironment env_{folder_ / "data", clock_, noChildren_, nullptr, &offline_};
    DashboardServer server_{clock_};
    const std::string key_ = DashboardKey::generate();
    std::string cookie_;
    std::string csrf_;
};

void guard(Input& input) {
    static DashboardSessions sessions;
    static const FixedClock clock(fixedNoon());
    static LoginLink::Tickets tickets;
    static const std::string key = DashboardKey::generate();
    auto optional = [](std::string_view text) {
        return text.empty() ? std::nullopt : std::optional<std::string_view>(text);
    };
    DashboardAccess::Request request;
    request.method = input.field();
    request.path = input.field();
    request.host = input.field();
    request.origin = optional(input.field());
    request.cookies = optional(input.field());
    request.csrf = optional(input.field());
    const DashboardAccess::Verdict verdict = DashboardAccess::check(request, 7717, sessions, clock.now());
    // Nobody logged in here, so only the login link itself may pass.
    if (verdict.status == 0 && request.path != "/login") std::abort();
    if (request.cookies) (void)DashboardAccess::cookieValue(*request.cookies, "quorvane_session");
    (void)DashboardAccess::hostAllowed(request.host, 7717);

    std::map<std::string, std::string> query;
    while (!input.empty()) {
        const std::string_view name = input.field('=');
        query.emplace(name, input.field('&'));
    }
    if (tickets.redeem(key, query, clock.now()) == LoginLink::Verdict::accepted) std::abort();
}

}  // namespace
}  // namespace quorvane::fuzz

// The first byte picks the method, or the guard's fields; then the request's
// target (path and query) on a line, and its body.
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace quorvane;
    fuzz::Input input(data, size);
    const uint8_t mode = input.byte();
    if (mode % 4 == 3) {
        fuzz::guard(input);
        return 0;
    }
    // Never destroyed (see runFolder); its server's thread waits for connections
    // until the process ends.
    static fuzz::DashboardWorld& world = *new fuzz::DashboardWorld;
    static constexpr std::string_view kMethods[] = {"GET", "POST", "POST", "PUT", "DELETE", "HEAD"};
    const std::string_view method = kMethods[(mode / 4) % std::size(kMethods)];
    const std::string_view target = input.field();
    // The event stream holds its connection for as long as the page is open.
    if (target.starts_with("/api/v1/events")) return 0;
    const std::string answer =
        fuzz::exchange(world.port(), world.request(method, target, input.rest()), method == "HEAD");
    if (answer.starts_with("HTTP/1.1 500")) std::abort();
    return 0;
}
