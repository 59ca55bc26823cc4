#pragma once

#include "RamDiskCore/Ports/SecretStoring.h"
#include "RamDiskInfrastructure/Stores/FileLock.h"

#include <filesystem>

namespace ramdisk {

/// Secrets in files that only their owner can read, one for each account. For systems without a keyring. It
/// is less safe than a keyring: anybody who gets hold of the system disk has the keys together with the files
/// that they lock.
///
/// Files are replaced as a whole and flushed. A file or folder that is a link, belongs to another user or is
/// open to others is an error. It is never used and never overwritten. An account can also be noted as kept
/// elsewhere. This note holds no secret. It keeps the account's key from being made again while the keyring
/// does not run.
class KeyFileStore final : public SecretStoring {
public:
    /// The folder "Saved Contents Keys" in an application support folder.
    explicit KeyFileStore(const std::filesystem::path& applicationSupport);

    [[nodiscard]] std::optional<VolumePassphrase> read(const std::string& account) override;
    void store(const std::string& account, const VolumePassphrase& secret) override;
    void remove(const std::string& account) override;
    [[nodiscard]] std::vector<std::string> accounts() override;

    /// Removes the account's secret here and notes that another store keeps it. @throws std::exception
    void noteKeptElsewhere(const std::string& account);
    [[nodiscard]] bool isKeptElsewhere(const std::string& account);
    [[nodiscard]] std::vector<std::string> accountsKeptElsewhere();

private:
    [[nodiscard]] std::filesystem::path fileOf(const std::string& account, std::string_view suffix) const;
    [[nodiscard]] std::vector<std::string> accountsWith(std::string_view suffix);
    [[nodiscard]] bool isFolderThere() const;
    [[nodiscard]] FileDescriptor lockFolder() const;
    void forget(const std::string& account, std::string_view suffix) const;

    std::filesystem::path folder_;
    FileLock lock_;
};

} // namespace ramdisk
