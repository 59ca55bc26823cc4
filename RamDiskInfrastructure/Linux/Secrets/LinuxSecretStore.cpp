#include "RamDiskInfrastructure/Linux/Secrets/LinuxSecretStore.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Linux/Secrets/SecretServiceStore.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <utility>

namespace ramdisk {

namespace {

[[noreturn]] void throwNotRunning() {
    throw SecretServiceUnavailable(
        "The key is in the keyring, and no keyring runs here. Log in to the desktop, or "
        "start the keyring, then try again.");
}

} // namespace

LinuxSecretStore::LinuxSecretStore(std::unique_ptr<SecretStoring> service,
                                   const std::filesystem::path& applicationSupport,
                                   std::shared_ptr<const UserDefaultsStoring> settings)
    : service_(std::move(service)),
      files_(applicationSupport),
      settings_(std::move(settings)) {}

bool LinuxSecretStore::allowsKeyFile() const {
    const auto value = settings_->value(allowsKeyFileSetting);
    const auto* const allowed = value ? value->as<bool>() : nullptr;
    return allowed != nullptr && *allowed;
}

void LinuxSecretStore::requireKeyFileAllowed() const {
    if (!allowsKeyFile()) {
        throw SecretServiceAbsent(
            "No keyring runs here to keep the key in. To keep it in a file that only you can read, run "
            "`tramdisk settings set allowsKeyFile true`.");
    }
}

void LinuxSecretStore::requireNotInKeyring(const std::string& account) {
    if (files_.isKeptElsewhere(account)) {
        throwNotRunning();
    }
}

std::optional<VolumePassphrase> LinuxSecretStore::read(const std::string& account) {
    try {
        if (auto secret = service_->read(account)) {
            return secret;
        }
        return files_.read(account);
    } catch (const SecretServiceAbsent&) {
        traceCaught("keyring", "the key is looked for in a file");
        requireNotInKeyring(account);
        auto secret = files_.read(account);
        if (!secret) {
            requireKeyFileAllowed();
        }
        return secret;
    }
}

void LinuxSecretStore::store(const std::string& account, const VolumePassphrase& secret) {
    try {
        service_->store(account, secret);
    } catch (const SecretServiceAbsent&) {
        requireNotInKeyring(account);
        requireKeyFileAllowed();
        traceCaught("keyring", "the key is kept in a file");
        files_.store(account, secret);
        return;
    }
    files_.noteKeptElsewhere(account);
}

void LinuxSecretStore::remove(const std::string& account) {
    try {
        service_->remove(account);
    } catch (const SecretServiceAbsent&) {
        traceCaught("keyring", "only the key in a file is removed");
        requireNotInKeyring(account);
    }
    files_.remove(account);
}

std::vector<std::string> LinuxSecretStore::accounts() {
    auto filed = files_.accounts();
    try {
        auto accounts = service_->accounts();
        std::vector<std::string> all;
        std::set_union(accounts.begin(), accounts.end(), filed.begin(), filed.end(), std::back_inserter(all));
        return all;
    } catch (const SecretServiceAbsent&) {
        traceCaught("keyring", "only the keys in files are counted");
        if (!files_.accountsKeptElsewhere().empty()) {
            throwNotRunning();
        }
        if (filed.empty()) {
            requireKeyFileAllowed();
        }
        return filed;
    }
}

} // namespace ramdisk
