#include "screens/OnboardingViewModel.hpp"

#include <algorithm>

#include <fmt/format.h>

#include "base/PathHelpers.hpp"
#include "base/TextHelpers.hpp"

namespace quorvane::OnboardingViewModel {

View view(const AppConfig& config, const std::string& home, const RepositoryCount& count,
          bool startsAtLogin) {
    View view;
    view.tracked = config.repositories.size();
    view.scanFolders = config.scanFolders;
    view.needed = config.repositories.empty() && config.scanFolders.empty();
    view.startsAtLogin = startsAtLogin;
    for (std::string_view name : kUsualFolders) {
        std::string path = (std::filesystem::path(home) / name).string();
        if (std::optional<size_t> found = count(path)) {
            view.suggestions.push_back({path, fmt::format("~/{}", name), *found});
        }
    }
    return view;
}

Choice choose(const std::vector<std::string>& typed, const std::string& home,
              const RepositoryCount& count) {
    Choice choice;
    if (typed.empty()) {
        choice.problem = "choose at least one folder";
        return choice;
    }
    for (const std::string& each : typed) {
        std::string text(Text::trim(each));
        std::string path;
        if (text == "~" || text.starts_with("~/")) {
            path = home + text.substr(1);
        } else if (text.starts_with('/')) {
            path = text;
        } else {
            choice.problem = fmt::format("type {} in full, or from ~", Text::visible(text));
            break;
        }
        path = std::filesystem::path(path).lexically_normal().string();
        if (path.size() > 1 && path.ends_with('/')) path.pop_back();
        if (!Text::isValidUtf8(path)) {
            choice.problem = "a folder's path is not valid UTF-8, which the data files cannot hold";
            break;
        }
        if (!count(path)) {
            choice.problem = fmt::format("{} is not a folder", Text::visible(text));
            break;
        }
        if (std::find(choice.folders.begin(), choice.folders.end(), path) == choice.folders.end())
            choice.folders.push_back(path);
    }
    if (!choice.problem.empty()) choice.folders.clear();
    return choice;
}

Json toJson(const View& view) {
    Json suggestions = Json::array();
    for (const Suggestion& each : view.suggestions) {
        suggestions.push_back(
            {{"path", each.path}, {"shown", each.shown}, {"repositories", each.repositories}});
    }
    return Json{{"needed", view.needed},
                {"suggestions", suggestions},
                {"scanFolders", view.scanFolders},
                {"tracked", view.tracked},
                {"startsAtLogin", view.startsAtLogin}};
}

}  // namespace quorvane::OnboardingViewModel
