#include "RamDiskInfrastructure/Linux/Secrets/KeyFileStore.h"

#include "RamDiskCore/Values/ASCII.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Stores/StoreFiles.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <stdexcept>

#include <fcntl.h>
#include <sys/stat.h>

namespace ramdisk {

namespace {

constexpr std::string_view keySuffix = ".key";
constexpr std::string_view elsewhereSuffix = ".elsewhere";
constexpr std::size_t largestKey = 4096;

bool isPlain(char character) {
    return isLetter(character) || isDigit(character) || character == '-' || character == '_';
}

/// Any text as a file name: what is not a plain letter, digit or hyphen is written as %XX.
std::string fileNameOf(std::string_view account) {
    std::string name;
    for (const char character : account) {
        name += isPlain(character) ? std::string(1, character)
                                   : fmt::format("%{:02X}", static_cast<unsigned char>(character));
    }
    return name;
}

/// Absent for a name that was not made by `fileNameOf`.
std::optional<std::string> accountOf(std::string_view name) {
    std::string account;
    for (std::size_t index = 0; index < name.size(); ++index) {
        unsigned value = static_cast<unsigned char>(name[index]);
        if (name[index] == '%') {
            const auto digits = name.substr(index + 1, 2);
            const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), value, 16);
            if (digits.size() != 2 || read.ptr != digits.data() + digits.size()) {
                return std::nullopt;
            }
            index += 2;
        }
        account += static_cast<char>(value);
    }
    return fileNameOf(account) == name ? std::optional(account) : std::nullopt;
}

[[noreturn]] void refuse(const std::filesystem::path& path, std::string_view reason) {
    throw std::runtime_error(fmt::format("The keys in “{}” are not used: {}.", path.string(), reason));
}

/// Root may be serving another user, in whose folder everything is that user's.
bool isOwnedByUs(const struct stat& status, const std::filesystem::path& parent) {
    struct stat around {};
    return status.st_uid == geteuid()
           || (geteuid() == 0 && stored::status(parent, around) == 0 && status.st_uid == around.st_uid);
}

void requirePrivate(const FileDescriptor& file, const std::filesystem::path& path, mode_t type) {
    struct stat status {};
    if (fstat(file.get(), &status) != 0) {
        throw SystemCallError("look at", path);
    }
    if ((status.st_mode & S_IFMT) != type) {
        refuse(path, "it is something else");
    }
    if (!isOwnedByUs(status, path.parent_path())) {
        refuse(path, "it belongs to somebody else");
    }
    if ((status.st_mode & (S_IRWXG | S_IRWXO)) != 0) {
        refuse(path, "others may open it; take their rights away with chmod go= and try again");
    }
}

} // namespace

KeyFileStore::KeyFileStore(const std::filesystem::path& applicationSupport)
    : folder_(applicationSupport / "Saved Contents Keys"),
      lock_(applicationSupport / "Saved Contents Keys.lock") {}

std::filesystem::path KeyFileStore::fileOf(const std::string& account, std::string_view suffix) const {
    return folder_ / (fileNameOf(account) + std::string(suffix));
}

bool KeyFileStore::isFolderThere() const {
    const auto parent = openStoreFolder(folder_.parent_path());
    const auto folder = parent ? openFolder(parent.get(), folder_.filename().c_str()) : FileDescriptor();
    if (!folder && errno == ENOENT) {
        return false;
    }
    if (!folder) {
        throw SystemCallError("open", folder_);
    }
    requirePrivate(folder, folder_, S_IFDIR);
    return true;
}

FileDescriptor KeyFileStore::lockFolder() const {
    auto hold = lock_.acquire();
    makeFolders(folder_);
    static_cast<void>(isFolderThere());
    return hold;
}

std::optional<VolumePassphrase> KeyFileStore::read(const std::string& account) {
    if (!isFolderThere()) {
        return std::nullopt;
    }
    const auto path = fileOf(account, keySuffix);
    const auto file = stored::open(path, O_RDONLY | O_NONBLOCK);
    if (!file && errno == ENOENT) {
        return std::nullopt;
    }
    if (!file) {
        throw SystemCallError("open", path);
    }
    requirePrivate(file, path, S_IFREG);
    // At its full size from the start, so that no copy is left behind by growing.
    std::string content(largestKey + 1, '\0');
    std::size_t filled = 0;
    ssize_t count = 1;
    while (count != 0 && filled < content.size()) {
        count = ::read(file.get(), content.data() + filled, content.size() - filled);
        if (count < 0 && errno != EINTR) {
            const int error = errno;
            wipe(content);
            throw SystemCallError("read", path, error);
        }
        filled += count < 0 ? 0 : static_cast<std::size_t>(count);
    }
    VolumePassphrase secret(std::string_view(content.data(), filled));
    wipe(content);
    if (filled == 0 || filled > largestKey) {
        refuse(path, "it does not hold a key");
    }
    return secret;
}

void KeyFileStore::store(const std::string& account, const VolumePassphrase& secret) {
    if (secret.value().empty() || secret.value().size() > largestKey) {
        throw std::invalid_argument("A key of this length cannot be kept in a file.");
    }
    const auto hold = lockFolder();
    // What is there and must not be used must not be lost either.
    static_cast<void>(read(account));
    const auto path = fileOf(account, keySuffix);
    removeAbandonedVersions(path);
    PreparedFile prepared(path, secret.value());
    prepared.takePlace();
    forget(account, elsewhereSuffix);
}

void KeyFileStore::remove(const std::string& account) {
    if (!isFolderThere()) {
        return;
    }
    const auto hold = lockFolder();
    removeAbandonedVersions(fileOf(account, keySuffix));
    forget(account, keySuffix);
    forget(account, elsewhereSuffix);
}

std::vector<std::string> KeyFileStore::accounts() {
    return accountsWith(keySuffix);
}

void KeyFileStore::noteKeptElsewhere(const std::string& account) {
    const auto hold = lockFolder();
    PreparedFile note(fileOf(account, elsewhereSuffix), "");
    note.takePlace();
    forget(account, keySuffix);
}

bool KeyFileStore::isKeptElsewhere(const std::string& account) {
    const auto noted = accountsKeptElsewhere();
    return std::binary_search(noted.begin(), noted.end(), account);
}

std::vector<std::string> KeyFileStore::accountsKeptElsewhere() {
    return accountsWith(elsewhereSuffix);
}

std::vector<std::string> KeyFileStore::accountsWith(std::string_view suffix) {
    std::vector<std::string> accounts;
    if (!isFolderThere()) {
        return accounts;
    }
    for (const auto& entry : stored::entries(folder_)) {
        const auto name = entry.filename().string();
        if (!name.ends_with(suffix)) {
            continue;
        }
        if (auto account = accountOf(std::string_view(name).substr(0, name.size() - suffix.size()))) {
            accounts.push_back(std::move(*account));
        }
    }
    std::sort(accounts.begin(), accounts.end());
    return accounts;
}

void KeyFileStore::forget(const std::string& account, std::string_view suffix) const {
    const auto path = fileOf(account, suffix);
    if (stored::remove(path) != 0) {
        if (errno != ENOENT) {
            throw SystemCallError("remove", path);
        }
        return;
    }
    flushFolder(folder_);
}

} // namespace ramdisk
