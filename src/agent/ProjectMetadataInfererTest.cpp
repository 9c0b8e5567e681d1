#include "agent/ProjectMetadataInferer.hpp"

#include <gtest/gtest.h>

#include "testing/FakeClock.hpp"
#include "testing/TempDir.hpp"

namespace quorvane {
namespace {

namespace fs = std::filesystem;
using Files = std::vector<std::pair<std::string, std::string>>;

class ProjectMetadataInfererTest : public ::testing::Test {
protected:
    ProjectMetadata infer(const std::string& name, const Files& files,
                          const std::optional<RemoteRepository>& remote = std::nullopt) {
        fs::create_directories(dir_ / name);
        for (const auto& [file, content] : files) testing::writeFile(dir_ / name / file, content);
        return ProjectMetadataInferer(clock_).infer((dir_ / name).string(), remote);
    }
    // Type, category and stack in one line, so a table of cases reads at a glance.
    std::string described(const std::string& name, const Files& files) {
        ProjectMetadata metadata = infer(name, files);
        std::string line = metadata.projectType + " / " + metadata.category.value_or("-") + " /";
        for (const std::string& item : metadata.stack) line += " " + item;
        return line;
    }

    testing::TempDir dir_;
    testing::FakeClock clock_{*DateHelpers::parseISO("2026-11-25T10:00:00Z")};
};

TEST_F(ProjectMetadataInfererTest, TheTypeFollowsTheFirstRuleThatHolds) {
    EXPECT_EQ(described("desktop", {{"package.json", R"({"dependencies":{"react":"1"},
                                     "devDependencies":{"electron":"2"}})"},
                                    {"tsconfig.json", "{}"}}),
              "desktop app / app / JavaScript TypeScript React Electron");
    EXPECT_EQ(described("web", {{"package.json", R"({"dependencies":{"vue":"3","express":"4"}})"}}),
              "web app / app / JavaScript Vue Express");
    EXPECT_EQ(described("api", {{"requirements.txt", "Flask>=3.0\nflask-cors\n"},
                                {"docker-compose.yml", "services:\n"},
                                {"Dockerfile", "FROM x\n"}}),
              "service / service / Python Flask Docker Docker Compose");
    // "flask-cors" alone is no Flask, and requirements.txt alone makes no package.
    EXPECT_EQ(described("scripts", {{"requirements.txt", "flask-cors==1\n"}}),
              "project / - / Python");
    EXPECT_EQ(described("cli", {{"Cargo.toml", "[package]\n"}, {"src/main.rs", ""}}),
              "application / tool / Rust");
    EXPECT_EQ(described("crate", {{"Cargo.toml", "[package]\n"}, {"src/lib.rs", ""}}),
              "library / library / Rust");
    EXPECT_EQ(described("native", {{"CMakeLists.txt", "add_library(c a.cpp)\nadd_executable(x)"}}),
              "application / tool / C/C++ CMake");
    EXPECT_EQ(described("rails", {{"Gemfile", "gem 'rails', '~> 7'\n"}}),
              "service / service / Ruby Rails");
    EXPECT_EQ(described("docs", {{"mkdocs.yml", "site_name: x\n"}}), "documentation / docs /");
    EXPECT_EQ(described("empty", {}), "unknown / - /");
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

    remote.isArchived = true;
    ProjectMetadata archived = infer("shop", node, remote);
    EXPECT_EQ(archived.priority, RepoConfig::Priority::low);
    EXPECT_EQ(archived.nextAction,
              "The GitHub repository is archived: keep this clone only if you still need it");

    // Without a description the README title speaks; with a lock file nothing is due.
    ProjectMetadata titled = infer("shop", {{"package-lock.json", "{}"}});
    EXPECT_EQ(titled.summary, "Shop");
    EXPECT_EQ(titled.nextAction, std::nullopt);

    // Reached through a link, the folder is still itself. No README: the summary is
    // put into words, and writing one is the next step.
    fs::create_directory_symlink(dir_ / "shop", dir_ / "via-link");
    fs::remove(dir_ / "shop/README.md");
    ProjectMetadata bare = ProjectMetadataInferer(clock_).infer((dir_ / "via-link").string(), {});
    EXPECT_EQ(bare.repoID, fs::canonical(dir_ / "shop").string());
    EXPECT_EQ(bare.summary, "Library built with JavaScript");
    EXPECT_EQ(bare.nextAction, "Add a README that says what this project is");
}

}  // namespace
}  // namespace quorvane
