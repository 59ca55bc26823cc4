#pragma once

#include "RamDiskCore/Ports/SecretStoring.h"
#include "RamDiskInfrastructure/MacTools/KeychainItems.h"

#include <exception>
#include <memory>

namespace ramdisk {

/// Secrets as generic passwords in the user's keychain.
class KeychainSecretStore final : public SecretStoring {
public:
    /// The keychain refused. The text is the system's text for the status, if there is one.
    class KeychainError : public std::exception {
    public:
        KeychainError(std::int32_t status, std::optional<std::string> message);

        [[nodiscard]] std::int32_t status() const noexcept { return status_; }
        [[nodiscard]] const char* what() const noexcept override { return text_.c_str(); }

    private:
        std::int32_t status_;
        std::string text_;
    };

    KeychainSecretStore(std::string service, std::unique_ptr<KeychainItems> items)
        : service_(std::move(service)),
          items_(std::move(items)) {}

    /// All of these: @throws KeychainError for every status but success and "no such item".
    [[nodiscard]] std::optional<VolumePassphrase> read(const std::string& account) override;
    void store(const std::string& account, const VolumePassphrase& secret) override;
    void remove(const std::string& account) override;
    [[nodiscard]] std::vector<std::string> accounts() override;

private:
    /// Whether there was such an item.
    bool require(std::int32_t status);

    std::string service_;
    std::unique_ptr<KeychainItems> items_;
};

} // namespace ramdisk
