#include "github/MappingConfidenceEngine.hpp"

#include <unicode/bytestream.h>
#include <unicode/casemap.h>
#include <unicode/uchar.h>
#include <unicode/utf8.h>

#include <algorithm>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "base/TextHelpers.hpp"

namespace quorvane::MappingConfidenceEngine {
namespace {

bool fitsICU(std::string_view text) {
    return text.size() <= static_cast<size_t>(std::numeric_limits<int32_t>::max());
}

// Full Unicode lower case in the root locale, so "CAFÉ" and "café" compare equal
// whatever the user's own locale is. ICU copies broken UTF-8 through unchanged;
// should it fail outright, ASCII letters are still lowered.
std::string lower(std::string_view text) {
    if (!fitsICU(text)) return Text::asciiLower(text);
    std::string out;
    icu::StringByteSink<std::string> sink(&out, static_cast<int32_t>(text.size()));
    UErrorCode status = U_ZERO_ERROR;
    icu::CaseMap::utf8ToLower("", 0,
                              icu::StringPiece(text.data(), static_cast<int32_t>(text.size())),
                              sink, nullptr, status);
    if (U_FAILURE(status)) return Text::asciiLower(text);
    return out;
}

// One unbroken stretch of letters and numbers, and how many characters it holds.
struct Word {
    std::string text;
    int characters = 0;
};

// The stretches of letters and numbers (any script) in `text`, everything else
// separating them. A combining mark belongs to the letter before it, as it does on
// screen, so "ne\u0301e" stays one word of three characters rather than breaking
// at the accent. Broken UTF-8 separates like punctuation.
std::vector<Word> words(std::string_view text) {
    std::vector<Word> out;
    if (!fitsICU(text)) return out;
    Word current;
    auto finish = [&] {
        if (!current.text.empty()) out.push_back(std::move(current));
        current = Word{};
    };
    const auto* bytes = reinterpret_cast<const uint8_t*>(text.data());
    auto length = static_cast<int32_t>(text.size());
    for (int32_t i = 0; i < length;) {
        int32_t start = i;
        UChar32 c = 0;
        U8_NEXT(bytes, i, length, c);
        uint32_t category = c < 0 ? 0 : U_GET_GC_MASK(c);
        std::string_view character =
            text.substr(static_cast<size_t>(start), static_cast<size_t>(i - start));
        if ((category & (U_GC_L_MASK | U_GC_N_MASK)) != 0) {
            current.text.append(character);
            ++current.characters;
        } else if ((category & U_GC_M_MASK) != 0 && !current.text.empty()) {
            current.text.append(character);
        } else {
            finish();
        }
    }
    finish();
    return out;
}

// The letters and numbers of the lower-cased text, in order, with nothing between.
std::string normalize(std::string_view text) {
    std::string out;
    for (const Word& word : words(lower(text))) out += word.text;
    return out;
}

// The lower-cased words of at least three characters: shorter ones ("a", "of",
// "ui") are too common to say two texts are about the same thing.
std::vector<std::string> tokens(std::string_view text) {
    std::vector<std::string> out;
    for (Word& word : words(lower(text))) {
        if (word.characters >= 3) out.push_back(std::move(word.text));
    }
    return out;
}

bool contains(std::string_view text, std::string_view part) {
    return text.find(part) != std::string_view::npos;
}

// Whether two names are one another's, or one holds the other, once case and
// punctuation are set aside. A name of nothing but punctuation resembles only
// itself.
bool similar(std::string_view a, std::string_view b) {
    if (a == b) return true;
    std::string left = normalize(a), right = normalize(b);
    if (left.empty() || right.empty()) return false;
    return contains(left, right) || contains(right, left);
}

// Whether a README title speaks of the remote: it names the repository, or
// shares a word with its description.
bool titleSimilar(const std::optional<std::string>& title, const RemoteRepository& remote) {
    if (!title) return false;
    std::string titleLower = lower(*title);
    if (titleLower.empty()) return false;
    if (contains(titleLower, lower(remote.name))) return true;
    if (!remote.description || lower(*remote.description).empty()) return false;
    std::vector<std::string> described = tokens(*remote.description);
    std::set<std::string> shared(described.begin(), described.end());
    std::vector<std::string> titled = tokens(*title);
    return std::any_of(titled.begin(), titled.end(),
                       [&](const std::string& token) { return shared.contains(token); });
}

// The last component of a path as the file system names it: "/a/b/" gives "b",
// and the root gives "/".
std::string_view lastPathComponent(std::string_view path) {
    std::string_view trimmed = path;
    while (trimmed.size() > 1 && trimmed.back() == '/') trimmed.remove_suffix(1);
    if (trimmed == "/") return trimmed;
    size_t slash = trimmed.rfind('/');
    return slash == std::string_view::npos ? trimmed : trimmed.substr(slash + 1);
}

// The repository part of "owner/name": the last piece between slashes, empty
// pieces left out so a trailing slash does not hide it.
std::optional<std::string_view> lastPiece(std::string_view ownerRepo) {
    while (!ownerRepo.empty() && ownerRepo.back() == '/') ownerRepo.remove_suffix(1);
    if (ownerRepo.empty()) return std::nullopt;
    size_t slash = ownerRepo.rfind('/');
    return slash == std::string_view::npos ? ownerRepo : ownerRepo.substr(slash + 1);
}

// Every name the folder goes by in lower case: its own, its package's and its
// origin's repository part.
std::set<std::string> recentNameTokens(const LocalProjectMatch& local) {
    std::set<std::string> names{lower(lastPathComponent(local.path))};
    if (local.pkgName) names.insert(lower(*local.pkgName));
    if (local.remoteOwnerRepo) {
        std::string origin = lower(*local.remoteOwnerRepo);
        if (auto piece = lastPiece(origin)) names.emplace(*piece);
    }
    return names;
}

}  // namespace

Score score(const RemoteRepository& remote, const LocalProjectMatch& local) {
    const std::string& name = remote.name;
    const std::string full = remote.owner + "/" + name;
    const std::string nameLower = lower(name);
    const std::string folder = lower(lastPathComponent(local.path));

    // The origin is the strongest witness, so it is asked first: a folder named
    // after the repository whose origin sits under another owner is another
    // owner's copy, whatever its history.
    if (local.remoteOwnerRepo) {
        std::string origin = lower(*local.remoteOwnerRepo);
        if (origin == lower(full)) return {100, {"git remote origin matches " + full + " exactly"}};
        if (lastPiece(origin) == std::string_view(nameLower)) {
            return {80, {"origin repo name matches (" + name + ") but owner differs"}};
        }
    }

    bool identical = recentNameTokens(local).contains(nameLower);
    bool titleAligns = titleSimilar(local.readmeTitle, remote);
    if (identical && !local.recentShas.empty()) {
        return {90, {"repo name identical (" + name + ") with local commit history"}};
    }
    if (identical && titleAligns)
        return {80, {"repo name identical and README title aligns with remote"}};
    if (identical) return {80, {"repo name identical (" + name + ")"}};
    if (local.pkgName && similar(folder, nameLower) && similar(lower(*local.pkgName), nameLower)) {
        return {70, {"folder and package name both resemble " + name}};
    }
    if (titleAligns) return {60, {"README/description metadata resemble " + name}};
    if (similar(folder, nameLower)) return {40, {"folder name loosely resembles " + name}};
    return {};
}

std::vector<MappingCandidate> candidates(const RemoteRepository& remote,
                                         const std::vector<LocalProjectMatch>& matches) {
    std::map<std::string, MappingCandidate> best;
    for (const LocalProjectMatch& match : matches) {
        Score scored = score(remote, match);
        if (scored.confidence <= 0) continue;
        auto found = best.find(match.path);
        // Of two equal scores for one folder the earlier stands.
        if (found != best.end() && found->second.confidence >= scored.confidence) continue;
        best.insert_or_assign(match.path, MappingCandidate{remote.id, match.path, scored.confidence,
                                                           std::move(scored.evidence)});
    }
    std::vector<MappingCandidate> out;
    out.reserve(best.size());
    for (auto& [path, candidate] : best) out.push_back(std::move(candidate));
    std::sort(out.begin(), out.end(), [](const MappingCandidate& a, const MappingCandidate& b) {
        if (a.confidence != b.confidence) return a.confidence > b.confidence;
        return a.localPath < b.localPath;
    });
    return out;
}

}  // namespace quorvane::MappingConfidenceEngine
