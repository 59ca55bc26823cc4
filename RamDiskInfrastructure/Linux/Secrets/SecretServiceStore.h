#pragma once

#include "RamDiskCore/Ports/SecretStoring.h"

#include <chrono>
#include <stdexcept>

namespace ramdisk {

/// No service that keeps passwords answers this user: none is installed, or there is no session.
class SecretServiceAbsent : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The service exists but cannot say now what it keeps: it is locked, silent, or refuses.
class SecretServiceUnavailable : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Whether the user may be asked to unlock the keyring.
enum class UnlockPrompt { never, allowed };

/// Secrets in the desktop's keyring, by the Secret Service interface on the user's message bus.
///
/// Every operation opens its own connection and ends when the limit is reached. So any thread may call, and a
/// service that hangs holds nobody up for longer. A user who is asked for the keyring's password has two
/// minutes more. Items have the attributes `service` and `account`. They are found by these two in any
/// keyring. New ones are put into the default keyring. What is locked never counts as absent.
class SecretServiceStore final : public SecretStoring {
public:
    static constexpr std::chrono::milliseconds usualLimit{15'000};

    /// @param service the value of the attribute `service`.
    SecretServiceStore(std::string service, UnlockPrompt prompt, std::chrono::milliseconds limit = usualLimit)
        : service_(std::move(service)),
          prompt_(prompt),
          limit_(limit) {}

    /// All of these: @throws SecretServiceAbsent, SecretServiceUnavailable
    [[nodiscard]] std::optional<VolumePassphrase> read(const std::string& account) override;
    /// The secret is read back before it counts as stored.
    void store(const std::string& account, const VolumePassphrase& secret) override;
    void remove(const std::string& account) override;
    [[nodiscard]] std::vector<std::string> accounts() override;

private:
    std::string service_;
    UnlockPrompt prompt_;
    std::chrono::milliseconds limit_;
};

/// `allowed` if the process has a display to show a question on.
[[nodiscard]] UnlockPrompt unlockPromptHere();

} // namespace ramdisk
