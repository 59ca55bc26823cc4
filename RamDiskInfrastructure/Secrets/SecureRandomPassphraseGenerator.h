#pragma once

#include "RamDiskCore/Ports/PassphraseGenerating.h"

#include <exception>
#include <string>

namespace ramdisk {

/// Makes passphrases of 32 bytes from the system's cryptographic random source, written as standard Base64
/// (44 characters). The raw bytes are overwritten at once.
class SecureRandomPassphraseGenerator final : public PassphraseGenerating {
public:
    /// The random source failed.
    class GenerationFailed : public std::exception {
    public:
        explicit GenerationFailed(int status);
        [[nodiscard]] const char* what() const noexcept override { return text_.c_str(); }

    private:
        std::string text_;
    };

    /// @throws GenerationFailed
    [[nodiscard]] VolumePassphrase generate() override;
};

} // namespace ramdisk
