#pragma once

#include "RamDiskCore/Ports/SecretStoring.h"
#include "RamDiskCore/Ports/UserDefaultsStoring.h"
#include "RamDiskInfrastructure/Linux/Secrets/KeyFileStore.h"

#include <memory>

namespace ramdisk {

/// Keeps secrets in the desktop's keyring if a service answers for one. Only if none does and the user
/// allowed it (`allowsKeyFile`), keeps them in files.
///
/// A keyring that is locked, silent or failing is an error and does not count as absent: nothing is read from
/// the files then, nor stored there. For each secret in the keyring there is a note without the secret. So
/// without the keyring it differs from a secret that nobody has. A secret that was once stored in a file
/// stays readable there until the keyring gets a newer one.
class LinuxSecretStore final : public SecretStoring {
public:
    /// The setting in the user defaults that allows keys in files; false unless it is set.
    static constexpr const char* allowsKeyFileSetting = "allowsKeyFile";

    /// @param service throws `SecretServiceAbsent` when no service answers.
    LinuxSecretStore(std::unique_ptr<SecretStoring> service, const std::filesystem::path& applicationSupport,
                     std::shared_ptr<const UserDefaultsStoring> settings);

    [[nodiscard]] std::optional<VolumePassphrase> read(const std::string& account) override;
    void store(const std::string& account, const VolumePassphrase& secret) override;
    void remove(const std::string& account) override;
    [[nodiscard]] std::vector<std::string> accounts() override;

private:
    [[nodiscard]] bool allowsKeyFile() const;
    void requireKeyFileAllowed() const;
    void requireNotInKeyring(const std::string& account);

    std::unique_ptr<SecretStoring> service_;
    KeyFileStore files_;
    std::shared_ptr<const UserDefaultsStoring> settings_;
};

} // namespace ramdisk
