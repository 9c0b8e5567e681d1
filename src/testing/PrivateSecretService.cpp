#include "testing/PrivateSecretService.hpp"

#include "platform/Shell.hpp"

namespace quorvane::testing {

PrivateSecretService::PrivateSecretService() : problem_(bus_.problem()) {
    if (!problem_.empty()) return;

    // --unlock reads the new login keyring's password from standard input and
    // returns once the daemon answers; the daemon exits when its bus goes away.
    ProcessRequest keyring;
    keyring.executable = "/usr/bin/gnome-keyring-daemon";
    keyring.arguments = {"--unlock", "--components=secrets"};
    keyring.standardInput = "test-keyring-password";
    keyring.timeout = 30;
    ShellResult started = Shell().run(keyring);
    if (!started.succeeded()) problem_ = "gnome-keyring-daemon: " + started.stdErr;
}

}  // namespace quorvane::testing
