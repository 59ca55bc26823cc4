#pragma once

#include "RamDiskCore/Ports/SecretStoring.h"
#include "RamDiskCore/Ports/UserDefaultsStoring.h"
#include "RamDiskInfrastructure/Linux/Secrets/KeyFileStore.h"

#include <memory>

namespace ramdisk {

/// Keeps secrets in the desktop's keyring where a service answers for one, and in files only where none does
/// and the user allowed it (`allowsKeyFile`).
///
/// A keyring that is locked, silent or failing is an error and never stands for an absent one: nothing is
/// then looked up in the files, nor stored there. What the keyring was given is noted, without the secret, so
/// that without the keyring it is told from what nobody keeps. A secret that was once put into a file stays
/// readable there until the keyring is given a newer one.
class LinuxSecretStore final : public SecretStoring {
public:
    /// The setting in the user defaults that allows keys in files; false unless it is set.
    static constexpr const char* allowsKeyFileSetting = "allowsKeyFile";

    /// @param service throws `SecretServiceAbsent` where no service answers.
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
