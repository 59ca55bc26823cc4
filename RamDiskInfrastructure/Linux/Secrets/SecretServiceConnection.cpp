#include "RamDiskInfrastructure/Linux/Secrets/SecretServiceConnection.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Linux/Bus/SdBus.h"

#include <algorithm>
#include <string_view>

namespace ramdisk {

namespace {

constexpr const char* name = "org.freedesktop.secrets";
constexpr const char* servicePath = "/org/freedesktop/secrets";
constexpr const char* serviceInterface = "org.freedesktop.Secret.Service";
constexpr const char* collectionInterface = "org.freedesktop.Secret.Collection";
constexpr const char* itemInterface = "org.freedesktop.Secret.Item";
constexpr const char* promptInterface = "org.freedesktop.Secret.Prompt";
/// Stands for no object at all.
constexpr std::string_view noObject = "/";
constexpr std::chrono::minutes timeToAnswer{2};

using Attributes = SecretServiceConnection::Attributes;

MessageBus::Method serviceMethod(const char* member) {
    return {name, servicePath, serviceInterface, member};
}

[[noreturn]] void throwLocked() {
    throw SecretServiceUnavailable("The keyring is locked. Unlock it, then try again.");
}

void append(sd_bus_message* message, const Attributes& attributes) {
    const auto& library = sdBus();
    requireBus(library.sd_bus_message_open_container(message, 'a', "{ss}"));
    for (const auto& [key, value] : attributes) {
        requireBus(library.sd_bus_message_append(message, "{ss}", key.c_str(), value.c_str()));
    }
    requireBus(library.sd_bus_message_close_container(message));
}

void appendPaths(sd_bus_message* message, const std::vector<std::string>& paths) {
    const auto& library = sdBus();
    requireBus(library.sd_bus_message_open_container(message, 'a', "o"));
    for (const auto& path : paths) {
        requireBus(library.sd_bus_message_append(message, "o", path.c_str()));
    }
    requireBus(library.sd_bus_message_close_container(message));
}

/// The service's structure of a secret: session, parameters (none), value, type.
void append(sd_bus_message* message, const std::string& session, const VolumePassphrase& secret) {
    const auto& library = sdBus();
    const auto value = secret.value();
    requireBus(library.sd_bus_message_open_container(message, 'r', "oayays"));
    requireBus(library.sd_bus_message_append(message, "o", session.c_str()));
    requireBus(library.sd_bus_message_append_array(message, 'y', nullptr, 0));
    requireBus(library.sd_bus_message_append_array(message, 'y', value.data(), value.size()));
    requireBus(library.sd_bus_message_append(message, "s", "text/plain"));
    requireBus(library.sd_bus_message_close_container(message));
}

std::vector<std::string> readPaths(BusMessage& message) {
    std::vector<std::string> paths;
    message.readList("o", [&] { paths.push_back(message.readPath()); });
    return paths;
}

} // namespace

SecretServiceConnection::SecretServiceConnection(UnlockPrompt prompt, std::chrono::milliseconds limit)
    : prompt_(prompt),
      deadline_(MessageBus::Clock::now() + limit),
      bus_(MessageBus::Kind::session, deadline_) {}

std::vector<std::string> SecretServiceConnection::find(const Attributes& attributes) {
    auto found = search(attributes);
    if (!found.locked.empty()) {
        unlock(found.locked);
        found = search(attributes);
    }
    if (found.unlocked.empty() && found.locked.empty()) {
        const auto collection = defaultCollection();
        if (isLocked(collection)) {
            unlock({collection});
            found = search(attributes);
        }
    }
    if (!found.locked.empty()) {
        throwLocked();
    }
    auto items = std::move(found.unlocked);
    if (items.size() > 1) {
        std::map<std::string, std::uint64_t> times;
        for (const auto& item : items) {
            times.emplace(item, modified(item));
        }
        std::stable_sort(items.begin(), items.end(), [&times](const auto& left, const auto& right) {
            return times.at(left) > times.at(right);
        });
    }
    return items;
}

SecretServiceConnection::Found SecretServiceConnection::search(const Attributes& attributes) {
    auto reply = bus_.call(serviceMethod("SearchItems"), deadline_,
                           [&](sd_bus_message* message) { append(message, attributes); });
    Found found;
    found.unlocked = readPaths(reply);
    found.locked = readPaths(reply);
    return found;
}

std::string SecretServiceConnection::defaultCollection() {
    auto reply = bus_.call(serviceMethod("ReadAlias"), deadline_, [](sd_bus_message* message) {
        requireBus(sdBus().sd_bus_message_append(message, "s", "default"));
    });
    auto collection = reply.readPath();
    if (collection == noObject) {
        throw SecretServiceUnavailable(
            "The password service has no default keyring, or it is closed. Open it or "
            "make one, then try again.");
    }
    return collection;
}

bool SecretServiceConnection::isLocked(const std::string& collection) {
    return bus_.property(name, collection, collectionInterface, "Locked", "b", deadline_).readFlag();
}

std::uint64_t SecretServiceConnection::modified(const std::string& item) {
    return bus_.property(name, item, itemInterface, "Modified", "t", deadline_).readNumber();
}

void SecretServiceConnection::unlock(const std::vector<std::string>& objects) {
    auto reply = bus_.call(serviceMethod("Unlock"), deadline_,
                           [&](sd_bus_message* message) { appendPaths(message, objects); });
    static_cast<void>(readPaths(reply));
    answerPrompt(reply.readPath());
}

void SecretServiceConnection::answerPrompt(const std::string& prompt) {
    if (prompt == noObject) {
        return;
    }
    if (prompt_ == UnlockPrompt::never) {
        try {
            static_cast<void>(bus_.call({name, prompt, promptInterface, "Dismiss"}, deadline_));
        } catch (const BusCallError&) {
            // The service forgets it with us.
            traceCaught("keyring", "the question to unlock the keyring is not taken back");
        }
        throwLocked();
    }
    deadline_ += timeToAnswer;
    bus_.listen(std::string("type='signal',sender='") + name + "',interface='" + promptInterface
                    + "',member='Completed',path='" + prompt + "'",
                deadline_);
    static_cast<void>(
        bus_.call({name, prompt, promptInterface, "Prompt"}, deadline_, [](sd_bus_message* message) {
            requireBus(sdBus().sd_bus_message_append(message, "s", ""));
        }));
    while (const auto signal = bus_.next(deadline_)) {
        const auto* const path = sdBus().sd_bus_message_get_path(signal->get());
        if (sdBus().sd_bus_message_is_signal(signal->get(), promptInterface, "Completed") > 0
            && path != nullptr && path == prompt) {
            if (signal->readFlag()) { // Dismissed.
                throwLocked();
            }
            return;
        }
    }
    throwLocked();
}

const std::string& SecretServiceConnection::session() {
    if (session_.empty()) {
        auto reply = bus_.call(serviceMethod("OpenSession"), deadline_, [](sd_bus_message* message) {
            requireBus(sdBus().sd_bus_message_append(message, "sv", "plain", "s", ""));
        });
        requireBus(sdBus().sd_bus_message_skip(reply.get(), "v"));
        session_ = reply.readPath();
    }
    return session_;
}

Attributes SecretServiceConnection::attributesOf(const std::string& item) {
    auto reply = bus_.property(name, item, itemInterface, "Attributes", "a{ss}", deadline_);
    Attributes attributes;
    reply.readList("{ss}", [&] {
        reply.enter('e', "ss");
        auto key = reply.readText();
        attributes.emplace(std::move(key), reply.readText());
        reply.leave();
    });
    return attributes;
}

VolumePassphrase SecretServiceConnection::secretOf(const std::string& item) {
    auto reply = bus_.call(
        {name, item, itemInterface, "GetSecret"}, deadline_,
        [this](sd_bus_message* message) {
            requireBus(sdBus().sd_bus_message_append(message, "o", session().c_str()));
        },
        MessageBus::Holds::secret);
    reply.enter('r', "oayays");
    static_cast<void>(reply.readPath());
    requireBus(sdBus().sd_bus_message_skip(reply.get(), "ay"));
    const void* bytes = nullptr;
    std::size_t size = 0;
    requireBus(sdBus().sd_bus_message_read_array(reply.get(), 'y', &bytes, &size));
    return VolumePassphrase(std::string_view(static_cast<const char*>(bytes), size));
}

void SecretServiceConnection::setSecret(const std::string& item, const VolumePassphrase& secret) {
    static_cast<void>(bus_.call(
        {name, item, itemInterface, "SetSecret"}, deadline_,
        [&](sd_bus_message* message) { append(message, session(), secret); }, MessageBus::Holds::secret));
}

void SecretServiceConnection::createItem(const std::string& label, const Attributes& attributes,
                                         const VolumePassphrase& secret) {
    auto reply = bus_.call(
        {name, defaultCollection(), collectionInterface, "CreateItem"}, deadline_,
        [&](sd_bus_message* message) {
            const auto& library = sdBus();
            requireBus(library.sd_bus_message_open_container(message, 'a', "{sv}"));
            requireBus(library.sd_bus_message_append(message, "{sv}", "org.freedesktop.Secret.Item.Label",
                                                     "s", label.c_str()));
            requireBus(library.sd_bus_message_open_container(message, 'e', "sv"));
            requireBus(library.sd_bus_message_append(message, "s", "org.freedesktop.Secret.Item.Attributes"));
            requireBus(library.sd_bus_message_open_container(message, 'v', "a{ss}"));
            append(message, attributes);
            requireBus(library.sd_bus_message_close_container(message));
            requireBus(library.sd_bus_message_close_container(message));
            requireBus(library.sd_bus_message_close_container(message));
            append(message, session(), secret);
            const int replacesItsLike = 1;
            requireBus(library.sd_bus_message_append(message, "b", replacesItsLike));
        },
        MessageBus::Holds::secret);
    static_cast<void>(reply.readPath());
    answerPrompt(reply.readPath());
}

void SecretServiceConnection::deleteItem(const std::string& item) {
    answerPrompt(bus_.call({name, item, itemInterface, "Delete"}, deadline_).readPath());
}

} // namespace ramdisk
