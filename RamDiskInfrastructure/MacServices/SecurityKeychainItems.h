#pragma once

#include "RamDiskInfrastructure/MacTools/KeychainItems.h"

namespace ramdisk {

/// The keychain itself, by Keychain Services.
class SecurityKeychainItems final : public KeychainItems {
public:
    [[nodiscard]] Data copyData(const Item& item) override;
    [[nodiscard]] std::int32_t update(const Item& item, const VolumePassphrase& secret) override;
    [[nodiscard]] std::int32_t add(const Item& item, const VolumePassphrase& secret,
                                   const std::string& label) override;
    [[nodiscard]] std::int32_t remove(const Item& item) override;
    [[nodiscard]] Accounts accounts(const std::string& service) override;
    [[nodiscard]] std::optional<std::string> message(std::int32_t status) override;
};

} // namespace ramdisk
