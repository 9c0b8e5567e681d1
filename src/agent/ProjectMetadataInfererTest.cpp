#include "agent/ProjectMetadataInferer.hpp"

#include <gtest/gtest.h>

#include "testing/FakeClock.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

namespace fs = std::filesystem;
using testing::writeFile;

using Files = std::vector<std::pair<std::string, std::string>>;

class ProjectMetadataInfererTest : public ::testing::Test {
protected:
    // A project folder holding `files` (each with a README unless told otherwise).
    ProjectMetadata infer(const std::string& name, const Files& files,
                          const std::optional<RemoteRepository>& remote = std::nullopt) {
        fs::create_directories(dir_ / name);
        for (const auto& [file, content] : files) writeFile(dir_ / name / file, content);
        return ProjectMetadataInferer(clock_).infer((dir_ / name).string(), remote);
    }

    testing::TempDir dir_;
    testing::FakeClock clock_{*DateHelpers::parseISO("2026-11-25T10:00:00Z")};
};

TEST_F(ProjectMetadataInfererTest, TheTypeFollowsTheFirstRuleThatHolds) {
    struct Case {
        std::string name;
        Files files;
        std::string type;
        std::vector<std::string> stack;
        std::optional<std::string> category;
    };
    const std::vector<Case> cases = {
        {"desktop",
         {{"package.json", R"({"dependencies":{"react":"1"},"devDependencies":{"electron":"2"}})"},
          {"tsconfig.json", "{}"}},
         "desktop app",
         {"JavaScript", "TypeScript", "React", "Electron"},
         "app"},
        {"web",
         {{"package.json", R"({"dependencies":{"vue":"3","express":"4"}})"}},
         "web app",
         {"JavaScript", "Vue", "Express"},
         "app"},
        {"api",
         {{"requirements.txt", "Flask>=3.0\nflask-cors\n"},
          {"docker-compose.yml", "services:\n"},
          {"Dockerfile", "FROM x\n"}},
         "service",
         {"Python", "Flask", "Docker", "Docker Compose"},
         "service"},
        // "flask-cors" alone is no Flask, and requirements.txt alone makes no package.
        {"scripts", {{"requirements.txt", "flask-cors==1\n"}}, "project", {"Python"}, std::nullopt},
        {"cli",
         {{"Cargo.toml", "[package]\nname='x'\n"}, {"src/main.rs", "fn main(){}"}},
         "application",
         {"Rust"},
         "tool"},
        {"crate",
         {{"Cargo.toml", "[package]\nname='x'\n"}, {"src/lib.rs", ""}},
         "library",
         {"Rust"},
         "library"},
        {"native",
         {{"CMakeLists.txt", "project(x)\nadd_library(core a.cpp)\nadd_executable(x m.cpp)\n"}},
         "application",
         {"C/C++", "CMake"},
         "tool"},
        {"gomod", {{"go.mod", "module x\n"}}, "library", {"Go"}, "library"},
        {"rails", {{"Gemfile", "gem 'rails', '~> 7'\n"}}, "service", {"Ruby", "Rails"}, "service"},
        {"docs", {{"mkdocs.yml", "site_name: x\n"}}, "documentation", {}, "docs"},
        {"empty", {}, "unknown", {}, std::nullopt},
    };
    for (const Case& c : cases) {
        ProjectMetadata metadata = infer(c.name, c.files);
        EXPECT_EQ(metadata.projectType, c.type) << c.name;
        EXPECT_EQ(metadata.stack, c.stack) << c.name;
        EXPECT_EQ(metadata.category, c.category) << c.name;
    }
}

TEST_F(ProjectMetadataInfererTest, SummaryPriorityAndNextStepComeFromTheRemoteThenTheFolder) {
    RemoteRepository remote;
    remote.description = "  Billing for the shop  ";
    const Files node = {{"package.json", R"({"name":"shop"})"}, {"README.md", "# Shop\n"}};
    ProjectMetadata described = infer("shop", node, remote);
    EXPECT_EQ(described.summary, "Billing for the shop");
    EXPECT_EQ(described.priority, RepoConfig::Priority::normal);
    EXPECT_EQ(described.nextAction,
              "Commit a lock file so every install gets the same dependencies");
    EXPECT_EQ(described.inferredAt, clock_.now());
    EXPECT_EQ(described.repoID, fs::canonical(dir_ / "shop").string());

    remote.isArchived = true;
    ProjectMetadata archived = infer("shop", node, remote);
    EXPECT_EQ(archived.priority, RepoConfig::Priority::low);
    EXPECT_EQ(archived.nextAction,
              "The GitHub repository is archived: keep this clone only if you still need it");

    // Without a description the README title speaks; with a lock file nothing is due.
    writeFile(dir_ / "shop/package-lock.json", "{}");
    ProjectMetadata titled = infer("shop", node);
    EXPECT_EQ(titled.summary, "Shop");
    EXPECT_EQ(titled.nextAction, std::nullopt);

    // No README: the summary is put into words, and writing one is the next step.
    fs::create_directory_symlink(dir_ / "shop", dir_ / "via-link");
    fs::remove(dir_ / "shop/README.md");
    ProjectMetadata bare = ProjectMetadataInferer(clock_).infer((dir_ / "via-link").string(), {});
    EXPECT_EQ(bare.repoID, fs::canonical(dir_ / "shop").string());
    EXPECT_EQ(bare.summary, "Library built with JavaScript");
    EXPECT_EQ(bare.nextAction, "Add a README that says what this project is");
    EXPECT_EQ(infer("nothing", {}).summary, "No project files recognised");
}

}  // namespace
}  // namespace quorvane
