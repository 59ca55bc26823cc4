#pragma once

#include "RamDiskCore/Values/VolumePassphrase.h"

namespace ramdisk {

/// Makes the passphrase of a new encrypted volume.
class PassphraseGenerating {
public:
    PassphraseGenerating() = default;
    PassphraseGenerating(const PassphraseGenerating&) = delete;
    PassphraseGenerating& operator=(const PassphraseGenerating&) = delete;
    virtual ~PassphraseGenerating() = default;

    /// @throws the random source's failure.
    [[nodiscard]] virtual VolumePassphrase generate() = 0;
};

} // namespace ramdisk
