#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"

#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Platform/TrustedEnvironment.h"

#include <fmt/format.h>

#include <array>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <string>

#include <linux/capability.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace ramdisk {

namespace {

std::optional<std::string> environmentValue(const char* name) {
    const char* value = std::getenv(name);
    return value == nullptr || *value == '\0' ? std::nullopt : std::optional<std::string>(value);
}

/// An XDG variable counts only when it holds an absolute path.
std::optional<std::filesystem::path> xdgFolder(const char* name) {
    auto value = environmentValue(name);
    if (!value || value->front() != '/') {
        return std::nullopt;
    }
    return std::filesystem::path(std::move(*value));
}

bool holdsSysAdmin() {
    // The raw call, so that no library is loaded for one bit.
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    std::array<__user_cap_data_struct, 2> data{};
    if (syscall(SYS_capget, &header, data.data()) != 0) {
        return false;
    }
    return (data[0].effective & (1U << CAP_SYS_ADMIN)) != 0;
}

std::optional<unsigned> numberFrom(const char* variable) {
    const auto text = environmentValue(variable);
    if (!text) {
        return std::nullopt;
    }
    unsigned value = 0;
    const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
    if (error != std::errc{} || end != text->data() + text->size()) {
        return std::nullopt;
    }
    return value;
}

std::filesystem::path homeFolder() {
    if (auto home = environmentValue("HOME"); home && home->front() == '/') {
        return std::move(*home);
    }
    const passwd* entry = getpwuid(getuid());
    return entry == nullptr ? "/" : entry->pw_dir;
}

std::filesystem::path runtimeFolder(uid_t user) {
    return fmt::format("/run/user/{}", user);
}

bool isFolder(const std::filesystem::path& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

/// Where an ordinary user's records live: gone at reboot and at nobody else's mercy.
std::filesystem::path userRecords(const std::optional<std::filesystem::path>& runtime,
                                  const std::filesystem::path& sharedMemory, uid_t user) {
    if (runtime) {
        return *runtime / "tavrin-ramdisk";
    }
    if (isFolder(runtimeFolder(user))) {
        return runtimeFolder(user) / "tavrin-ramdisk";
    }
    return sharedMemory / fmt::format("tavrin-ramdisk-{}", user);
}

/// The records of users who mount without root, for root's listing.
void appendUsersRecords(std::vector<std::filesystem::path>& folders,
                        const std::filesystem::path& sharedMemory) {
    std::error_code ignored;
    for (const auto& entry : std::filesystem::directory_iterator("/run/user", ignored)) {
        if (isFolder(entry.path() / "tavrin-ramdisk")) {
            folders.push_back(entry.path() / "tavrin-ramdisk");
        }
    }
    for (const auto& entry : std::filesystem::directory_iterator(sharedMemory, ignored)) {
        if (entry.path().filename().string().starts_with("tavrin-ramdisk-") && isFolder(entry.path())) {
            folders.push_back(entry.path());
        }
    }
}

} // namespace

LinuxHost LinuxHost::current() {
    LinuxHost host;
    host.isRoot = geteuid() == 0;
    host.owner = geteuid();
    host.ownerGroup = getegid();
    if (host.isRoot) {
        if (const auto user = numberFrom("SUDO_UID")) {
            host.owner = *user;
            host.ownerGroup = numberFrom("SUDO_GID").value_or(*user);
        }
    }
    host.mayMount = holdsSysAdmin();
    if (const auto forced = trustedEnvironmentValue("TRAMDISK_HOST")) {
        host.forcedRung = fromRawValue<HostRung>(*forced);
        if (!host.forcedRung) {
            throw std::runtime_error(
                fmt::format("TRAMDISK_HOST is “{}”; it can be kernel, udisks or folder.", *forced));
        }
    }
    host.home = homeFolder();
    const auto runtime = xdgFolder("XDG_RUNTIME_DIR");
    const auto data = xdgFolder("XDG_DATA_HOME").value_or(host.home / ".local/share");
    host.privateMounts = data / "RamDisks";
    host.applicationSupport = data / "Tavrin RamDisk";
    host.configuration = xdgFolder("XDG_CONFIG_HOME").value_or(host.home / ".config") / "tavrin-ramdisk";

    if (const auto state = trustedEnvironmentValue("TRAMDISK_STATE")) {
        const auto folder = std::filesystem::absolute(*state).lexically_normal();
        host.isIsolated = true;
        host.records = folder / "disks";
        host.visibleRecords = {host.records};
        host.publicMounts = {folder / "media"};
        return host;
    }

    const std::filesystem::path systemRecords = "/run/tavrin-ramdisk";
    host.records = host.isRoot ? systemRecords : userRecords(runtime, host.sharedMemory, host.owner);
    host.visibleRecords = {host.records};
    if (host.isRoot) {
        appendUsersRecords(host.visibleRecords, host.sharedMemory);
    } else {
        host.visibleRecords.push_back(systemRecords);
    }
    host.publicMounts = {"/media"};
    if (runtime) {
        host.publicMounts.push_back(*runtime / "RamDisks");
    }
    return host;
}

HostRung LinuxHost::firstRung() const {
    if (forcedRung) {
        return *forcedRung;
    }
    return mayMount ? HostRung::kernel : HostRung::folder;
}

std::string_view LinuxHost::firstRungReason() const {
    if (forcedRung) {
        return "TRAMDISK_HOST says so";
    }
    return mayMount ? "this process may mount" : "this process may not mount, for want of CAP_SYS_ADMIN";
}

} // namespace ramdisk
