#pragma once

#include <array>
#include <string_view>
#include <utility>

namespace quorvane {

// What a word in the output says about how things stand, which its colour shows:
// green when nothing needs doing, yellow when something is waiting for the person,
// red when something is wrong, dim for what is only background.
enum class Tone { plain, good, attention, problem, dim };

// The names a screen's styles use for them.
constexpr auto enumCases(Tone) {
    using enum Tone;
    return std::array{
        std::pair{plain, std::string_view("plain")}, std::pair{good, std::string_view("good")},
        std::pair{attention, std::string_view("attention")},
        std::pair{problem, std::string_view("problem")}, std::pair{dim, std::string_view("dim")}};
}

}  // namespace quorvane
