#pragma once

#include <string>
#include <vector>

#include "persistence/MonthFiles.hpp"
#include "records/DayActivity.hpp"

namespace quorvane {

// A day's record goes by the month of its day. A key that names no day (a file
// edited by hand) goes into "0000-00", where it is still read and written back.
struct DayFileKind {
    using Record = DayActivity;
    static constexpr const char* kFolder = "day_activity";
    static constexpr const char* kSingleFile = "day_activity.json";
    static std::string key(const DayActivity& day) { return day.key(); }
    static std::string month(const DayActivity& day) {
        std::string month = day.dateKey.substr(0, 7);
        return MonthFileNames::isMonth(month) ? month : "0000-00";
    }
    static const std::string& repoID(const DayActivity& day) { return day.repoID; }
};

// The day records of the data folder: "day_activity/<YYYY-MM>/<folder name>-<hash>.json".
// A scan changes today's record of the repositories it saw change: a small file each,
// where one file held every repository's every day, and the daemon holds the recent
// months rather than the whole history.
class DayFiles : public MonthFiles<DayFileKind> {
public:
    using MonthFiles::MonthFiles;

    // The records of the days from `fromKey` to `toKey` ("yyyy-MM-dd", inclusive), by
    // repository then day.
    std::vector<DayActivity> between(const std::string& fromKey, const std::string& toKey);
};

}  // namespace quorvane
