#pragma once

#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "platform/Clock.hpp"

namespace quorvane {

// Where secrets physically live. Names are (service, account) pairs.
class SecretBackend {
public:
    virtual ~SecretBackend() = default;
    virtual std::optional<std::string> read(const std::string& service,
                                            const std::string& account) = 0;
    virtual bool write(const std::string& service, const std::string& account,
                       const std::string& value) = 0;
    virtual void remove(const std::string& service, const std::string& account) = 0;
    // A line for `quorvane doctor`: which store this is.
    virtual std::string description() const = 0;
};

// The desktop's Secret Service (GNOME Keyring, KWallet, KeePassXC...) through libsecret,
// as generic items with the attributes "service" and "account".
class SecretServiceBackend final : public SecretBackend {
public:
    // True when a Secret Service answers on the session bus and has a default
    // collection to keep items in.
    static bool available();

    std::optional<std::string> read(const std::string& service,
                                    const std::string& account) override;
    bool write(const std::string& service, const std::string& account,
               const std::string& value) override;
    void remove(const std::string& service, const std::string& account) override;
    std::string description() const override;
};

// The stand-in when no Secret Service answers: "secrets.json" in the data folder,
// mode 0600, written atomically. A file that cannot be read is moved aside.
class FileSecretBackend final : public SecretBackend {
public:
    FileSecretBackend(std::filesystem::path file, const Clock& clock);

    std::optional<std::string> read(const std::string& service,
                                    const std::string& account) override;
    bool write(const std::string& service, const std::string& account,
               const std::string& value) override;
    void remove(const std::string& service, const std::string& account) override;
    std::string description() const override;

    static constexpr const char* kFileName = "secrets.json";

private:
    const std::filesystem::path file_;
    const Clock& clock_;
};

// Keeps secrets (GitHub tokens, the Anthropic key) out of every other file. A
// refused or locked store looks like a missing item: `string` gives nothing and
// `set` gives false. Calls are serialised.
class KeychainStore {
public:
    static constexpr const char* kService = "com.qvn.quorvane";

    KeychainStore(std::string service, std::unique_ptr<SecretBackend> backend);

    // The Secret Service when one answers, otherwise secrets.json in `dataDir`.
    static std::unique_ptr<SecretBackend> chooseBackend(const std::filesystem::path& dataDir,
                                                        const Clock& clock);

    std::optional<std::string> string(const std::string& name);
    bool set(const std::string& value, const std::string& name);
    void remove(const std::string& name);  // removing a missing item is no failure

    std::string backendDescription() const;

private:
    std::string service_;
    std::unique_ptr<SecretBackend> backend_;
    std::mutex mutex_;
};

}  // namespace quorvane
