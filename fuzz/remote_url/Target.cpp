// Remote addresses as a cloned repository's configuration gives them, and the
// names the mapping to GitHub is keyed by. Stripping credentials and making an
// address canonical are each done once for good: doing either again changes
// nothing, so no second pass could reveal more than the first showed, and two
// spellings of one address cannot pass for two addresses.
#include <cstdlib>

#include "FuzzSupport.hpp"
#include "base/RemoteURL.hpp"
#include "github/RepoMapper.hpp"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    using namespace quorvane;
    const std::string_view url(reinterpret_cast<const char*>(data), size);

    const std::string bare = RemoteURL::withoutCredentials(url);
    if (RemoteURL::withoutCredentials(bare) != bare) std::abort();
    const std::string scrubbed = RemoteURL::scrubbed(url);
    if (RemoteURL::scrubbed(scrubbed) != scrubbed) std::abort();

    if (const std::optional<std::string> canonical = parseURL(url)) {
        // The addresses requests go to; curl's forms of the others (file:, a guessed
        // host) are its own business.
        const bool web = canonical->starts_with("https://") || canonical->starts_with("http://");
        if (web && parseURL(*canonical) != canonical) std::abort();
        (void)crossesTheNetworkInClear(*canonical);
    }
    (void)crossesTheNetworkInClear(url);

    // A mapping key names one repository of one owner.
    if (const auto key = RepoMapper::ownerRepo(url)) {
        if (key->first.empty() || key->second.empty()) std::abort();
        if (key->first.find('/') != std::string::npos) std::abort();
    }
    return 0;
}
