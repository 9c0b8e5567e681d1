// The person's side of the agent: what agents proposed, the decision on each, the
// audit log of every agent call, and whether the agent socket is up.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <ostream>
#include <sstream>

#include <fmt/format.h>

#include "agent/AgentTools.hpp"
#include "agent/GitProposalReview.hpp"
#include "app/AppEnvironment.hpp"
#include "base/EnumNames.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "cli/CommandSupport.hpp"
#include "cli/CommandTable.hpp"
#include "cli/ControlProtocol.hpp"
#include "cli/Style.hpp"
#include "git/RepoDiscovery.hpp"
#include "persistence/Store.hpp"
#include "platform/UnixSocket.hpp"
#include "screens/ProposalReviewModel.hpp"

namespace quorvane::Commands {

inline constexpr int kDefaultAuditLines = 50;

namespace {

std::string localTime(Date date) {
    return DateHelpers::dateKey(date) + " " + localClockTime(date);
}

Tone statusTone(PendingProposal::Status status) {
    switch (status) {
        case PendingProposal::Status::pending: return Tone::attention;
        case PendingProposal::Status::approved: return Tone::good;
        case PendingProposal::Status::applied: return Tone::dim;
        case PendingProposal::Status::rejected:
        case PendingProposal::Status::expired: return Tone::dim;
    }
    return Tone::plain;
}

// The proposal a person means: the full id, or a prefix of at least four characters
// that only one proposal has. Nothing otherwise, with the reason on stderr.
std::optional<PendingProposal> findProposal(const CommandContext& context,
                                            const std::vector<PendingProposal>& proposals,
                                            const std::string& key) {
    std::vector<const PendingProposal*> matches;
    for (const PendingProposal& proposal : proposals) {
        if (proposal.id == key) return proposal;
        if (key.size() >= 4 && proposal.id.size() >= key.size() &&
            std::equal(key.begin(), key.end(), proposal.id.begin(),
                       [](char a, char b) { return std::toupper(a) == std::toupper(b); })) {
            matches.push_back(&proposal);
        }
    }
    if (matches.size() == 1) return *matches[0];
    context.err << fmt::format(
        fmt::runtime(matches.empty()
                         ? "quorvane: no proposal has the id {} (see: quorvane proposals --all)\n"
                         : "quorvane: {} matches several proposals; give more of the id\n"),
        key);
    return std::nullopt;
}

// The arguments exactly as the action will take them: JSON in which every
// character but printable ASCII is JSON's own escape, so that no control acts on
// the terminal and no look-alike letter passes for another.
std::string argumentsShown(const std::string& payloadJSON) {
    const Json args = Json::parse(payloadJSON, nullptr, false);
    if (args.is_discarded()) return Text::visible(payloadJSON);
    return args.dump(-1, ' ', true, Json::error_handler_t::replace);
}

// The title a person reads in a list: an agent's words, and for a git command the
// address it will connect to.
std::string titleShown(const PendingProposal& proposal,
                       const std::optional<GitProposalReview>& review) {
    std::string title = Text::visible(proposal.title);
    if (!review) return title;
    title += " → " + Text::visible(review->remote.name);
    for (const std::string& url : review->remote.urls) title += " " + Text::visible(url);
    return title;
}

// A command line after `label`, wrapped so that the lines pasted into a shell still
// run as one command.
void printCommand(std::ostream& out, const std::string& label, const std::string& command,
                  size_t columns) {
    std::vector<std::string> lines =
        TextLayout::wrapCommand(command, columns > label.size() ? columns - label.size() : 0);
    for (size_t i = 0; i < lines.size(); ++i) {
        out << (i == 0 ? label : std::string(label.size(), ' ')) << lines[i] << "\n";
    }
}

// Whether a git review starts with the command line, or leaves it to a line that
// has already said it.
enum class CommandLine { shown, alreadySaid };

// A git command's own lines: what runs, where it connects, and what of the
// repository's configuration takes part; every value with its controls visible.
void printGitReview(std::ostream& out, const GitProposalReview& review, size_t columns,
                    CommandLine commandLine = CommandLine::shown) {
    if (commandLine == CommandLine::shown) {
        printCommand(out, "  Command:   ", Text::commandLine(review.command), columns);
    }
    std::string remote = Text::visible(review.remote.name);
    for (const std::string& url : review.remote.urls) remote += " " + Text::visible(url);
    if (review.remote.urls.empty()) remote += " (no address configured)";
    printWrapped(out, remote, columns, "  Remote:    ");
    if (!review.settings.empty() || !review.hooks.empty()) {
        out << "  The repository's own settings and hooks it runs with:\n";
        for (const std::string& setting : review.settings) {
            printWrapped(out, Text::visible(setting), columns, "    ");
        }
        for (const std::string& hook : review.hooks) {
            printWrapped(out, "hook " + Text::visible(hook), columns, "    ");
        }
    }
    printWrapped(out,
                 "It runs as if you typed it, with your own and the repository's settings, "
                 "hooks and credential helpers.",
                 columns, "  ");
}

// What approving `proposal` changes, measured against the configuration and links
// as they stand and the folders as they are on disk now.
ProposalReviewModel::Change changeFrom(const CommandContext& context,
                                       const PendingProposal& proposal,
                                       const std::optional<GitProposalReview>& review,
                                       const AppConfig& config,
                                       const std::vector<RepositoryMapping>& mappings) {
    const RepoDiscovery discovery(context.runner);
    const ProposalReviewModel::Standing standing{
        config, mappings, PathHelpers::homeDirectory().string(), [&](const std::string& folder) {
            return discovery.repositoriesUnder(folder, config.agent.maxScanDepth);
        }};
    return ProposalReviewModel::changeOf(proposal, review, standing);
}

// "Change:", a line per thing changed as "what: before → after", what to know
// first, and the command line that runs. The model's texts are ready to show.
void printChange(const CommandContext& context, const ProposalReviewModel::Change& change) {
    std::ostream& out = context.out;
    out << "\n";
    if (change.rows.empty() && change.warnings.empty() && !change.command) {
        out << "Change:    none\n";
        return;
    }
    if (!change.rows.empty() || !change.warnings.empty()) out << "Change:\n";
    for (const ProposalReviewModel::Row& row : change.rows) {
        printWrapped(out, row.what + ": " + row.before + " → " + row.after, context.columns, "  ");
    }
    for (const std::string& warning : change.warnings) {
        printWrapped(out, Style::paint(context, Tone::attention, "warning: " + warning),
                     context.columns, "  ");
    }
    if (change.command) printCommand(out, "Runs: ", *change.command, context.columns);
}

// What keeps a listening socket from being made at `path`, as far as can be told
// from outside the daemon that tried; empty when nothing there does.
std::string socketPathProblem(const std::filesystem::path& path) {
    // The limit counts the terminating NUL, as the address does.
    if (path.native().size() + 1 > UnixSocket::kMaxPathBytes) {
        return fmt::format("its path is longer than {} bytes", UnixSocket::kMaxPathBytes - 1);
    }
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) {
        if (errno == ENOENT) return "";
        if (errno == ENOTDIR) return "a folder on its path is a file";
        return std::strerror(errno);
    }
    if (S_ISDIR(info.st_mode)) return "a folder is in its place";
    if (S_ISREG(info.st_mode)) return "a regular file is in its place";
    if (!S_ISSOCK(info.st_mode)) return "something other than a socket is in its place";
    return "nothing listens on the socket file there";
}

// Whether an approval must be refused because no one typed it at a terminal. A
// coding agent runs commands in a shell of its own, whose standard input is no
// terminal: without this it could approve what it proposed itself. Asked in the
// program that was started, before anything is sent: the daemon's own input says
// nothing of the client's. True, with the reason on stderr, refuses.
bool approvalNeedsTerminal(const CommandContext& context) {
    if (::isatty(STDIN_FILENO) == 1) return false;
    const std::optional<AppConfig> config = readConfig(context);
    if (!config) return true;  // readConfig has said why
    if (!config->agent.requireGuiConfirmation) return false;
    context.err << "quorvane: not approved: standard input is not a terminal, so this may be a "
                   "coding agent's own shell approving its own proposal. Approve it in the "
                   "dashboard's Agent Review (quorvane open review) or from a terminal; "
                   "'quorvane config set agent.requireGuiConfirmation false' lifts this check\n";
    return true;
}

}  // namespace

// What agents have asked for, and the person's answer. Listing, showing and the
// audit log only read; approving and rejecting change the data folder, so they go
// to the daemon while it runs. A proposal is named by its id or the first
// characters of it.
int proposalsList(CommandContext& context, bool all, bool json) {
    Store store(context.dataDir, context.clock, Store::Access::readOnly);
    if (!loadForReading(context, store)) return 1;
    std::vector<PendingProposal> proposals = store.proposals(
        all ? std::nullopt
            : std::optional<PendingProposal::Status>(PendingProposal::Status::pending));
    if (json) {
        Json array = Json::array();
        for (const PendingProposal& proposal : proposals)
            array.push_back(ProposalReviewModel::listing(proposal));
        context.out << JsonCodec::pretty(array);
        return 0;
    }
    if (proposals.empty()) {
        context.out << (all ? "No agent has proposed anything yet.\n"
                            : "No proposals are waiting for you.\n");
        return 0;
    }
    // Without a readable configuration the list still shows; git commands then go
    // without their remote, and readConfig has said why.
    const std::optional<AppConfig> config = readConfig(context);
    std::vector<std::vector<std::string>> rows = {{"ID", "CREATED", "KIND", "STATUS", "TITLE"}};
    for (const PendingProposal& proposal : proposals) {
        std::optional<GitProposalReview> review =
            proposal.status == PendingProposal::Status::pending && config
                ? GitProposalReview::of(proposal, *config, context.runner)
                : std::nullopt;
        rows.push_back(
            {Style::paint(context, Tone::dim, shortID(proposal.id)), localTime(proposal.createdAt),
             std::string(enumName(proposal.kind)),
             Style::paint(context, statusTone(proposal.status), enumName(proposal.status)),
             Style::paint(
                 context,
                 ProposalReviewModel::isDestructive(proposal) ? Tone::problem : Tone::plain,
                 titleShown(proposal, review))});
    }
    using TextLayout::Shrink;
    printTable(context.out, rows,
               {context.columns,
                {Shrink::never, Shrink::never, Shrink::never, Shrink::never, Shrink::wrap},
                true});
    context.out << "\nRead one with:    quorvane proposals show ID\n"
                   "Approve one with: quorvane proposals approve ID\n"
                   "Reject one with:  quorvane proposals reject ID\n";
    return 0;
}

int proposalsShow(CommandContext& context, const std::string& id, bool json) {
    Store store(context.dataDir, context.clock, Store::Access::readOnly);
    if (!loadForReading(context, store)) return 1;
    std::optional<PendingProposal> proposal =
        findProposal(context, store.proposals(std::nullopt), id);
    if (!proposal) return 1;
    if (json) {
        context.out << JsonCodec::pretty(ProposalReviewModel::listing(*proposal));
        return 0;
    }
    std::ostream& out = context.out;
    out << fmt::format("Proposal {}\n", proposal->id);
    out << fmt::format("  Title:     {}\n", Text::visible(proposal->title));
    out << fmt::format("  Kind:      {}\n", enumName(proposal->kind));
    out << fmt::format("  Status:    {}\n", Style::paint(context, statusTone(proposal->status),
                                                         enumName(proposal->status)));
    out << fmt::format("  Created:   {}\n", localTime(proposal->createdAt));
    if (proposal->intendedTool) {
        out << fmt::format("  Tool:      {}\n", Text::visible(*proposal->intendedTool));
    }
    if (!proposal->payloadJSON.empty() && proposal->payloadJSON != "{}") {
        out << fmt::format("  Arguments: {}\n", argumentsShown(proposal->payloadJSON));
    }
    if (proposal->confidence) out << fmt::format("  Confidence: {}%\n", *proposal->confidence);
    if (proposal->status == PendingProposal::Status::approved && proposal->expiresAt) {
        const bool lapsed = *proposal->expiresAt < context.clock.now();
        out << fmt::format("  Token:     {} {}\n", lapsed ? "expired at" : "valid until",
                           localTime(*proposal->expiresAt));
    }
    if (std::optional<AppConfig> config = readConfig(context); !config) {
        out << "Change:    not shown: config.json cannot be read (see above)\n";
    } else {
        std::optional<GitProposalReview> review =
            GitProposalReview::of(*proposal, *config, context.runner);
        printChange(context, changeFrom(context, *proposal, review, *config, store.mappings()));
        if (review) printGitReview(out, *review, context.columns, CommandLine::alreadySaid);
    }
    out << "\n";
    const std::string summary = Text::visible(proposal->summary);
    printWrapped(out,
                 ProposalReviewModel::isDestructive(*proposal)
                     ? Style::paint(context, Tone::problem, summary)
                     : summary,
                 context.columns, "  ");
    for (const std::string& line : proposal->evidence) {
        printWrapped(out, Text::visible(line), context.columns, "  - ");
    }
    if (proposal->status == PendingProposal::Status::pending) {
        const std::string shortName = shortID(proposal->id);
        out << fmt::format(
            "\nApprove with: quorvane proposals approve {}\n"
            "Reject with:  quorvane proposals reject {}\n",
            shortName, shortName);
    }
    return 0;
}

int proposalsApprove(CommandContext& context, const std::string& id, bool json) {
    // Sent to the daemon, the client asked before sending.
    if (context.service == nullptr && approvalNeedsTerminal(context)) return 1;
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    AppEnvironment& env = writer->env();
    std::optional<PendingProposal> proposal = findProposal(context, env.proposals(), id);
    if (!proposal) return 1;
    if (proposal->kind == PendingProposal::Kind::cleanupPlan) {
        context.err << "quorvane: a cleanup plan is for reading; approving it would authorise "
                       "nothing\n";
        return 1;
    }
    // Read before the approval, as the person reads it in the review.
    std::optional<GitProposalReview> review =
        GitProposalReview::of(*proposal, env.config(), context.runner);
    AppEnvironment::ProposalDecision decision = env.approveProposal(proposal->id);
    if (!decision.problem.empty()) {
        context.err << fmt::format("quorvane: {}\n", decision.problem);
        return 1;
    }
    const Date expiresAt = decision.proposal->expiresAt.value_or(context.clock.now());
    if (json) {
        context.out << JsonCodec::pretty(Json{{"proposalId", decision.proposal->id},
                                              {"confirmationToken", decision.token},
                                              {"expiresAt", toJson(expiresAt)}});
        return 0;
    }
    context.out << fmt::format(
        "approved: {}\n"
        "token:    {}\n"
        "valid until {} ({} minutes), for this one action only.\n"
        "The agent fetches the token itself with get_proposal_status, or you can paste it\n"
        "as its confirmationToken.\n",
        Text::visible(decision.proposal->title), decision.token, localTime(expiresAt),
        AppEnvironment::kTokenLifetimeSeconds / 60);
    if (review) {
        context.out << "\n";
        printGitReview(context.out, *review, context.columns);
    }
    return 0;
}

int proposalsReject(CommandContext& context, const std::string& id) {
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    AppEnvironment& env = writer->env();
    std::optional<PendingProposal> proposal = findProposal(context, env.proposals(), id);
    if (!proposal) return 1;
    AppEnvironment::ProposalDecision decision = env.rejectProposal(proposal->id);
    if (!decision.problem.empty()) {
        context.err << fmt::format("quorvane: {}\n", decision.problem);
        return 1;
    }
    context.out << fmt::format("rejected: {}\n", Text::visible(decision.proposal->title));
    return 0;
}

int auditLog(CommandContext& context, int limit, bool json) {
    Store store(context.dataDir, context.clock, Store::Access::readOnly);
    if (!loadForReading(context, store)) return 1;
    std::vector<AuditLogEntry> entries = store.auditEntries(static_cast<size_t>(limit));
    if (json) {
        Json array = Json::array();
        for (const AuditLogEntry& entry : entries) array.push_back(toJson(entry));
        context.out << JsonCodec::pretty(array);
        return 0;
    }
    if (entries.empty()) {
        context.out << "No agent calls yet.\n";
        return 0;
    }
    std::vector<std::vector<std::string>> rows = {{"WHEN", "ACTOR", "TOOL", "STATUS"}};
    std::vector<std::string> details = {""};
    // Oldest first, so the latest call is the last line, next to the prompt.
    for (auto it = entries.rbegin(); it != entries.rend(); ++it) {
        const AuditLogEntry& entry = *it;
        Tone tone = entry.status == "ok" ? Tone::good
                    : entry.status == "confirmation_required" || entry.status == "token_disclosed"
                        ? Tone::attention
                        : Tone::problem;
        rows.push_back({localTime(entry.at), Text::visible(entry.actor), Text::visible(entry.tool),
                        Style::paint(context, tone, Text::visible(entry.status))});
        details.push_back(Text::visible(
            entry.detail && !entry.detail->empty() ? *entry.detail : entry.argsSummary));
    }
    // One line a call, and what it was about indented below it: the detail is a
    // sentence or a list of arguments, too long to share a line at any width.
    using TextLayout::Shrink;
    std::ostringstream table;
    printTable(
        table, rows,
        {context.columns, {Shrink::never, Shrink::never, Shrink::cutEnd, Shrink::never}, true});
    std::istringstream lines(table.str());
    std::string line;
    for (size_t row = 0; std::getline(lines, line); ++row) {
        context.out << line << "\n";
        if (row < details.size() && !details[row].empty()) {
            printWrapped(context.out, details[row], context.columns, "    ");
        }
    }
    return 0;
}

int agentStatus(CommandContext& context, bool json) {
    std::optional<AppConfig> read = readConfig(context);
    if (!read) return 1;
    const AppConfig& config = *read;
    const std::filesystem::path socketPath =
        AppEnvironment::agentSocketPath(config, context.dataDir);
    // Listening means a daemon answers there; a file alone may be left from a crash.
    const bool listening = UnixSocket::connect(socketPath).error == 0;
    // The daemon answers on its control socket whether or not it could open the agent's;
    // the connection is closed unused, which it takes as a client gone.
    const bool daemonRunning =
        listening || UnixSocket::connect(context.dataDir / ControlProtocol::kSocketName).error == 0;
    // Why agents cannot reach a daemon that runs: the daemon logs what its attempt
    // met, and the same is seen here at the path.
    std::optional<std::string> problem;
    if (!listening && daemonRunning && config.agent.enabled) {
        problem = socketPathProblem(socketPath);
        if (problem->empty()) problem = "no socket is there (the daemon logs why)";
    }
    Store store(context.dataDir, context.clock, Store::Access::readOnly);
    if (!loadForReading(context, store)) return 1;
    const size_t pending = store.proposals(PendingProposal::Status::pending).size();
    if (json) {
        context.out << JsonCodec::pretty(
            Json{{"socketPath", socketPath.string()},
                 {"running", listening},
                 {"daemonRunning", daemonRunning},
                 {"problem", problem ? Json(*problem) : Json()},
                 {"enabled", config.agent.enabled},
                 {"permissionLevel", enumName(config.agent.permissionLevel)},
                 {"allowedRoots", config.agent.allowedRoots},
                 {"toolCount", AgentTools::toolCount()},
                 {"pendingProposals", pending}});
        return 0;
    }
    std::string state;
    if (listening) {
        state = Style::paint(context, Tone::good, "running");
    } else if (!config.agent.enabled) {
        state = Style::paint(context, Tone::dim, "off (agent.enabled is false)");
    } else if (problem) {
        state = Style::paint(context, Tone::problem,
                             fmt::format("not running: the daemon runs, but its agent socket "
                                         "could not be opened at {}: {}",
                                         socketPath.string(), *problem));
    } else {
        state =
            Style::paint(context, Tone::attention, "not running (start it with: quorvane daemon)");
    }
    std::string roots;
    for (const std::string& root : config.agent.allowedRoots) {
        roots += (roots.empty() ? "" : ", ") + Text::visible(root);
    }
    if (roots.empty())
        roots = "none (every path is refused; the daemon fills them from the scan folders)";
    std::ostream& out = context.out;
    out << fmt::format("Agent server:      {}\n", state);
    out << fmt::format("Socket:            {}\n", socketPath.string());
    out << fmt::format("Permission level:  {}\n", enumName(config.agent.permissionLevel));
    printWrapped(out, roots, context.columns, "Allowed roots:     ");
    out << fmt::format("Tools:             {}\n", AgentTools::toolCount());
    out << fmt::format("Pending proposals: {}{}\n", pending,
                       pending > 0 ? " (see: quorvane proposals)" : "");
    return 0;
}

}  // namespace quorvane::Commands

namespace quorvane {

void declareProposalCommands(CommandTable& table) {
    auto& all = table.keep<bool>();
    auto& json = table.keep<bool>();
    CLI::App* proposals = table.add(
        "proposals",
        "List what coding agents have proposed, waiting for your decision\n"
        "An agent connected to the daemon's agent socket changes nothing on its own word:\n"
        "it proposes, you approve here, and approval mints a one-time token, valid 15\n"
        "minutes, that authorises exactly that action with exactly those arguments. The\n"
        "agent fetches the token and applies the action once. Every agent call is in\n"
        "'quorvane audit'.",
        {DataUse::reads, [&](CommandContext& c) { return Commands::proposalsList(c, all, json); }});
    proposals->require_subcommand(0, 1);
    proposals->add_flag("--all", all,
                        "Also list approved, applied, rejected and expired proposals");
    proposals->add_flag("--json", json, "Print the proposals as a JSON array");
    auto& id = table.keep<std::string>();
    CLI::App* show = table.add(
        proposals, "show", "Show one proposal in full: what it does, its tool and its arguments",
        {DataUse::reads, [&](CommandContext& c) { return Commands::proposalsShow(c, id, json); }});
    show->add_option("ID", id, "Proposal id, or its first characters")->required();
    show->add_flag("--json", json, "Print the proposal as JSON");
    CLI::App* approve = table.add(
        proposals, "approve",
        "Approve a proposal: prints the one-time token for it and when it expires\n"
        "Only from a terminal, so that an agent's own shell cannot approve what the agent\n"
        "proposed; the dashboard's Agent Review (quorvane open review) approves too.\n"
        "'quorvane config set agent.requireGuiConfirmation false' lets a script approve.",
        {DataUse::writes,
         [&](CommandContext& c) { return Commands::proposalsApprove(c, id, json); },
         [](CommandContext& c, ControlProtocol::Request&) {
             return !Commands::approvalNeedsTerminal(c);
         }});
    approve->add_option("ID", id, "Proposal id, or its first characters")->required();
    approve->add_flag("--json", json, "Print the id, token and expiry as JSON");
    table
        .add(proposals, "reject",
             "Turn a proposal down; a token already given for it stops working",
             {DataUse::writes, [&](CommandContext& c) { return Commands::proposalsReject(c, id); }})
        ->add_option("ID", id, "Proposal id, or its first characters")
        ->required();

    auto& limit = table.keep<int>(Commands::kDefaultAuditLines);
    CLI::App* audit = table.add(
        "audit",
        "Show the audit log of agent calls, and of your decisions on proposals\n"
        "Each line is one call: when, who (claude for an agent, user for you), the tool,\n"
        "how it ended and why. Tokens never appear in it. The log keeps 90 days and at\n"
        "most 5000 entries.",
        {DataUse::reads, [&](CommandContext& c) { return Commands::auditLog(c, limit, json); }});
    audit->add_option("--limit", limit, "How many of the newest entries to show")
        ->check(CLI::Range(1, 5000))
        ->capture_default_str();
    audit->add_flag("--json", json, "Print the entries as a JSON array, newest first");
}

}  // namespace quorvane
