#include "web/DashboardAccess.hpp"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "persistence/AtomicFile.hpp"
#include "testing/TempDir.hpp"
#include "web/DashboardKey.hpp"
#include "web/LoginLink.hpp"

namespace quorvane {
namespace {

const Date kNow = *DateHelpers::parseISO("2026-11-26T10:00:00Z");

std::map<std::string, std::string> queryOf(std::string_view path) {
    std::map<std::string, std::string> query;
    std::string_view rest = path.substr(path.find('?') + 1);
    while (!rest.empty()) {
        std::string_view pair = rest.substr(0, rest.find('&'));
        rest = pair.size() == rest.size() ? "" : rest.substr(pair.size() + 1);
        query[std::string(pair.substr(0, pair.find('=')))] =
            std::string(pair.substr(pair.find('=') + 1));
    }
    return query;
}

TEST(DashboardKeyTest, AKeyIsMadeOnceForTheOwnerAloneAndADamagedOrSharedOneIsSetAside) {
    testing::TempDir dir;
    EXPECT_NE(DashboardKey::read(dir.path()).problem, "");
    DashboardKey::Loaded made = DashboardKey::loadOrCreate(dir.path(), kNow);
    ASSERT_EQ(made.problem, "");
    EXPECT_TRUE(DashboardKey::wellFormed(made.key));
    struct stat info {};
    ASSERT_EQ(::stat((dir / "dashboard.key").c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    EXPECT_EQ(DashboardKey::loadOrCreate(dir.path(), kNow).key, made.key);
    EXPECT_EQ(DashboardKey::read(dir.path()).key, made.key);

    for (auto damage :
         {+[](const std::filesystem::path& p) { (void)AtomicFile::write(p, "short"); },
          +[](const std::filesystem::path& p) { ::chmod(p.c_str(), 0644); }}) {
        std::string before = DashboardKey::read(dir.path()).key;
        damage(dir / "dashboard.key");
        EXPECT_EQ(DashboardKey::read(dir.path()).key, "") << "a reader never uses it";
        DashboardKey::Loaded again = DashboardKey::loadOrCreate(dir.path(), kNow);
        ASSERT_EQ(again.problem, "");
        ASSERT_TRUE(again.setAside.has_value());
        EXPECT_TRUE(std::filesystem::exists(*again.setAside));
        EXPECT_NE(again.key, before);
    }
}

TEST(LoginLinkTest, ALinkLetsInOnceWithinItsLifetimeAndOnlyUnderTheKeyThatSignedIt) {
    std::string key = DashboardKey::generate();
    LoginLink::Tickets tickets;
    std::string page;
    auto link = queryOf(LoginLink::path(key, kNow, "review"));
    EXPECT_EQ(tickets.redeem(DashboardKey::generate(), link, kNow), LoginLink::Verdict::forged);
    EXPECT_EQ(tickets.redeem(key, link, kNow + std::chrono::seconds(30), &page),
              LoginLink::Verdict::accepted);
    EXPECT_EQ(page, "review");
    EXPECT_EQ(tickets.redeem(key, link, kNow + std::chrono::seconds(31)),
              LoginLink::Verdict::spent);

    auto late = queryOf(LoginLink::path(key, kNow, "today"));
    EXPECT_EQ(tickets.redeem(key, late, kNow + LoginLink::kLifetime + std::chrono::seconds(1)),
              LoginLink::Verdict::expired);
    // A link whose lifetime reaches further than any link is given is no link of ours.
    auto early = queryOf(LoginLink::path(key, kNow + std::chrono::hours(1), "today"));
    EXPECT_EQ(tickets.redeem(key, early, kNow), LoginLink::Verdict::expired);

    auto changed = queryOf(LoginLink::path(key, kNow, "today"));
    changed["to"] = "settings";  // another page under the same signature
    EXPECT_EQ(tickets.redeem(key, changed, kNow), LoginLink::Verdict::forged);
    for (const char* field : {"n", "e", "to", "s"}) {
        auto broken = queryOf(LoginLink::path(key, kNow, "today"));
        broken.erase(field);
        EXPECT_EQ(tickets.redeem(key, broken, kNow), LoginLink::Verdict::malformed) << field;
    }
    auto strange = queryOf(LoginLink::path(key, kNow, "today"));
    strange["to"] = "../etc";
    EXPECT_EQ(tickets.redeem(key, strange, kNow), LoginLink::Verdict::malformed);
}

TEST(DashboardAccessTest, OnlyTheLoopbackHostALiveSessionAndChangesFromItsOwnPagesGetIn) {
    DashboardSessions sessions;
    DashboardSessions::Session session = sessions.open(kNow);
    std::string cookie =
        "theme=dark; " + std::string(DashboardSessions::kCookie) + "=" + session.cookie;
    std::string other = std::string(DashboardSessions::kCookie) + "=" + std::string(64, 'a');
    struct Row {
        std::string method, path, host;
        std::optional<std::string> origin, cookies, csrf;
        int status;
    };
    const std::string local = "127.0.0.1:7717";
    const std::vector<Row> rows = {
        {"GET", "/today", local, {}, cookie, {}, 0},
        {"GET", "/today", "localhost:7717", {}, cookie, {}, 0},
        {"GET", "/today", "[::1]:7717", {}, cookie, {}, 0},
        {"GET", "/login", local, {}, {}, {}, 0},
        {"GET", "/login", "attacker.example:7717", {}, {}, {}, 403},
        {"GET", "/today", "attacker.example:7717", {}, cookie, {}, 403},
        {"GET", "/today", "127.0.0.1:7718", {}, cookie, {}, 403},
        {"GET", "/today", "127.0.0.1", {}, cookie, {}, 403},
        {"GET", "/today", local, {}, {}, {}, 401},
        {"GET", "/today", local, {}, other, {}, 401},
        {"POST", "/login", local, "http://" + local, {}, {}, 401},
        {"POST", "/api/v1/scan", local, "http://" + local, cookie, session.csrf, 0},
        {"POST", "/api/v1/scan", local, {}, cookie, session.csrf, 403},
        {"POST", "/api/v1/scan", local, "http://evil.example", cookie, session.csrf, 403},
        {"POST", "/api/v1/scan", local, "http://localhost:7717", cookie, session.csrf, 403},
        {"POST", "/api/v1/scan", local, "http://" + local, cookie, {}, 403},
        {"POST", "/api/v1/scan", local, "http://" + local, cookie, session.cookie, 403},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.method + " " + row.path + " Host " + row.host);
        auto view = [](const std::optional<std::string>& text) {
            return text ? std::optional<std::string_view>(*text) : std::nullopt;
        };
        DashboardAccess::Request request{row.method,       row.path,          row.host,
                                         view(row.origin), view(row.cookies), view(row.csrf)};
        EXPECT_EQ(DashboardAccess::check(request, 7717, sessions, kNow).status, row.status);
    }
    DashboardAccess::Request late{"GET", "/today", local, {}, cookie, {}};
    EXPECT_EQ(
        DashboardAccess::check(late, 7717, sessions, kNow + DashboardSessions::kLifetime).status,
        401);
}

}  // namespace
}  // namespace quorvane
