#include "cli/ControlProtocol.hpp"

#include <charconv>
#include <stdexcept>

#include <fmt/format.h>

namespace quorvane::ControlProtocol {

namespace {

bool isKnownKind(char kind) {
    switch (static_cast<FrameKind>(kind)) {
        case FrameKind::argument:
        case FrameKind::workingDirectory:
        case FrameKind::input:
        case FrameKind::terminal:
        case FrameKind::run:
        case FrameKind::standardOutput:
        case FrameKind::standardError:
        case FrameKind::exitStatus:
            return true;
    }
    return false;
}

// A decimal number that is the whole of `text`, or nothing.
std::optional<size_t> wholeNumber(std::string_view text) {
    size_t value = 0;
    auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || text.empty()) {
        return std::nullopt;
    }
    return value;
}

TerminalLayout decodeLayout(std::string_view payload) {
    size_t first = payload.find(' ');
    size_t second = first == std::string_view::npos ? first : payload.find(' ', first + 1);
    if (second == std::string_view::npos) throw std::runtime_error("malformed terminal frame");
    std::optional<size_t> color = wholeNumber(payload.substr(0, first));
    std::optional<size_t> columns = wholeNumber(payload.substr(first + 1, second - first - 1));
    std::optional<size_t> progress = wholeNumber(payload.substr(second + 1));
    if (!color || !columns || !progress || *color > 1 || *progress > 1 || *columns < 20 ||
        *columns > 1000) {
        throw std::runtime_error("malformed terminal frame");
    }
    return {*color == 1, *columns, *progress == 1};
}

}  // namespace

std::string encodeFrame(FrameKind kind, std::string_view payload) {
    const auto size = static_cast<uint32_t>(payload.size());
    std::string frame;
    frame.reserve(kHeaderSize + payload.size());
    frame.push_back(static_cast<char>(kind));
    for (int shift = 24; shift >= 0; shift -= 8) {
        frame.push_back(static_cast<char>((size >> shift) & 0xFF));
    }
    frame.append(payload);
    return frame;
}

std::optional<Frame> FrameReader::next() {
    if (buffer_.empty()) return std::nullopt;
    if (!isKnownKind(buffer_[0])) {
        throw std::runtime_error(
            fmt::format("unknown frame kind {}", static_cast<unsigned char>(buffer_[0])));
    }
    if (buffer_.size() < kHeaderSize) return std::nullopt;
    size_t size = 0;
    for (size_t i = 1; i < kHeaderSize; ++i) {
        size = (size << 8) | static_cast<unsigned char>(buffer_[i]);
    }
    if (size > kMaxPayload) throw std::runtime_error(fmt::format("frame of {} bytes", size));
    if (buffer_.size() < kHeaderSize + size) return std::nullopt;
    Frame frame{static_cast<FrameKind>(buffer_[0]), buffer_.substr(kHeaderSize, size)};
    buffer_.erase(0, kHeaderSize + size);
    return frame;
}

std::string encodeRequest(const Request& request) {
    std::string bytes;
    for (const std::string& argument : request.arguments) {
        bytes += encodeFrame(FrameKind::argument, argument);
    }
    bytes += encodeFrame(FrameKind::workingDirectory, request.workingDirectory);
    if (request.input) bytes += encodeFrame(FrameKind::input, *request.input);
    bytes += encodeFrame(FrameKind::terminal,
                         fmt::format("{} {} {}", request.terminal.color ? 1 : 0,
                                     request.terminal.columns, request.terminal.progress ? 1 : 0));
    bytes += encodeFrame(FrameKind::run, "");
    return bytes;
}

bool RequestBuilder::add(const Frame& frame) {
    if (complete_) throw std::runtime_error("frame after the end of the request");
    bytes_ += kHeaderSize + frame.payload.size();
    if (bytes_ > kMaxRequestBytes) throw std::runtime_error("request too large");
    switch (frame.kind) {
        case FrameKind::argument:
            if (request_.arguments.size() >= kMaxArguments) {
                throw std::runtime_error("too many arguments");
            }
            request_.arguments.push_back(frame.payload);
            return false;
        case FrameKind::workingDirectory:
            // Only an absolute folder can say where a relative path starts.
            if (!frame.payload.starts_with('/') || frame.payload.find('\0') != std::string::npos) {
                throw std::runtime_error("the working directory is not an absolute path");
            }
            request_.workingDirectory = frame.payload;
            return false;
        case FrameKind::input:
            request_.input = frame.payload;
            return false;
        case FrameKind::terminal:
            request_.terminal = decodeLayout(frame.payload);
            return false;
        case FrameKind::run:
            if (request_.arguments.empty()) throw std::runtime_error("a request without a command");
            if (request_.workingDirectory.empty()) {
                throw std::runtime_error("a request without a working directory");
            }
            complete_ = true;
            return true;
        case FrameKind::standardOutput:
        case FrameKind::standardError:
        case FrameKind::exitStatus:
            break;
    }
    throw std::runtime_error("a reply frame in a request");
}

}  // namespace quorvane::ControlProtocol
