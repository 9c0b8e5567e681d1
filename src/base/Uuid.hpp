#pragma once

#include <string>

namespace quorvane {

// A new random (version 4) UUID in upper-case text, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
std::string newUUID();

}  // namespace quorvane
