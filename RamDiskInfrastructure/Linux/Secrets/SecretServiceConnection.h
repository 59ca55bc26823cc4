#pragma once

#include "RamDiskCore/Values/VolumePassphrase.h"
#include "RamDiskInfrastructure/Linux/Bus/MessageBus.h"
#include "RamDiskInfrastructure/Linux/Secrets/SecretServiceStore.h"

#include <map>
#include <string>
#include <vector>

namespace ramdisk {

/// One connection to the Secret Service, for one operation.
///
/// Secrets cross the bus unencrypted ("plain"). The bus is a socket that only this user and root can read,
/// and whoever can watch it as this user can ask the service himself. The memory of the messages is
/// overwritten.
class SecretServiceConnection {
public:
    using Attributes = std::map<std::string, std::string>;

    /// @throws BusAbsent, BusCallError
    SecretServiceConnection(UnlockPrompt prompt, std::chrono::milliseconds limit);

    /// The items with all these attributes, unlocked, the newest first. Unlocks what is locked. If nothing
    /// was found, also unlocks the default keyring, since a locked one need not show what it holds.
    /// @throws SecretServiceUnavailable when it stays locked, or there is no default keyring.
    /// @throws BusCallError
    [[nodiscard]] std::vector<std::string> find(const Attributes& attributes);

    [[nodiscard]] Attributes attributesOf(const std::string& item);
    [[nodiscard]] VolumePassphrase secretOf(const std::string& item);
    void setSecret(const std::string& item, const VolumePassphrase& secret);
    void createItem(const std::string& label, const Attributes& attributes, const VolumePassphrase& secret);
    void deleteItem(const std::string& item);

private:
    struct Found {
        std::vector<std::string> unlocked;
        std::vector<std::string> locked;
    };

    [[nodiscard]] Found search(const Attributes& attributes);
    [[nodiscard]] std::string defaultCollection();
    [[nodiscard]] bool isLocked(const std::string& collection);
    [[nodiscard]] std::uint64_t modified(const std::string& item);
    void unlock(const std::vector<std::string>& objects);
    void answerPrompt(const std::string& prompt);
    const std::string& session();

    UnlockPrompt prompt_;
    MessageBus::Clock::time_point deadline_;
    MessageBus bus_;
    std::string session_;
};

} // namespace ramdisk
