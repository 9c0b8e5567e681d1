// config.json as anything running as the person may leave it, and `config set`,
// `config add` and `config remove` as the person may type them. Decoding either
// refuses with DecodeError or gives a configuration that survives being written
// and read back unchanged; a value `set` accepts is the value the file then holds.
#include <cstdlib>

#include "FuzzSupport.hpp"
#include "persistence/ConfigKeys.hpp"
#include "persistence/ConfigService.hpp"

namespace quorvane::fuzz {
namespace {

void requireRoundTrip(const AppConfig& config) {
    const std::string text = ConfigService::encode(config);
    if (!(ConfigService::decode(text) == config)) std::abort();
}

void decodeFile(std::string_view text) {
    AppConfig config;
    try {
        config = ConfigService::decode(text);
    } catch (const DecodeError&) {
        return;
    }
    requireRoundTrip(config);
    for (const ConfigKeys::Key& key : ConfigKeys::all()) {
        (void)ConfigKeys::display(ConfigKeys::valueOf(config, key));
    }
}

void typeValue(bool entry, std::string_view name, std::string_view text) {
    const ConfigKeys::Parsed parsed =
        entry ? ConfigKeys::parseEntry(name, text) : ConfigKeys::parse(name, text);
    if (!parsed.error.empty() || parsed.key == nullptr || entry) return;
    AppConfig config;
    ConfigKeys::apply(config, *parsed.key, parsed.value);
    if (ConfigKeys::valueOf(config, *parsed.key) != parsed.value) std::abort();
    (void)ConfigKeys::display(parsed.value);
    requireRoundTrip(config);
}

}  // namespace
}  // namespace quorvane::fuzz

// The first byte picks: 0 to 127 decode the rest as config.json; above, the rest
// is a key's name, a line break and the value typed for it (for a list entry when
// the byte is odd).
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    quorvane::fuzz::Input input(data, size);
    const uint8_t mode = input.byte();
    if (mode < 128) {
        quorvane::fuzz::decodeFile(input.rest());
    } else {
        const std::string_view name = input.field();
        quorvane::fuzz::typeValue(mode % 2 == 1, name, input.rest());
    }
    return 0;
}
