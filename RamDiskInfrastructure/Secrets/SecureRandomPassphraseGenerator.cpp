#include "RamDiskInfrastructure/Secrets/SecureRandomPassphraseGenerator.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstddef>

#include <sys/random.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr std::size_t secretBytes = 32;

std::string base64(const std::string& bytes) {
    static constexpr std::string_view alphabet =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string text;
    // At its final size from the start: a growing string would leave copies of the secret behind.
    text.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t start = 0; start < bytes.size(); start += 3) {
        const auto count = std::min<std::size_t>(3, bytes.size() - start);
        unsigned group = 0;
        for (std::size_t index = 0; index < 3; ++index) {
            group = group << 8U | (index < count ? static_cast<unsigned char>(bytes[start + index]) : 0U);
        }
        for (std::size_t index = 0; index < 4; ++index) {
            text.push_back(index <= count ? alphabet[group >> (18U - 6U * index) & 63U] : '=');
        }
    }
    return text;
}

} // namespace

SecureRandomPassphraseGenerator::GenerationFailed::GenerationFailed(int status)
    : text_(fmt::format("Secure random generation failed ({}).", status)) {}

VolumePassphrase SecureRandomPassphraseGenerator::generate() {
    std::string bytes(secretBytes, '\0');
    if (getentropy(bytes.data(), bytes.size()) != 0) {
        throw GenerationFailed(errno);
    }
    auto text = base64(bytes);
    wipe(bytes);
    VolumePassphrase passphrase(text);
    wipe(text);
    return passphrase;
}

} // namespace ramdisk
