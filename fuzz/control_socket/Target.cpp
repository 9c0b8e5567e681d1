// What a command sends the daemon over the control socket, as any local process
// could send it: frames cut out of a byte stream arriving in pieces of any size,
// collected into a request. A malformed stream is refused with
// std::runtime_error, never anything worse; a request that is taken is what an
// honest command encoding it would have sent.
#include <cstdlib>

#include "FuzzSupport.hpp"
#include "cli/ControlProtocol.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace quorvane;
    namespace cp = ControlProtocol;
    fuzz::Input input(data, size);
    // The first byte sets how the stream is cut into reads.
    const size_t piece = 1 + input.byte() % 64;
    const std::string_view stream = input.rest();
    cp::FrameReader reader;
    cp::RequestBuilder builder;
    try {
        for (size_t at = 0; at < stream.size(); at += piece) {
            reader.append(stream.substr(at, piece));
            while (std::optional<cp::Frame> frame = reader.next()) {
                if (builder.add(*frame)) {
                    // Encoded again, the request reads back as the same request.
                    cp::FrameReader again;
                    again.append(cp::encodeRequest(builder.request()));
                    cp::RequestBuilder rebuilt;
                    bool complete = false;
                    while (std::optional<cp::Frame> next = again.next()) complete = rebuilt.add(*next);
                    if (!complete || rebuilt.request().arguments != builder.request().arguments ||
                        rebuilt.request().workingDirectory != builder.request().workingDirectory ||
                        rebuilt.request().input != builder.request().input) {
                        std::abort();
                    }
                    return 0;
                }
            }
        }
    } catch (const std::runtime_error&) {
    }
    return 0;
}
