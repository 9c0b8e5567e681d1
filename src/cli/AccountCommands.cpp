// quorvane accounts: add, import-gh, list, check, remove.
#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <ostream>

#include <fmt/format.h>

#include "app/AppEnvironment.hpp"
#include "base/EnumNames.hpp"
#include "base/TextHelpers.hpp"
#include "cli/CommandSupport.hpp"
#include "cli/CommandTable.hpp"
#include "cli/Style.hpp"
#include "persistence/Store.hpp"
#include "screens/AccountsViewModel.hpp"

namespace quorvane::Commands {

struct AccountsAddOptions {
    std::string name;
    std::optional<std::string> apiURL;  // GitHub Enterprise Server's REST API
    bool json = false;
};

namespace {

using Status = GitHubAccount::Status;

using AccountsViewModel::kMaxTokenBytes;

// The terminal's settings while echo is off, put back by a signal that ends the
// program there, so a Ctrl-C at the prompt does not leave a terminal that types
// blind.
struct termios savedTerminal;
volatile sig_atomic_t echoIsOff = 0;

void restoreTerminalAndDie(int signal) {
    if (echoIsOff) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &savedTerminal);
    ::signal(signal, SIG_DFL);
    ::raise(signal);
}

class EchoOff {
public:
    EchoOff() {
        if (::tcgetattr(STDIN_FILENO, &savedTerminal) != 0) return;
        struct sigaction action {};
        action.sa_handler = restoreTerminalAndDie;
        for (int i = 0; i < 3; ++i) ::sigaction(kSignals[i], &action, &previous_[i]);
        struct termios quiet = savedTerminal;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        echoIsOff = ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet) == 0;
        active_ = true;
    }
    ~EchoOff() {
        if (!active_) return;
        if (echoIsOff) ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &savedTerminal);
        echoIsOff = 0;
        for (int i = 0; i < 3; ++i) ::sigaction(kSignals[i], &previous_[i], nullptr);
    }
    EchoOff(const EchoOff&) = delete;
    EchoOff& operator=(const EchoOff&) = delete;

private:
    static constexpr int kSignals[3] = {SIGINT, SIGTERM, SIGHUP};
    struct sigaction previous_[3]{};
    bool active_ = false;
};

// The first line of standard input, without its line end and surrounding blanks.
// On a terminal the person is asked for it and it is not echoed. Nothing, with
// the reason in `problem`, when there is no line or it is too long to be a token.
std::optional<std::string> readTokenLine(const CommandContext& context, const std::string& prompt,
                                         const std::string& noun, std::string& problem) {
    // Read already, by the command that sent this one to the daemon.
    bool given = context.input.has_value();
    bool terminal = !given && ::isatty(STDIN_FILENO) == 1;
    std::optional<EchoOff> echoOff;
    if (terminal) {
        // Echo goes off before the question: what is typed as soon as it shows must
        // not be shown.
        echoOff.emplace();
        context.err << prompt << std::flush;
    }
    std::string line = given ? context.input->substr(0, kMaxTokenBytes + 1) : std::string();
    char buffer[512];
    while (!given && line.find('\n') == std::string::npos && line.size() <= kMaxTokenBytes) {
        ssize_t n = ::read(STDIN_FILENO, buffer, sizeof buffer);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        line.append(buffer, static_cast<size_t>(n));
    }
    if (terminal) context.err << "\n";
    line = line.substr(0, line.find('\n'));
    if (line.size() > kMaxTokenBytes) {
        problem = "the " + noun + " on standard input is too long";
        return std::nullopt;
    }
    std::string token(Text::trim(line));
    if (token.empty()) {
        problem = "no " + noun + " on standard input: pipe it in, or type it when asked";
        return std::nullopt;
    }
    return token;
}

std::string authWord(const GitHubAccount& account) {
    return account.authType == GitHubAccount::AuthType::ghCLI ? "gh" : "token";
}

// The one account a person means by `key`: its id, a unique start of it (4
// characters at least), or its name or login, without regard to case.
const GitHubAccount* findAccount(const CommandContext& context,
                                 const std::vector<GitHubAccount>& accounts,
                                 const std::string& key) {
    std::vector<const GitHubAccount*> byID, byName;
    std::string lowered = Text::asciiLower(key);
    for (const GitHubAccount& account : accounts) {
        if (account.id == key) return &account;
        if (key.size() >= 4 && Text::asciiLower(account.id).starts_with(lowered)) {
            byID.push_back(&account);
        }
        if (Text::asciiLower(account.displayName) == lowered ||
            (!account.username.empty() && Text::asciiLower(account.username) == lowered)) {
            byName.push_back(&account);
        }
    }
    const std::vector<const GitHubAccount*>& matches = byName.empty() ? byID : byName;
    if (matches.size() == 1) return matches[0];
    if (matches.empty()) {
        context.err << fmt::format(
            "quorvane: no account is called {} (see: quorvane accounts list)\n", key);
    } else {
        context.err << fmt::format("quorvane: {} matches {} accounts; give its id\n", key,
                                   matches.size());
    }
    return nullptr;
}

// "Work (octocat): connected", or the status and GitHub's reason.
std::string describeCheck(const CommandContext& context,
                          const AppEnvironment::AccountCheck& check) {
    const GitHubAccount& account = check.account;
    std::string who = account.username.empty() || account.username == account.displayName
                          ? Text::visible(account.displayName)
                          : fmt::format("{} ({})", Text::visible(account.displayName),
                                        Text::visible(account.username));
    std::string status =
        Style::paint(context, Style::toneOf(account.status), enumName(account.status));
    if (check.problem.empty()) return fmt::format("{}: {}", who, status);
    return fmt::format("{}: {} — {}", who, status, Text::visible(check.problem));
}

// Prints a check's outcome; 0 when the account is connected.
int finishCheck(const CommandContext& context, AppEnvironment& env,
                const AppEnvironment::AccountCheck& check, const std::string& verb, bool json) {
    int status = check.account.status == Status::connected ? 0 : 1;
    if (!reportFlush(context, env.saveProblem())) status = 1;
    if (json) {
        context.out << JsonCodec::pretty(AccountsViewModel::toJson(check));
        return status;
    }
    printWrapped(context.out, describeCheck(context, check), context.columns, verb + " ");
    if (check.stored && !check.account.id.empty()) {
        context.out << "  id " << check.account.id << "\n";
    }
    return status;
}

}  // namespace

// The token for a new account called `name`: the first line of standard input,
// asked for without echo on a terminal. Nothing, with the reason in `problem`.
std::optional<std::string> readAccountToken(const CommandContext& context, const std::string& name,
                                            std::string& problem) {
    return readTokenLine(context, fmt::format("GitHub token for {}: ", Text::trim(name)), "token",
                         problem);
}

std::optional<std::string> readAIKey(const CommandContext& context, std::string& problem) {
    return readTokenLine(context, "Anthropic API key: ", "API key", problem);
}

// GitHub accounts. Adding reads the token from standard input, never from the
// arguments, and keeps it in the secret store only. Each exits 1 when the account
// is not connected afterwards.
int accountsAdd(CommandContext& context, const AccountsAddOptions& options) {
    std::string name(Text::trim(options.name));
    if (name.empty()) {
        context.err << "quorvane: --name must not be blank\n";
        return 2;
    }
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    AppEnvironment& env = writer->env();
    env.reconcileAccounts();
    for (const GitHubAccount& account : env.store().accounts()) {
        if (Text::asciiLower(account.displayName) == Text::asciiLower(name)) {
            context.err << fmt::format(
                "quorvane: an account called {} exists already; choose another --name\n", name);
            return 1;
        }
    }
    std::string problem;
    std::optional<std::string> token = readAccountToken(context, name, problem);
    if (!token) {
        context.err << "quorvane: " << problem << "\n";
        return 1;
    }
    std::optional<AppEnvironment::AccountCheck> check =
        env.addAccount(name, *token, options.apiURL);
    if (!check) {
        context.err << fmt::format("quorvane: nothing was added: {}\n", env.saveProblem());
        return 1;
    }
    int status = finishCheck(context, env, *check, "added", options.json);
    if (!options.json && check->account.status != Status::connected) {
        context.out << fmt::format(
            "  The account is kept. Check it again with: quorvane accounts check {}\n", name);
    }
    return status;
}

int accountsImportGh(CommandContext& context, const std::optional<std::string>& apiURL, bool json) {
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    AppEnvironment& env = writer->env();
    env.reconcileAccounts();
    std::optional<AppEnvironment::AccountCheck> check = env.importAccountFromGh(apiURL);
    if (!check) {
        context.err << "quorvane: no GitHub token found: GITHUB_TOKEN and GH_TOKEN are unset, "
                       "'gh auth token' gave none and git's credential helpers hold none for "
                       "github.com. Sign in with 'gh auth login' first.\n";
        return 1;
    }
    if (!check->stored) {
        context.err << fmt::format("quorvane: nothing was imported: {}\n",
                                   Text::visible(check->problem));
        return 1;
    }
    return finishCheck(context, env, *check, "imported", json);
}

int accountsList(CommandContext& context, bool json) {
    // The store holds the accounts; config.json only mirrors them, so one it cannot
    // give is left out, after the warning.
    std::optional<AppConfig> config = readConfig(context);
    Store store(context.dataDir, context.clock, Store::Access::readOnly);
    if (!loadForReading(context, store)) return 1;
    std::vector<GitHubAccount> accounts = store.accounts();
    // An account config.json still holds after the store's file was set aside is
    // one the next writer puts back: it is listed already.
    for (const GitHubAccount& mirrored : config.value_or(AppConfig{}).accounts) {
        if (std::none_of(accounts.begin(), accounts.end(),
                         [&](const GitHubAccount& a) { return a.id == mirrored.id; })) {
            accounts.push_back(mirrored);
        }
    }
    std::vector<AccountsViewModel::Row> rows =
        AccountsViewModel::rows(accounts, store.remoteRepos(std::nullopt), store.mappings());
    if (json) {
        Json array = Json::array();
        for (const AccountsViewModel::Row& row : rows) {
            array.push_back(AccountsViewModel::toJson(row));
        }
        context.out << JsonCodec::pretty(array);
        return 0;
    }
    if (accounts.empty()) {
        context.out << "No GitHub account yet. Add one with: quorvane accounts add --name NAME "
                       "(the token is read from standard input), or take gh's with: quorvane "
                       "accounts import-gh\n";
        return 0;
    }
    std::vector<std::vector<std::string>> table = {
        {"ID", "NAME", "LOGIN", "AUTH", "STATUS", "REPOS", "MAPPED", "SYNC", "LAST SYNC"}};
    for (const AccountsViewModel::Row& row : rows) {
        const GitHubAccount& account = row.account;
        table.push_back(
            {Style::paint(context, Tone::dim, shortID(account.id)),
             Text::visible(account.displayName),
             account.username.empty() ? "-" : Text::visible(account.username), authWord(account),
             Style::paint(context, Style::toneOf(account.status), enumName(account.status)),
             std::to_string(row.reposCount), std::to_string(row.mappedCount),
             account.syncEnabled ? "on" : Style::paint(context, Tone::dim, "off"),
             account.lastSyncAt ? fmt::format("{} {}", DateHelpers::dateKey(*account.lastSyncAt),
                                              localClockTime(*account.lastSyncAt))
                                : "never"});
    }
    using TextLayout::Shrink;
    printTable(context.out, table,
               {context.columns,
                {Shrink::never, Shrink::cutEnd, Shrink::cutEnd, Shrink::never, Shrink::never,
                 Shrink::never, Shrink::never, Shrink::never, Shrink::wrap},
                true});
    // An address would not fit beside nine columns; the few accounts on another
    // server than github.com name theirs below.
    bool heading = false;
    for (const AccountsViewModel::Row& row : rows) {
        if (!row.account.apiBaseURL) continue;
        if (!heading) context.out << "\nOn another server than github.com:\n";
        heading = true;
        printWrapped(context.out, Text::visible(*row.account.apiBaseURL), context.columns,
                     "  " + Text::visible(row.account.displayName) + ": ");
    }
    return 0;
}

namespace {

// The stored account a person means by `key`, as the writer holds it; nothing, with
// the reason on stderr, when there is none or it is ambiguous.
std::optional<GitHubAccount> writerAccount(CommandContext& context, WriterAccess& writer,
                                           const std::string& key) {
    writer.env().reconcileAccounts();
    std::vector<GitHubAccount> accounts = writer.env().store().accounts();
    const GitHubAccount* account = findAccount(context, accounts, key);
    if (account == nullptr) return std::nullopt;
    return *account;
}

}  // namespace

// `key` is the account's id, a unique start of it, its name or its login.
int accountsCheck(CommandContext& context, const std::string& key, bool json) {
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    std::optional<GitHubAccount> account = writerAccount(context, *writer, key);
    if (!account) return 1;
    AppEnvironment& env = writer->env();
    std::optional<AppEnvironment::AccountCheck> check = env.validateAccount(account->id);
    if (!check) return 1;
    return finishCheck(context, env, *check, "checked", json);
}

int accountsRemove(CommandContext& context, const std::string& key) {
    std::optional<WriterAccess> writer = WriterAccess::open(context);
    if (!writer) return 1;
    std::optional<GitHubAccount> account = writerAccount(context, *writer, key);
    if (!account) return 1;
    AppEnvironment& env = writer->env();
    GitHubAccount removed = *account;
    env.removeAccount(removed.id);
    if (!reportFlush(context, env.saveProblem())) return 1;
    context.out << fmt::format(
        "removed {} ({}){}\n", Text::visible(removed.displayName), shortID(removed.id),
        removed.keychainRef.empty() ? "" : " and its token from the secret store");
    return 0;
}

}  // namespace quorvane::Commands

namespace quorvane {

void declareAccountCommands(CommandTable& table) {
    CLI::App* accounts = table.group(
        "accounts",
        "Add, list, check and remove the GitHub accounts that sync reads\n"
        "An account's token stays in the secret store (the desktop's Secret Service, or\n"
        "secrets.json, mode 0600, in the data folder when none answers); config.json and\n"
        "the other data files only name it.");

    auto& options = table.keep<Commands::AccountsAddOptions>();
    CLI::App* add = table.add(
        accounts, "add",
        "Add an account for a personal access token, read from standard input\n"
        "On a terminal you are asked for the token and it is not shown as you type;\n"
        "otherwise the first line of standard input is taken, as in\n"
        "  secret-tool lookup ... | quorvane accounts add --name Work\n"
        "The token is never taken from the command line, where other users could read\n"
        "it. It is checked with GitHub at once. A token GitHub refuses still adds the\n"
        "account, as tokenInvalid, and the command exits 1. A classic token needs the\n"
        "'repo' scope to see private repositories; a fine-grained one needs read access to\n"
        "metadata.",
        {DataUse::writes, [&](CommandContext& c) { return Commands::accountsAdd(c, options); },
         // The token is read from the person's terminal and sent with the command.
         [&](CommandContext& c, ControlProtocol::Request& request) {
             return sendSecret(c, request, [&](const CommandContext& here, std::string& problem) {
                 return Commands::readAccountToken(here, options.name, problem);
             });
         }});
    add->add_option("--name", options.name, "The name you give the account")
        ->type_name("NAME")
        ->required();
    CLI::Validator httpAddress(
        [](std::string& text) { return AccountsViewModel::apiAddressProblem(text); }, "",
        "address");
    add->add_option("--api-url", options.apiURL,
                    "The REST API of a GitHub Enterprise Server (default: GitHub's own)")
        ->type_name("URL")
        ->check(httpAddress);
    add->add_flag("--json", options.json, "Print the account and any problem as JSON");

    auto& json = table.keep<bool>();
    auto& importURL = table.keep<std::optional<std::string>>();
    CLI::App* import = table.add(
        accounts, "import-gh",
        "Add (or refresh) the account the gh tool is signed in to\n"
        "The token is looked for in GITHUB_TOKEN, GH_TOKEN, 'gh auth token' (through your\n"
        "login shell) and git's credential helpers for github.com, in that order. It is\n"
        "not copied: each sync asks for it again, so 'gh auth refresh' is all it takes.",
        {DataUse::writes,
         [&](CommandContext& c) { return Commands::accountsImportGh(c, importURL, json); }});
    import
        ->add_option("--api-url", importURL,
                     "The REST API the token belongs to, for GitHub Enterprise Server")
        ->type_name("URL")
        ->check(httpAddress);
    import->add_flag("--json", json, "Print the account and any problem as JSON");

    table
        .add(accounts, "list",
             "List the accounts: login, how the token is found, status, repositories and last "
             "sync\n"
             "REPOS counts the repositories the account reaches on GitHub, MAPPED those linked\n"
             "to a tracked local repository, as of the last sync.\n"
             "Reads the data folder only, so it works while the daemon runs.",
             {DataUse::reads, [&](CommandContext& c) { return Commands::accountsList(c, json); }})
        ->add_flag("--json", json,
                   "Print {account, reposCount, mappedCount} per account as a JSON array");

    auto& key = table.keep<std::string>();
    CLI::App* check =
        table.add(accounts, "check",
                  "Ask GitHub whether an account's token still works, and keep the answer\n"
                  "Exits 1 unless the account comes out connected.",
                  {DataUse::writes,
                   [&](CommandContext& c) { return Commands::accountsCheck(c, key, json); }});
    check->add_option("ID|NAME", key, "The account's id (or its start), name or login")->required();
    check->add_flag("--json", json, "Print the account and any problem as JSON");

    table
        .add(accounts, "remove",
             "Remove an account, its token and what sync read through it\n"
             "Deletes its token from the secret store (a gh account's token is gh's and stays),\n"
             "its remote repositories, their branches and the links to them. Your local\n"
             "repositories are not touched.",
             {DataUse::writes, [&](CommandContext& c) { return Commands::accountsRemove(c, key); }})
        ->add_option("ID|NAME", key, "The account's id (or its start), name or login")
        ->required();
}

}  // namespace quorvane
