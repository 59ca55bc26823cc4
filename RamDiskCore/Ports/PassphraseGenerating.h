#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/VolumePassphrase.h"

namespace ramdisk {

/// Makes the passphrase of a new encrypted volume.
class PassphraseGenerating : public Port {
public:
    /// @throws the random source's failure.
    [[nodiscard]] virtual VolumePassphrase generate() = 0;
};

} // namespace ramdisk
