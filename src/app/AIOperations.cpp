// The AI provider's key: the one secret of the AI summaries, set by the person.
#include "app/AppEnvironment.hpp"
#include "persistence/KeychainStore.hpp"
#include "reports/AISummaryService.hpp"

namespace quorvane {

bool AppEnvironment::setAIKey(const std::string& key) {
    std::string entry = config().ai.keychainRef;
    if (keychain().set(key, entry)) return true;
    noteSaveProblem("the secret store (" + keychain().backendDescription() +
                    ") did not take the API key");
    return false;
}

void AppEnvironment::removeAIKey() {
    keychain().remove(config().ai.keychainRef);
}

bool AppEnvironment::hasAIKey() {
    std::optional<std::string> key = keychain().string(config().ai.keychainRef);
    return key && !key->empty();
}

std::unique_ptr<AIProvider> AppEnvironment::aiProvider(const HttpTransport& transport) {
    return AISummaryService::provider(config().ai, keychain(), transport);
}

std::string AppEnvironment::secretStoreDescription() {
    return keychain().backendDescription();
}

}  // namespace quorvane
