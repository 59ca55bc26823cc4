#pragma once

#include "RamDiskCore/Ports/SecretStoring.h"

#include <chrono>
#include <stdexcept>

namespace ramdisk {

/// No service that keeps passwords answers for this user: none is installed, or there is no session.
class SecretServiceAbsent : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The service is there, but cannot say now what it keeps: locked, silent, or refusing.
class SecretServiceUnavailable : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Whether the user may be asked to unlock the keyring.
enum class UnlockPrompt { never, allowed };

/// Secrets in the desktop's keyring, by the Secret Service interface on the user's message bus.
///
/// Every operation opens its own connection and ends after the limit: any thread may call, and a service that
/// hangs holds nobody for longer. A user who is asked for the keyring's password has two minutes more. Items
/// carry the attributes `service` and `account`; they are found by these two, in whichever keyring they lie,
/// and new ones are put into the default one. What is locked is never taken for what is not there.
class SecretServiceStore final : public SecretStoring {
public:
    static constexpr std::chrono::milliseconds usualLimit{15'000};

    /// @param service the value of the attribute `service`.
    SecretServiceStore(std::string service, UnlockPrompt prompt, std::chrono::milliseconds limit = usualLimit)
        : service_(std::move(service)),
          prompt_(prompt),
          limit_(limit) {}

    /// All of them: @throws SecretServiceAbsent, SecretServiceUnavailable
    [[nodiscard]] std::optional<VolumePassphrase> read(const std::string& account) override;
    /// Read back before it is called stored.
    void store(const std::string& account, const VolumePassphrase& secret) override;
    void remove(const std::string& account) override;
    [[nodiscard]] std::vector<std::string> accounts() override;

private:
    std::string service_;
    UnlockPrompt prompt_;
    std::chrono::milliseconds limit_;
};

/// `allowed` where the process has a display to show a question on.
[[nodiscard]] UnlockPrompt unlockPromptHere();

} // namespace ramdisk
