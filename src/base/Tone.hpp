#pragma once

namespace quorvane {

// What a word in the output says about how things stand, which its colour shows:
// green when nothing needs doing, yellow when something is waiting for the person,
// red when something is wrong, dim for what is only background.
enum class Tone { plain, good, attention, problem, dim };

}  // namespace quorvane
