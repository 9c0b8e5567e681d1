#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <fmt/ranges.h>

#include "cli/CommandTable.hpp"
#include "web/DashboardOpener.hpp"
#include "web/LoginLink.hpp"

namespace quorvane::Commands {

namespace {

// The one-time address that logs this browser in and leads to `page`, or nothing
// with the reason on stderr.
std::optional<std::string> loginAddress(CommandContext& context, const std::string& page) {
    DashboardOpener::LoginAddress login =
        DashboardOpener::loginAddress(context.dataDir, context.clock.now(), page);
    if (login.address.empty()) {
        context.err << "quorvane: " << login.problem << "\n";
        return std::nullopt;
    }
    return login.address;
}

int dashboardUrl(CommandContext& context, const std::string& page) {
    std::optional<std::string> address = loginAddress(context, page);
    if (!address) return 1;
    context.out << *address << "\n";
    return 0;
}

int openDashboard(CommandContext& context, const std::string& page) {
    std::optional<std::string> address = loginAddress(context, page);
    if (!address) return 1;
    DashboardOpener::Opened opened = DashboardOpener::openInBrowser(context.runner, *address);
    switch (opened.outcome) {
        case DashboardOpener::Outcome::opened:
            context.out << fmt::format("Opened the dashboard's {} page in your browser.\n", page);
            return 0;
        case DashboardOpener::Outcome::failed:
            context.err << "quorvane: cannot start xdg-open: " << opened.problem << "\n";
            break;
        case DashboardOpener::Outcome::noDesktop: break;
    }
    // Without a desktop (over SSH, say) the person opens it where a browser is.
    context.out << fmt::format("Open this address within {} s; it logs in once:\n{}\n",
                               LoginLink::kLifetime.count(), *address);
    return 0;
}

}  // namespace
}  // namespace quorvane::Commands

namespace quorvane {

void declareDashboardCommands(CommandTable& table) {
    std::vector<std::string> pages(std::begin(LoginLink::kPages), std::end(LoginLink::kPages));
    auto pageOption = [pages](CLI::App* command, std::string& page) {
        command
            ->add_option("PAGE", page,
                         fmt::format("The screen: {} (default today)", fmt::join(pages, ", ")))
            ->check(CLI::IsMember(pages));
    };
    auto& openPage = table.keep<std::string>("today");
    CLI::App* open = table.add(
        "open",
        "Open the dashboard in your browser, logged in\n"
        "The running daemon serves it on the loopback address. The address carries a\n"
        "login that works once, within two minutes, and leaves nothing in the browser's\n"
        "history. Without a desktop it is printed instead.",
        {DataUse::reads, [&](CommandContext& c) { return Commands::openDashboard(c, openPage); }});
    pageOption(open, openPage);

    CLI::App* dashboard = table.group("dashboard", "The dashboard the daemon serves");
    auto& urlPage = table.keep<std::string>("today");
    CLI::App* url = table.add(
        dashboard, "url",
        "Print a one-time login address of the dashboard\n"
        "For a browser on another machine, through an SSH tunnel to the same port. It\n"
        "works once, within two minutes.",
        {DataUse::reads, [&](CommandContext& c) { return Commands::dashboardUrl(c, urlPage); }});
    pageOption(url, urlPage);
}

}  // namespace quorvane
