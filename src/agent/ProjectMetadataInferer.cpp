#include "agent/ProjectMetadataInferer.hpp"

#include <algorithm>
#include <array>
#include <filesystem>
#include <regex>
#include <set>

#include "agent/LocalProjectFinder.hpp"
#include "agent/ProjectFiles.hpp"
#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

namespace {

namespace fs = std::filesystem;

// What the marker files say, before it is put into words.
struct Markers {
    std::vector<std::string> stack;
    bool package = false;       // a manifest that makes the folder a package
    bool programEntry = false;  // something that builds a program to run
    bool libraryEntry = false;  // something that builds a library
    bool composeFile = false;
    bool docsSite = false;
    bool nodeWithoutLock = false;

    void add(std::string name) {
        if (std::find(stack.begin(), stack.end(), name) == stack.end()) {
            stack.push_back(std::move(name));
        }
    }
    bool uses(std::string_view name) const {
        return std::find(stack.begin(), stack.end(), name) != stack.end();
    }
    bool usesAny(std::initializer_list<std::string_view> names) const {
        return std::any_of(names.begin(), names.end(), [&](std::string_view n) { return uses(n); });
    }
};

bool matches(const std::string& text, const char* pattern) {
    return std::regex_search(text, std::regex(pattern, std::regex::icase));
}

void readNode(const fs::path& folder, Markers& markers) {
    std::optional<std::string> text = ProjectFiles::readHead(folder, "package.json");
    if (!text) return;
    markers.package = true;
    markers.add("JavaScript");
    Json json = Json::parse(*text, nullptr, false);
    std::set<std::string> dependencies;
    if (json.is_object()) {
        for (const char* group : {"dependencies", "devDependencies", "peerDependencies"}) {
            auto it = json.find(group);
            if (it == json.end() || !it->is_object()) continue;
            for (const auto& [name, version] : it->items()) dependencies.insert(name);
        }
        auto bin = json.find("bin");
        markers.programEntry = bin != json.end() && ((bin->is_string() && !bin->empty()) ||
                                                     (bin->is_object() && !bin->empty()));
    }
    if (dependencies.contains("typescript") || ProjectFiles::has(folder, "tsconfig.json")) {
        markers.add("TypeScript");
    }
    static const std::array<std::pair<const char*, const char*>, 9> kFrameworks = {{
        {"react", "React"},
        {"next", "Next.js"},
        {"vue", "Vue"},
        {"svelte", "Svelte"},
        {"@angular/core", "Angular"},
        {"react-native", "React Native"},
        {"electron", "Electron"},
        {"express", "Express"},
        {"fastify", "Fastify"},
    }};
    for (const auto& [dependency, name] : kFrameworks) {
        if (dependencies.contains(dependency)) markers.add(name);
    }
    static const std::array<const char*, 4> kLockFiles = {"package-lock.json", "yarn.lock",
                                                          "pnpm-lock.yaml", "bun.lockb"};
    markers.nodeWithoutLock =
        std::none_of(kLockFiles.begin(), kLockFiles.end(),
                     [&](const char* lock) { return ProjectFiles::has(folder, lock); });
}

void readPython(const fs::path& folder, Markers& markers) {
    std::string listed;
    bool found = false;
    for (const char* name : {"pyproject.toml", "setup.py", "requirements.txt"}) {
        std::optional<std::string> text = ProjectFiles::readHead(folder, name);
        if (!text) continue;
        found = true;
        if (std::string_view(name) != "requirements.txt") markers.package = true;
        listed += Text::asciiLower(*text) + "\n";
    }
    if (!found) return;
    markers.add("Python");
    // A distribution name standing alone: "flask>=3" and "'Django'" count,
    // "flask-cors" does not.
    for (const auto& [dependency, name] :
         {std::pair{"django", "Django"}, std::pair{"flask", "Flask"},
          std::pair{"fastapi", "FastAPI"}}) {
        const std::string pattern =
            std::string("(^|[^a-z0-9_.-])") + dependency + "([^a-z0-9_.-]|$)";
        if (std::regex_search(listed, std::regex(pattern, std::regex::multiline))) {
            markers.add(name);
        }
    }
}

void readCMake(const fs::path& folder, Markers& markers) {
    std::optional<std::string> text = ProjectFiles::readHead(folder, "CMakeLists.txt");
    if (!text) return;
    markers.package = true;
    markers.add("C/C++");
    markers.add("CMake");
    if (matches(*text, R"(\badd_executable\s*\()")) markers.programEntry = true;
    if (matches(*text, R"(\badd_library\s*\()")) markers.libraryEntry = true;
}

Markers readMarkers(const fs::path& folder) {
    Markers markers;
    readNode(folder, markers);
    if (std::optional<std::string> cargo = ProjectFiles::readHead(folder, "Cargo.toml")) {
        markers.package = true;
        markers.add("Rust");
        if (ProjectFiles::has(folder, "src/main.rs") || matches(*cargo, R"(^\s*\[\[bin\]\])")) {
            markers.programEntry = true;
        }
        if (ProjectFiles::has(folder, "src/lib.rs")) markers.libraryEntry = true;
    }
    if (ProjectFiles::has(folder, "go.mod")) {
        markers.package = true;
        markers.add("Go");
        if (ProjectFiles::has(folder, "main.go") || ProjectFiles::has(folder, "cmd")) {
            markers.programEntry = true;
        }
    }
    readPython(folder, markers);
    if (std::optional<std::string> gemfile = ProjectFiles::readHead(folder, "Gemfile")) {
        markers.add("Ruby");
        if (matches(*gemfile, R"(\bgem\s+["']rails["'])")) markers.add("Rails");
    }
    if (ProjectFiles::has(folder, "pom.xml") || ProjectFiles::has(folder, "build.gradle") ||
        ProjectFiles::has(folder, "build.gradle.kts")) {
        markers.package = true;
        markers.add("Java");
    }
    if (ProjectFiles::has(folder, "Package.swift")) {
        markers.package = true;
        markers.add("Swift");
    }
    if (ProjectFiles::has(folder, "composer.json")) {
        markers.package = true;
        markers.add("PHP");
    }
    readCMake(folder, markers);
    if (ProjectFiles::has(folder, "Dockerfile")) markers.add("Docker");
    for (const char* compose :
         {"docker-compose.yml", "docker-compose.yaml", "compose.yml", "compose.yaml"}) {
        if (ProjectFiles::has(folder, compose)) markers.composeFile = true;
    }
    if (markers.composeFile) markers.add("Docker Compose");
    markers.docsSite = ProjectFiles::has(folder, "mkdocs.yml") ||
                       ProjectFiles::has(folder, "book.toml") ||
                       ProjectFiles::has(folder, "_config.yml");
    return markers;
}

std::string projectType(const Markers& markers) {
    if (markers.uses("Electron")) return "desktop app";
    if (markers.uses("React Native")) return "mobile app";
    if (markers.usesAny({"React", "Next.js", "Vue", "Svelte", "Angular"})) return "web app";
    if (markers.composeFile ||
        markers.usesAny({"Express", "Fastify", "Django", "Flask", "FastAPI", "Rails"})) {
        return "service";
    }
    if (markers.programEntry) return "application";
    if (markers.libraryEntry || markers.package) return "library";
    if (markers.docsSite) return "documentation";
    return markers.stack.empty() ? "unknown" : "project";
}

std::optional<std::string> categoryOf(const std::string& type) {
    if (type == "desktop app" || type == "mobile app" || type == "web app") return "app";
    if (type == "service") return "service";
    if (type == "application") return "tool";
    if (type == "library") return "library";
    if (type == "documentation") return "docs";
    return std::nullopt;
}

bool hasReadme(const fs::path& folder) {
    std::error_code ec;
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
        if (Text::asciiLower(it->path().filename().string()).starts_with("readme")) return true;
    }
    return false;
}

std::string inWords(const std::string& type, const std::vector<std::string>& stack) {
    if (type == "unknown") return "No project files recognised";
    std::string words = type;
    words[0] = static_cast<char>(std::toupper(static_cast<unsigned char>(words[0])));
    words += " built with ";
    for (size_t i = 0; i < stack.size(); ++i) words += (i == 0 ? "" : ", ") + stack[i];
    return words;
}

}  // namespace

ProjectMetadata ProjectMetadataInferer::infer(const std::string& path,
                                              const std::optional<RemoteRepository>& remote) const {
    const fs::path folder = PathHelpers::canonicalPath(path);
    const Markers markers = readMarkers(folder);
    const bool archived = remote && remote->isArchived;

    ProjectMetadata metadata;
    metadata.repoID = folder.string();
    metadata.projectType = projectType(markers);
    metadata.stack = markers.stack;
    metadata.category = categoryOf(metadata.projectType);
    metadata.priority = archived ? RepoConfig::Priority::low : RepoConfig::Priority::normal;
    if (remote && remote->description && !Text::trim(*remote->description).empty()) {
        metadata.summary = std::string(Text::trim(*remote->description));
    } else if (std::optional<std::string> title = LocalProjectFinder::readmeTitle(folder)) {
        metadata.summary = *title;
    } else {
        metadata.summary = inWords(metadata.projectType, metadata.stack);
    }
    if (archived) {
        metadata.nextAction =
            "The GitHub repository is archived: keep this clone only if you still need it";
    } else if (!hasReadme(folder)) {
        metadata.nextAction = "Add a README that says what this project is";
    } else if (markers.uses("JavaScript") && markers.nodeWithoutLock) {
        metadata.nextAction = "Commit a lock file so every install gets the same dependencies";
    }
    metadata.inferredAt = clock_.now();
    return metadata;
}

}  // namespace quorvane
