#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// What a command and the daemon say to each other over the control socket
// "quorvane.sock". Every message is a frame: one byte naming its kind, the length
// of its payload as four bytes, most significant first, then the payload. The
// command sends its request as frames ending with `run`; the daemon answers with
// standard output and standard error as they come, then the exit status.
namespace quorvane::ControlProtocol {

inline constexpr const char* kSocketName = "quorvane.sock";

enum class FrameKind : char {
    argument = 'A',        // one word of the command line, in order
    workingDirectory = 'D',  // where relative paths are resolved
    input = 'I',           // what the command would have read from standard input
    terminal = 'T',        // how output is laid out: "<colour 0|1> <columns> <progress 0|1>"
    run = 'R',             // the request is complete
    standardOutput = 'o',
    standardError = 'e',
    exitStatus = 'x',      // the command's exit status, in decimal
};

// Bounds that keep a peer from making the other side hold without limit.
inline constexpr size_t kMaxPayload = 1 << 20;
inline constexpr size_t kMaxRequestBytes = 4 << 20;
inline constexpr size_t kMaxArguments = 1024;
inline constexpr size_t kHeaderSize = 5;

std::string encodeFrame(FrameKind kind, std::string_view payload);

struct Frame {
    FrameKind kind;
    std::string payload;
};

// Cuts frames out of a byte stream that arrives in pieces of any size.
class FrameReader {
public:
    void append(std::string_view bytes) { buffer_.append(bytes); }
    // The next complete frame, nothing while it is incomplete. Throws
    // std::runtime_error for an unknown kind or a payload over kMaxPayload.
    std::optional<Frame> next();
    size_t buffered() const { return buffer_.size(); }

private:
    std::string buffer_;
};

// How the command's side would have laid out its output.
struct TerminalLayout {
    bool color = false;
    size_t columns = 80;
    bool progress = false;
};

struct Request {
    std::vector<std::string> arguments;  // without the program name
    std::string workingDirectory;
    std::optional<std::string> input;
    TerminalLayout terminal;
};

std::string encodeRequest(const Request& request);

// Collects a request frame by frame.
class RequestBuilder {
public:
    // False while more frames are needed; true once `run` arrived. Throws
    // std::runtime_error for a frame a request cannot hold or a request over the
    // bounds.
    bool add(const Frame& frame);
    const Request& request() const { return request_; }

private:
    Request request_;
    size_t bytes_ = 0;
    bool complete_ = false;
};

}  // namespace quorvane::ControlProtocol
