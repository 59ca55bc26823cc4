#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/VolumePassphrase.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// The calls to the keychain, on generic-password items of a service. Each returns the keychain's own status;
/// 0 is success.
class KeychainItems : public Port {
public:
    struct Data {
        std::int32_t status = 0;
        /// Absent unless the status is 0.
        std::optional<VolumePassphrase> secret;
    };
    struct Accounts {
        std::int32_t status = 0;
        std::vector<std::string> names;
    };
    struct Item {
        std::string service;
        std::string account;
    };

    [[nodiscard]] virtual Data copyData(const Item& item) = 0;
    [[nodiscard]] virtual std::int32_t update(const Item& item, const VolumePassphrase& secret) = 0;
    /// The item can be read from the first unlock after a start of this machine, and on no other machine.
    [[nodiscard]] virtual std::int32_t add(const Item& item, const VolumePassphrase& secret,
                                           const std::string& label) = 0;
    [[nodiscard]] virtual std::int32_t remove(const Item& item) = 0;
    [[nodiscard]] virtual Accounts accounts(const std::string& service) = 0;

    /// The system's text for a status. Absent when it has none.
    [[nodiscard]] virtual std::optional<std::string> message(std::int32_t status) = 0;
};

} // namespace ramdisk
