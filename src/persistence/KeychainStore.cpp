#include "persistence/KeychainStore.hpp"

#include <libsecret/secret.h>

#include <fmt/format.h>

#include "base/Log.hpp"
#include "persistence/AtomicFile.hpp"
#include "records/JsonCodec.hpp"

namespace quorvane {

namespace {

// Items match on the two attributes only, whatever schema name stored them, so an
// item made with `secret-tool store service ... account ...` is found too.
const SecretSchema* schema() {
    static const SecretSchema value = {"org.freedesktop.Secret.Generic",
                                       SECRET_SCHEMA_DONT_MATCH_NAME,
                                       {{"service", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                        {"account", SECRET_SCHEMA_ATTRIBUTE_STRING},
                                        {nullptr, SECRET_SCHEMA_ATTRIBUTE_STRING}},
                                       0,
                                       nullptr,
                                       nullptr,
                                       nullptr,
                                       nullptr,
                                       nullptr,
                                       nullptr,
                                       nullptr};
    return &value;
}

// Frees a GError on scope exit; its text never contains the secret.
struct ErrorHolder {
    GError* error = nullptr;
    ~ErrorHolder() {
        if (error != nullptr) g_error_free(error);
    }
};

}  // namespace

bool SecretServiceBackend::available() {
    ErrorHolder holder;
    SecretService* service = secret_service_get_sync(SECRET_SERVICE_NONE, nullptr, &holder.error);
    if (service == nullptr) return false;
    ErrorHolder aliasError;
    SecretCollection* collection = secret_collection_for_alias_sync(
        service, SECRET_COLLECTION_DEFAULT, SECRET_COLLECTION_NONE, nullptr, &aliasError.error);
    bool usable = collection != nullptr;
    if (collection != nullptr) g_object_unref(collection);
    g_object_unref(service);
    return usable;
}

std::optional<std::string> SecretServiceBackend::read(const std::string& service,
                                                      const std::string& account) {
    ErrorHolder holder;
    gchar* value =
        secret_password_lookup_sync(schema(), nullptr, &holder.error, "service", service.c_str(),
                                    "account", account.c_str(), nullptr);
    if (value == nullptr) return std::nullopt;
    std::optional<std::string> result;
    if (g_utf8_validate(value, -1, nullptr)) result = std::string(value);
    secret_password_free(value);
    return result;
}

bool SecretServiceBackend::write(const std::string& service, const std::string& account,
                                 const std::string& value) {
    ErrorHolder holder;
    std::string label = fmt::format("Quorvane: {}", account);
    // Storing with the same attributes replaces the existing item's secret.
    gboolean stored = secret_password_store_sync(
        schema(), SECRET_COLLECTION_DEFAULT, label.c_str(), value.c_str(), nullptr, &holder.error,
        "service", service.c_str(), "account", account.c_str(), nullptr);
    return stored == TRUE;
}

void SecretServiceBackend::remove(const std::string& service, const std::string& account) {
    ErrorHolder holder;
    secret_password_clear_sync(schema(), nullptr, &holder.error, "service", service.c_str(),
                               "account", account.c_str(), nullptr);
}

std::string SecretServiceBackend::description() const {
    return "the desktop's Secret Service (libsecret)";
}

FileSecretBackend::FileSecretBackend(std::filesystem::path file, const Clock& clock)
    : file_(std::move(file)), clock_(clock) {}

namespace {

// secrets.json: {"<service>": {"<account>": "<secret>"}}. Missing: no secrets yet.
// Unreadable or malformed: set aside so a write never replaces tokens it could not
// read; nothing when even that failed, and then nothing may be written.
std::optional<Json> readSecretsFile(const std::filesystem::path& file, const Clock& clock) {
    AtomicFile::ReadResult read = AtomicFile::read(file, size_t{1} << 20);
    if (read.missing) return Json::object();
    if (read.bytes) {
        try {
            Json json = JsonCodec::parse(*read.bytes);
            if (json.is_object()) {
                bool wellFormed = true;
                for (const auto& [service, accounts] : json.items()) {
                    if (!accounts.is_object()) wellFormed = false;
                    for (const auto& [account, value] : accounts.items()) {
                        if (!value.is_string()) wellFormed = false;
                    }
                }
                if (wellFormed) return json;
            }
        } catch (const DecodeError&) {}
    }
    // The log names the file only: what it holds, or why it did not parse, may
    // quote a token.
    std::string name = file.filename().string();
    if (AtomicFile::quarantine(file, clock.now())) {
        Log::app().error(fmt::format("{} unreadable — quarantined", name));
        return Json::object();
    }
    Log::app().error(
        fmt::format("{} unreadable and could not be set aside; no token is saved "
                    "until it is moved away",
                    name));
    return std::nullopt;
}

bool writeSecretsFile(const std::filesystem::path& file, const Json& secrets) {
    if (auto error = AtomicFile::write(file, JsonCodec::pretty(secrets))) {
        Log::app().error(fmt::format("write {} failed: {}", file.filename().string(), *error));
        return false;
    }
    return true;
}

}  // namespace

std::optional<std::string> FileSecretBackend::read(const std::string& service,
                                                   const std::string& account) {
    std::optional<Json> secrets = readSecretsFile(file_, clock_);
    if (!secrets) return std::nullopt;
    auto accounts = secrets->find(service);
    if (accounts == secrets->end()) return std::nullopt;
    auto value = accounts->find(account);
    if (value == accounts->end()) return std::nullopt;
    return value->get<std::string>();
}

bool FileSecretBackend::write(const std::string& service, const std::string& account,
                              const std::string& value) {
    std::optional<Json> secrets = readSecretsFile(file_, clock_);
    if (!secrets) return false;
    (*secrets)[service][account] = value;
    return writeSecretsFile(file_, *secrets);
}

void FileSecretBackend::remove(const std::string& service, const std::string& account) {
    std::optional<Json> secrets = readSecretsFile(file_, clock_);
    if (!secrets) return;
    auto accounts = secrets->find(service);
    if (accounts == secrets->end() || accounts->erase(account) == 0) return;
    if (accounts->empty()) secrets->erase(service);
    writeSecretsFile(file_, *secrets);
}

std::string FileSecretBackend::description() const {
    return fmt::format("the file {} (mode 0600; no Secret Service answered)", file_.string());
}

KeychainStore::KeychainStore(std::string service, std::unique_ptr<SecretBackend> backend)
    : service_(std::move(service)), backend_(std::move(backend)) {}

std::unique_ptr<SecretBackend> KeychainStore::chooseBackend(const std::filesystem::path& dataDir,
                                                            const Clock& clock) {
    if (SecretServiceBackend::available()) return std::make_unique<SecretServiceBackend>();
    return std::make_unique<FileSecretBackend>(dataDir / FileSecretBackend::kFileName, clock);
}

std::optional<std::string> KeychainStore::string(const std::string& name) {
    std::lock_guard lock(mutex_);
    return backend_->read(service_, name);
}

bool KeychainStore::set(const std::string& value, const std::string& name) {
    std::lock_guard lock(mutex_);
    return backend_->write(service_, name, value);
}

void KeychainStore::remove(const std::string& name) {
    std::lock_guard lock(mutex_);
    backend_->remove(service_, name);
}

std::string KeychainStore::backendDescription() const {
    return backend_->description();
}

}  // namespace quorvane
