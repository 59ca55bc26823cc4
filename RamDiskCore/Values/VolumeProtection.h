#pragma once

#include "RamDiskCore/Values/VolumePassphrase.h"

#include <variant>

namespace ramdisk {

/// What protects the contents of a volume that is being made.
struct VolumeProtection {
    struct Encrypted {
        VolumePassphrase passphrase;
        friend bool operator==(const Encrypted&, const Encrypted&) = default;
    };
    struct None {
        friend bool operator==(const None&, const None&) = default;
    };

    std::variant<Encrypted, None> value = None{};

    /// The passphrase of an encrypted volume, else null. Owned by this value.
    [[nodiscard]] const VolumePassphrase* passphrase() const noexcept {
        const auto* encrypted = std::get_if<Encrypted>(&value);
        return encrypted == nullptr ? nullptr : &encrypted->passphrase;
    }

    friend bool operator==(const VolumeProtection&, const VolumeProtection&) = default;
};

} // namespace ramdisk
