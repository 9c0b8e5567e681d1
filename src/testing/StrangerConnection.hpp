#pragma once

#include <filesystem>
#include <string>

namespace quorvane::testing {

// Opens `socketPath` and the folders above it to everyone, then connects as the
// unprivileged user 65534 from a child process and sends `request`. True when the
// server closed that connection without a byte of reply: only the kernel's word
// on the peer kept the stranger out. Needs root.
bool strangerIsTurnedAway(const std::filesystem::path& socketPath, const std::string& request);

}  // namespace quorvane::testing
