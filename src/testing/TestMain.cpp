// Every test runs with its own HOME, data folders, git identity and TZ, so no test
// reads or writes the real home folder or depends on the machine's settings.
#include <stdlib.h>

#include <filesystem>

#include <gtest/gtest.h>

#include "testing/TempDir.hpp"

int main(int argc, char** argv) {
    ::testing::InitGoogleTest(&argc, argv);
    quorvane::testing::TempDir root("quorvane-test");
    std::filesystem::create_directories(root / "home");
    setenv("HOME", (root / "home").c_str(), 1);
    setenv("XDG_DATA_HOME", (root / "home/.local/share").c_str(), 1);
    setenv("XDG_CONFIG_HOME", (root / "home/.config").c_str(), 1);
    setenv("TMPDIR", root.path().c_str(), 1);
    setenv("GIT_CONFIG_NOSYSTEM", "1", 1);
    setenv("GIT_AUTHOR_NAME", "Quorvane Tester", 1);
    setenv("GIT_AUTHOR_EMAIL", "tester@example.invalid", 1);
    setenv("GIT_COMMITTER_NAME", "Quorvane Tester", 1);
    setenv("GIT_COMMITTER_EMAIL", "tester@example.invalid", 1);
    setenv("LC_ALL", "C", 1);
    setenv("TZ", "UTC", 1);
    unsetenv("GIT_DIR");
    unsetenv("GIT_WORK_TREE");
    tzset();
    return RUN_ALL_TESTS();
}
