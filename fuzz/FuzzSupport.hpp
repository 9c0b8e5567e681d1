// What the fuzz targets share: cutting one input into the pieces a target needs,
// a data folder of its own, and stand-ins for the seams a parser's caller would
// otherwise reach the world through (time, child processes, the network).
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "platform/Clock.hpp"
#include "platform/HttpTransport.hpp"
#include "platform/ProcessRunner.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace quorvane::fuzz {

// An input read from the front: a byte that picks what to do, then fields that
// each end at a separator, then the rest. Running out gives zeros and empty texts,
// never a failure, so every byte sequence is a valid input.
class Input {
public:
    Input(const uint8_t* data, size_t size)
        : rest_(reinterpret_cast<const char*>(data), size) {}
    explicit Input(std::string_view text) : rest_(text) {}
    uint8_t byte();
    // Up to (not including) the next `separator`, which is consumed; all that is
    // left when there is none.
    std::string_view field(char separator = '\n');
    std::string_view rest() { return std::exchange(rest_, std::string_view()); }
    bool empty() const { return rest_.empty(); }

private:
    std::string_view rest_;
};

// A fresh folder under $TMPDIR (else /tmp), removed with everything in it when the
// object goes. Targets keep one for the whole run and empty what they wrote.
class ScratchFolder {
public:
    ScratchFolder();
    ~ScratchFolder();
    ScratchFolder(const ScratchFolder&) = delete;
    ScratchFolder& operator=(const ScratchFolder&) = delete;
    const std::filesystem::path& path() const { return path_; }

private:
    std::filesystem::path path_;
};

// Points HOME, the XDG folders and the session bus into `folder`, so what the
// program writes for the person (reports, the keyring) stays in the scratch
// folder and nothing reaches the desktop of whoever runs the fuzzer.
void keepHomeIn(const std::filesystem::path& folder);

// A scratch folder for the whole run, removed at exit. Targets whose environment
// is never destroyed keep their files here: at exit the statics an environment's
// shutdown uses may already be gone, but this folder outlives everything that
// asked for it.
const std::filesystem::path& runFolder();

// A clock that reads one fixed time: what a parser makes of its input must not
// depend on when it ran.
class FixedClock final : public Clock {
public:
    explicit FixedClock(Date now) : now_(now) {}
    Date now() const override { return now_; }
    void waitUntil(std::optional<Date> deadline, Wakeup& wakeup,
                   std::stop_token stop) const override;

private:
    Date now_;
};

// The noon the targets' clock reads.
Date fixedNoon();

// Starts no child: every run is a failed launch, as when git is missing. The
// targets exercise what reads bytes, not git, and a fork per input would leave
// the fuzzer a few hundred inputs a second.
class NoChildren final : public ProcessRunner {
public:
    ShellResult run(const ProcessRequest& request) const override;
    LaunchResult startDetached(const ProcessRequest& request) const override;
};

// Answers every request with the one reply it was given.
class CannedTransport final : public HttpTransport {
public:
    HttpResponse reply;
    HttpResponse get(const HttpRequest&) const override { return reply; }
    HttpResponse post(const HttpRequest&, const std::string&) const override { return reply; }
};

}  // namespace quorvane::fuzz
