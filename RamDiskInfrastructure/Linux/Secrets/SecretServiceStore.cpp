#include "RamDiskInfrastructure/Linux/Secrets/SecretServiceStore.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Linux/Secrets/SecretServiceConnection.h"

#include <algorithm>
#include <cstdlib>
#include <set>

namespace ramdisk {

namespace {

constexpr const char* label = "RamDisk saved contents";
/// By which other programs tell what kind of item it is.
constexpr const char* schema = "com.tavrin.RamDisk.SavedContents";

/// Runs `body` with a connection, and says of every failure which of its kinds it is.
template <typename Body>
auto askService(UnlockPrompt prompt, std::chrono::milliseconds limit, Body body) {
    try {
        SecretServiceConnection service(prompt, limit);
        return body(service);
    } catch (const BusAbsent& error) {
        traceCaught("keyring", "no keyring");
        throw SecretServiceAbsent(error.what());
    } catch (const BusCallError& error) {
        trace("keyring", "{}: {} ({})", error.isSilence() ? "it did not answer" : "it refused", error.what(),
              error.name());
        if (error.isNobodyThere()) {
            throw SecretServiceAbsent("No service that keeps passwords runs for this user.");
        }
        if (error.isSilence()) {
            throw SecretServiceUnavailable(
                "The keyring did not answer in time. Unlock it or start it anew, then try again.");
        }
        if (error.name() == "org.freedesktop.Secret.Error.IsLocked") {
            throw SecretServiceUnavailable("The keyring is locked. Unlock it, then try again.");
        }
        throw SecretServiceUnavailable(std::string("The keyring could not be used: ") + error.what());
    }
}

} // namespace

std::optional<VolumePassphrase> SecretServiceStore::read(const std::string& account) {
    return askService(prompt_, limit_, [&](SecretServiceConnection& service) {
        const auto items = service.find({{"service", service_}, {"account", account}});
        return items.empty() ? std::nullopt : std::optional(service.secretOf(items.front()));
    });
}

void SecretServiceStore::store(const std::string& account, const VolumePassphrase& secret) {
    askService(prompt_, limit_, [&](SecretServiceConnection& service) {
        const SecretServiceConnection::Attributes wanted{{"service", service_}, {"account", account}};
        auto items = service.find(wanted);
        // All of them, so that no older one is left to be found in another keyring.
        for (const auto& item : items) {
            service.setSecret(item, secret);
        }
        if (items.empty()) {
            auto attributes = wanted;
            attributes.emplace("xdg:schema", schema);
            service.createItem(label, attributes, secret);
            items = service.find(wanted);
        }
        if (items.empty() || service.secretOf(items.front()) != secret) {
            throw SecretServiceUnavailable("The keyring did not keep the key that it was given.");
        }
    });
}

void SecretServiceStore::remove(const std::string& account) {
    askService(prompt_, limit_, [&](SecretServiceConnection& service) {
        for (const auto& item : service.find({{"service", service_}, {"account", account}})) {
            service.deleteItem(item);
        }
    });
}

std::vector<std::string> SecretServiceStore::accounts() {
    return askService(prompt_, limit_, [&](SecretServiceConnection& service) {
        std::set<std::string> accounts;
        for (const auto& item : service.find({{"service", service_}})) {
            const auto attributes = service.attributesOf(item);
            if (const auto account = attributes.find("account"); account != attributes.end()) {
                accounts.insert(account->second);
            }
        }
        return std::vector<std::string>(accounts.begin(), accounts.end());
    });
}

UnlockPrompt unlockPromptHere() {
    for (const char* variable : {"WAYLAND_DISPLAY", "DISPLAY"}) {
        // NOLINTNEXTLINE(concurrency-mt-unsafe): nothing here changes the environment.
        if (const char* value = std::getenv(variable); value != nullptr && *value != '\0') {
            return UnlockPrompt::allowed;
        }
    }
    return UnlockPrompt::never;
}

} // namespace ramdisk
