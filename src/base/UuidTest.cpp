#include <sys/wait.h>
#include <unistd.h>

#include <regex>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include "base/Uuid.hpp"

namespace quorvane {
namespace {

// Ids are drawn from a pool of random bytes: across its refills they stay version-4
// UUIDs, and never repeat.
TEST(UuidTest, IdsAreRandomVersion4AndDistinctAcrossRefills) {
    const std::regex shape("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
    std::set<std::string> seen;
    for (int i = 0; i < 1000; ++i) {
        std::string id = newUUID();
        EXPECT_TRUE(std::regex_match(id, shape)) << id;
        EXPECT_TRUE(seen.insert(id).second) << id;
    }
}

// A forked child starts with a copy of its parent's pool; it must not hand out the
// ids the parent is about to.
TEST(UuidTest, AForkedChildDrawsIdsOfItsOwn) {
    newUUID();
    int pipe[2];
    ASSERT_EQ(::pipe(pipe), 0);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::string id = newUUID();
        ssize_t written = ::write(pipe[1], id.data(), id.size());
        ::_exit(written == static_cast<ssize_t>(id.size()) ? 0 : 1);
    }
    ::close(pipe[1]);
    char text[36];
    ssize_t got = ::read(pipe[0], text, sizeof text);
    ::close(pipe[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_EQ(got, static_cast<ssize_t>(sizeof text));
    EXPECT_NE(std::string(text, sizeof text), newUUID());
}

}  // namespace
}  // namespace quorvane
