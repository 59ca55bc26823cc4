#include "RamDiskInfrastructure/Stores/ApplicationSupportContentStorage.h"

#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Stores/FileLock.h"
#include "RamDiskInfrastructure/Stores/StoreFiles.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"

#include <set>

namespace ramdisk {

namespace {

constexpr auto imageExtension = ".sparseimage";
constexpr auto boundExtension = ".bound";
constexpr auto fillingExtension = ".filling";
constexpr auto unsavedExtension = ".unsaved";

FileLock lockIn(const std::filesystem::path& folder, const UUID& profile) {
    return FileLock(folder / (profile.text() + ".lock"));
}

std::optional<UUID> storedIdentifier(const std::filesystem::path& file) {
    const auto text = readStoredFile(file);
    return text ? UUID::parse(trimmed(*text)) : std::nullopt;
}

std::string firstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

std::optional<std::string> textOf(const std::optional<UUID>& identifier) {
    return identifier ? std::optional(identifier->text()) : std::nullopt;
}

/// The profiles that have a note of the disk in this folder.
std::vector<UUID> ownersIn(const std::filesystem::path& folder, const UUID& instance) {
    std::vector<UUID> owners;
    for (const auto& file : stored::entries(folder)) {
        const auto profile = UUID::parse(file.stem().string());
        const bool isNote = file.extension() == boundExtension || file.extension() == fillingExtension
                            || file.extension() == unsavedExtension;
        const auto text = profile && isNote ? readStoredFile(file) : std::nullopt;
        if (text && UUID::parse(firstLine(*text)) == instance) {
            owners.push_back(*profile);
        }
    }
    return owners;
}

/// Without a text the note is removed.
void storeNote(const std::filesystem::path& file, const std::optional<std::string>& text) {
    if (!text) {
        if (stored::remove(file) != 0 && errno != ENOENT) {
            throw SystemCallError("remove", file);
        }
        return;
    }
    makeFolders(file.parent_path());
    removeAbandonedVersions(file);
    PreparedFile(file, *text).takePlace();
}

} // namespace

ApplicationSupportContentStorage::ApplicationSupportContentStorage(const std::filesystem::path& folder,
                                                                   std::shared_ptr<TaskScheduling> tasks,
                                                                   std::shared_ptr<KeeperNoting> keepers)
    : directory_(folder / "Saved Contents"),
      tasks_(std::move(tasks)),
      keepers_(std::move(keepers)) {}

std::filesystem::path ApplicationSupportContentStorage::imageLocation(const UUID& profile) const {
    return directory_ / (profile.text() + imageExtension);
}

std::filesystem::path ApplicationSupportContentStorage::unfinishedResizes() const {
    return directory_ / "Unfinished Resizes";
}

std::future<void> ApplicationSupportContentStorage::withLock(const UUID& profile,
                                                             std::function<void()> body) const {
    return lockIn(directory_, profile).withLock(*tasks_, std::move(body));
}

bool ApplicationSupportContentStorage::isLocked(const UUID& profile) const {
    return lockIn(directory_, profile).isHeld();
}

std::future<void> ApplicationSupportContentStorage::withResizeLock(const UUID& profile,
                                                                   std::function<void()> body) const {
    return lockIn(unfinishedResizes(), profile).withLock(*tasks_, std::move(body));
}

bool ApplicationSupportContentStorage::isResizeLocked(const UUID& profile) const {
    return lockIn(unfinishedResizes(), profile).isHeld();
}

std::filesystem::path ApplicationSupportContentStorage::note(const UUID& profile,
                                                             const char* extension) const {
    return directory_ / (profile.text() + extension);
}

std::optional<UUID> ApplicationSupportContentStorage::boundInstance(const UUID& profile) const {
    return storedIdentifier(note(profile, boundExtension));
}

void ApplicationSupportContentStorage::bind(const UUID& profile, const std::optional<UUID>& instance) {
    storeNote(note(profile, boundExtension), textOf(instance));
    noteKeeper(profile, instance);
}

std::optional<Filling> ApplicationSupportContentStorage::filling(const UUID& profile) const {
    const auto text = readStoredFile(note(profile, fillingExtension));
    const auto instance = text ? UUID::parse(firstLine(*text)) : std::nullopt;
    if (!instance) {
        return std::nullopt;
    }
    const std::string replacement(trimmed(std::string_view(*text).substr(firstLine(*text).size())));
    return Filling{*instance, replacement.empty() ? std::nullopt : std::optional<std::string>(replacement)};
}

void ApplicationSupportContentStorage::setFilling(const UUID& profile,
                                                  const std::optional<Filling>& filling) {
    std::optional<std::string> text;
    if (filling) {
        text = filling->instance.text();
        *text += filling->replacement ? "\n" + *filling->replacement : "";
    }
    storeNote(note(profile, fillingExtension), text);
    noteKeeper(profile, filling ? std::optional(filling->instance) : std::nullopt);
}

std::optional<UUID> ApplicationSupportContentStorage::unsavedInstance(const UUID& profile) const {
    return storedIdentifier(note(profile, unsavedExtension));
}

void ApplicationSupportContentStorage::setUnsavedInstance(const UUID& profile,
                                                          const std::optional<UUID>& instance) {
    storeNote(note(profile, unsavedExtension), textOf(instance));
    noteKeeper(profile, instance);
}

void ApplicationSupportContentStorage::noteKeeper(const UUID& profile, const std::optional<UUID>& instance) {
    if (keepers_ && instance && *instance != profile) {
        keepers_->note(*instance, directory_);
    }
}

std::vector<UUID> ApplicationSupportContentStorage::ownersOf(const UUID& instance) const {
    return ownersIn(directory_, instance);
}

std::optional<std::filesystem::path>
ApplicationSupportContentStorage::keptElsewhere(const UUID& instance) const {
    const auto keeper = keepers_ ? keepers_->folderOf(instance) : std::nullopt;
    if (!keeper || *keeper == directory_) {
        return std::nullopt;
    }
    std::error_code error;
    // Where the folder is not found, it was moved away, and the disk may keep its files all the same.
    const bool isKept = !std::filesystem::exists(*keeper, error) || !ownersIn(*keeper, instance).empty();
    return isKept ? keeper : std::nullopt;
}

std::vector<UUID> ApplicationSupportContentStorage::savedProfiles() const {
    std::set<UUID> profiles;
    for (const auto& file : stored::entries(directory_)) {
        const auto name = file.filename().string();
        const auto profile = UUID::parse(name.substr(0, name.find('.')));
        if (profile && file.extension() == imageExtension) {
            profiles.insert(*profile);
        }
    }
    return {profiles.begin(), profiles.end()};
}

} // namespace ramdisk
