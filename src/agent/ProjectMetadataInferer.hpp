#pragma once

#include <optional>
#include <string>

#include "platform/Clock.hpp"
#include "records/ProjectMetadata.hpp"
#include "records/RemoteRepository.hpp"

namespace quorvane {

// Guesses what a project is from the marker files in its top folder, and from its
// GitHub repository when there is one. It reads a bounded head of each marker and
// nothing else: no git, no network, no file through a link.
//
// Stack, in this order, each named once: package.json gives JavaScript (and
// TypeScript with a tsconfig.json or a typescript dependency) and the frameworks
// among its dependencies (React, Next.js, Vue, Svelte, Angular, React Native,
// Electron, Express, Fastify); Cargo.toml gives Rust; go.mod Go; pyproject.toml,
// setup.py or requirements.txt Python, with Django, Flask or FastAPI when listed;
// Gemfile Ruby (Rails); pom.xml or build.gradle(.kts) Java; Package.swift Swift;
// composer.json PHP; CMakeLists.txt C/C++ and CMake; Dockerfile Docker; a compose
// file (docker-compose.yml, compose.yaml, either extension) Docker Compose.
//
// Project type, by the first rule that holds: Electron is a "desktop app", React
// Native a "mobile app", a front-end framework a "web app"; a server framework or a
// compose file a "service"; a program entry point (package.json "bin", src/main.rs,
// main.go or cmd/, a CMake add_executable) an "application"; a library entry point
// (src/lib.rs, a CMake add_library) or any other package manifest (package.json,
// Cargo.toml, go.mod, pyproject.toml, setup.py, pom.xml, build.gradle,
// Package.swift, composer.json, CMakeLists.txt) a "library"; a documentation
// site (mkdocs.yml, book.toml, _config.yml) "documentation"; any other stack a
// "project"; nothing recognised "unknown".
//
// Category follows the type: "app", "service", "tool", "library" or "docs"; none for
// "project" and "unknown". Priority is low for an archived GitHub repository and
// normal otherwise: how much the person cares is theirs to say. The summary is the
// GitHub description, else the README title, else the type and stack in words. The
// next action is the first of: an archived repository's clone may go; a missing
// README; a Node project without a lock file; otherwise none.
class ProjectMetadataInferer {
public:
    explicit ProjectMetadataInferer(const Clock& clock) : clock_(clock) {}

    // The metadata of the folder at `path` ("~" expanded, links resolved, which is
    // also its `repoID`), dated now.
    ProjectMetadata infer(const std::string& path,
                          const std::optional<RemoteRepository>& remote) const;

private:
    const Clock& clock_;
};

}  // namespace quorvane
