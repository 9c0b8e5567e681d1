#include "github/MappingConfidenceEngine.hpp"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace quorvane {
namespace {

using MappingConfidenceEngine::Score;

RemoteRepository remote(const std::string& owner, const std::string& name,
                        const std::string& description) {
    RemoteRepository repo;
    repo.accountID = "acc";
    repo.owner = owner;
    repo.name = name;
    repo.description = description;
    repo.id = repo.composedID();
    return repo;
}

LocalProjectMatch match(const std::string& path, std::optional<std::string> origin = {},
                        std::optional<std::string> pkg = {}, std::optional<std::string> title = {},
                        std::vector<std::string> shas = {}) {
    return {path, std::move(origin), std::move(pkg), std::move(title), std::move(shas), 0, {}};
}

struct Case {
    RemoteRepository remote;
    LocalProjectMatch local;
    int confidence;
    std::string evidence;  // empty for no evidence at all
};

TEST(MappingConfidenceEngineTest, TheFirstRungThatAppliesSetsTheScoreAndItsOneLine) {
    const RemoteRepository widget = remote("Octo", "Widget", "Fast widget kit for terminals, a UI");
    const RemoteRepository cafe = remote("Müller", "Café", "Über Kaffee, äö und ne\u0301e");
    const std::string identical = "repo name identical (Widget)",
                      loose = "folder name loosely resembles ";
    const std::string readme = "README/description metadata resemble ";
    const std::vector<Case> cases = {
        // The origin decides first, compared without case, told in the remote's own case.
        {widget, match("/w/x", "octo/WIDGET"), 100,
         "git remote origin matches Octo/Widget exactly"},
        {cafe, match("/w/x", "MÜLLER/CAFÉ"), 100, "git remote origin matches Müller/Café exactly"},
        // Another owner's copy stays at 80 despite the right folder name and history.
        {widget, match("/w/Widget", "fork/widget", {}, {}, {"abc"}), 80,
         "origin repo name matches (Widget) but owner differs"},
        // Another owner and another name: the ladder goes on by the folder.
        {widget, match("/w/widget", "fork/gadget", {}, {}, {"abc"}), 90,
         "repo name identical (Widget) with local commit history"},
        {widget, match("/w/widget/", {}, {}, "Widget manual"), 80,
         "repo name identical and README title aligns with remote"},
        {widget, match("/w/widget"), 80, identical},
        {widget, match("/w/code", {}, "WIDGET"), 80, identical},
        {widget, match("/w/my-widget-app", {}, "widget_core"), 70,
         "folder and package name both resemble Widget"},
        {widget, match("/w/my-widget-app", {}, "gizmo"), 40, loose + "Widget"},
        {cafe, match("/w/CAFÉ-Bar"), 40, loose + "Café"},
        // A title naming the repository counts whatever the description says.
        {widget, match("/w/tools", {}, {}, "The WIDGET handbook"), 60, readme + "Widget"},
        {cafe, match("/w/x", {}, {}, "ÜBER alles"), 60, readme + "Café"},
        // An accent written as a combining mark stays inside its word.
        {cafe, match("/w/x", {}, {}, "NE\u0301E"), 60, readme + "Café"},
        // Words under three characters never match, counted in characters, not bytes.
        {widget, match("/w/tools", {}, {}, "a UI"), 0, ""},
        {cafe, match("/w/x", {}, {}, "ÄÖ"), 0, ""},
        // Nothing but punctuation resembles nothing.
        {widget, match("/w/--", {}, "--"), 0, ""},
    };
    for (const Case& c : cases) {
        Score expected{c.confidence, {}};
        if (!c.evidence.empty()) expected.evidence = {c.evidence};
        EXPECT_EQ(MappingConfidenceEngine::score(c.remote, c.local), expected) << c.local.path;
    }
}

TEST(MappingConfidenceEngineTest, CandidatesKeepEachFolderBestScoreAndSortByScoreThenPath) {
    const RemoteRepository widget = remote("Octo", "Widget", "Fast widget kit");
    std::vector<MappingCandidate> found = MappingConfidenceEngine::candidates(
        widget, {
                    match("/b/widget-x"),                          // 40, then 60 below
                    match("/z/widget", "fork/widget"),             // 80, kept over the tie
                    match("/c/tools"),                             // no rung: dropped
                    match("/b/widget-x", {}, {}, "Widget guide"),  // 60 replaces 40
                    match("/z/widget"),                            // 80 again: the earlier stays
                    match("/a/widget-y", {}, {}, "Fast notes"),    // 60, sorts before /b
                });
    using C = MappingCandidate;
    EXPECT_THAT(
        found,
        ::testing::ElementsAre(
            C{widget.id, "/z/widget", 80, {"origin repo name matches (Widget) but owner differs"}},
            C{widget.id, "/a/widget-y", 60, {"README/description metadata resemble Widget"}},
            C{widget.id, "/b/widget-x", 60, {"README/description metadata resemble Widget"}}));
    EXPECT_TRUE(MappingConfidenceEngine::candidates(widget, {match("/c/tools")}).empty());
}

}  // namespace
}  // namespace quorvane
