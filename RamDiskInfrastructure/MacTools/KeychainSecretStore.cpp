#include "RamDiskInfrastructure/MacTools/KeychainSecretStore.h"

#include <utility>

namespace ramdisk {

namespace {

constexpr std::int32_t itemNotFound = -25300;
constexpr const char* label = "RamDisk saved contents";

} // namespace

KeychainSecretStore::KeychainError::KeychainError(std::int32_t status, std::optional<std::string> message)
    : status_(status),
      text_(message ? std::move(*message) : "Keychain error " + std::to_string(status) + ".") {}

bool KeychainSecretStore::require(std::int32_t status) {
    if (status != 0 && status != itemNotFound) {
        throw KeychainError(status, items_->message(status));
    }
    return status == 0;
}

std::optional<VolumePassphrase> KeychainSecretStore::read(const std::string& account) {
    auto data = items_->copyData({service_, account});
    return require(data.status) ? std::move(data.secret) : std::nullopt;
}

void KeychainSecretStore::store(const std::string& account, const VolumePassphrase& secret) {
    const KeychainItems::Item item{service_, account};
    if (require(items_->update(item, secret))) {
        return;
    }
    if (const auto status = items_->add(item, secret, label); status != 0) {
        throw KeychainError(status, items_->message(status));
    }
}

void KeychainSecretStore::remove(const std::string& account) {
    require(items_->remove({service_, account}));
}

std::vector<std::string> KeychainSecretStore::accounts() {
    auto accounts = items_->accounts(service_);
    return require(accounts.status) ? std::move(accounts.names) : std::vector<std::string>{};
}

} // namespace ramdisk
