#pragma once

#include <optional>
#include <string_view>

namespace quorvane {

// Every persisted enumeration declares `enumCases(E)` beside itself: an array of
// (case, name) pairs. These helpers turn a case into the text stored in files and back.
template <class E>
concept NamedEnum = std::is_enum_v<E> && requires(E value) {
    enumCases(value);
};

template <NamedEnum E>
std::string_view enumName(E value) {
    for (const auto& [candidate, name] : enumCases(E{})) {
        if (candidate == value) return name;
    }
    return {};
}

template <NamedEnum E>
std::optional<E> enumFromName(std::string_view text) {
    for (const auto& [candidate, name] : enumCases(E{})) {
        if (name == text) return candidate;
    }
    return std::nullopt;
}

}  // namespace quorvane
