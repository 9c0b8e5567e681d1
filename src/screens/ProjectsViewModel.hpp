#pragma once

#include "base/DateHelpers.hpp"
#include "persistence/AppConfig.hpp"
#include "persistence/Store.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// Projects: the tracked repositories with where each stands, and the scan folders.
// 'repos list --json', 'folders list --json' and the dashboard's screen give these.
namespace ProjectsViewModel {

// Each repository's configuration (name, path, category, priority, aliases, ...) as
// it is kept, in configuration order, with "standing": where it stands now in the
// words 'today' uses ([{text, tone}], empty before its first scan or while its
// tracking is paused), and "projectType" when its files were looked at.
Json repositories(const AppConfig& config, const Store& store, Date now);

// The scan folders as they are kept.
Json scanFolders(const AppConfig& config);

}  // namespace ProjectsViewModel
}  // namespace quorvane
