#pragma once

#include <array>
#include <string>
#include <string_view>
#include <utility>

#include "base/DateHelpers.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

// One estimated period of work on one repository, inferred from what changed between
// scans. Stored under its `id`; every key is required when read.
struct WorkSession {
    // How strong the evidence is; it only ever rises while a session is extended.
    enum class Confidence { low, medium, high };
    // What kind of evidence it is. Scans never produce `manual`, but keep it.
    enum class Source { localGit, fileActivity, mixed, manual };

    std::string id;  // UUID
    std::string repoID;
    Date startedAt{};          // first activity noticed
    Date endedAt{};            // latest activity noticed; idle time is never counted
    int estimatedSeconds = 0;  // endedAt minus startedAt, rounded, never negative
    Confidence confidence = Confidence::low;
    Source source = Source::fileActivity;
    bool isOpen = false;  // still being extended by later scans

    bool operator==(const WorkSession&) const = default;
};

constexpr auto enumCases(WorkSession::Confidence) {
    using enum WorkSession::Confidence;
    return std::array{std::pair{low, std::string_view("low")},
                      std::pair{medium, std::string_view("medium")},
                      std::pair{high, std::string_view("high")}};
}

constexpr auto enumCases(WorkSession::Source) {
    using enum WorkSession::Source;
    return std::array{std::pair{localGit, std::string_view("localGit")},
                      std::pair{fileActivity, std::string_view("fileActivity")},
                      std::pair{mixed, std::string_view("mixed")},
                      std::pair{manual, std::string_view("manual")}};
}

void fromJson(const Json& json, WorkSession& out, const std::string& path);
Json toJson(const WorkSession& session);

}  // namespace quorvane
