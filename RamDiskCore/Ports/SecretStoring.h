#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/VolumePassphrase.h"

#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// Keeps passphrases where only the user can read them. An account is the name under which one is kept.
class SecretStoring : public Port {
public:
    /// Absent only when the store was asked and has no such secret. A store that is locked, silent or missing
    /// is an error, so that nobody takes a secret that could not be read for one that does not exist.
    /// @throws std::exception
    [[nodiscard]] virtual std::optional<VolumePassphrase> read(const std::string& account) = 0;

    /// Keeps `secret`, in place of a former one. When it returns the secret is kept for good.
    /// @throws std::exception with the former secret still kept.
    virtual void store(const std::string& account, const VolumePassphrase& secret) = 0;

    /// Removes the secret. It is no failure when there is none.
    /// @throws std::exception
    virtual void remove(const std::string& account) = 0;

    /// Every account that has a secret.
    /// @throws std::exception
    [[nodiscard]] virtual std::vector<std::string> accounts() = 0;
};

} // namespace ramdisk
