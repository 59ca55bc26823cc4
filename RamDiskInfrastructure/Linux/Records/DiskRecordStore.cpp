#include "RamDiskInfrastructure/Linux/Records/DiskRecordStore.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Commands/SameFile.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr std::string_view prefix = "disk";
constexpr std::string_view suffix = ".json";
constexpr mode_t recordMode = 0640;

/// The number in a name such as "disk12.json".
std::optional<unsigned> numberIn(std::string_view fileName) {
    if (!fileName.starts_with(prefix) || !fileName.ends_with(suffix)
        || fileName.size() <= prefix.size() + suffix.size()) {
        return std::nullopt;
    }
    const auto digits = fileName.substr(prefix.size(), fileName.size() - prefix.size() - suffix.size());
    unsigned number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    const bool isCanonical = error == std::errc{} && end == digits.data() + digits.size()
                             && (digits.size() == 1 || digits.front() != '0');
    return isCanonical ? std::optional(number) : std::nullopt;
}

unsigned lowestFree(std::vector<unsigned> taken) {
    std::sort(taken.begin(), taken.end());
    unsigned number = 1;
    for (const unsigned used : taken) {
        if (used == number) {
            ++number;
        }
    }
    return number;
}

/// Gives a descriptor's unnamed file a name. Needs no privilege, unlike linking the descriptor itself.
int linkUnnamed(const FileDescriptor& file, const std::filesystem::path& path) {
    const auto source = fmt::format("/proc/self/fd/{}", file.get());
    return linkat(AT_FDCWD, source.c_str(), AT_FDCWD, path.c_str(), AT_SYMLINK_FOLLOW);
}

/// None larger is written; a hostile one could be larger than the memory.
constexpr std::size_t largestRecord = 1 << 16;

/// The record in an open file, if its writer can be believed.
/// @param damaged gets what is in the file when it is believed and cannot be understood.
std::optional<DiskRecord> recordIn(const FileDescriptor& file, const DeviceIdentifier& device,
                                   uid_t folderOwner, std::optional<std::string>* damaged = nullptr) {
    const auto dropped = [&device](const char* why) {
        trace("records", [&] { return fmt::format("{} is not counted: {}", device.bsdName(), why); });
        return std::nullopt;
    };
    struct stat status {};
    if (!file || fstat(file.get(), &status) != 0) {
        return dropped(errno == ENOENT ? "its record is gone by now" : "its record cannot be opened");
    }
    if (!S_ISREG(status.st_mode) || static_cast<std::size_t>(status.st_size) > largestRecord) {
        return dropped("what has the name of its record is none");
    }
    if (status.st_uid != 0 && status.st_uid != folderOwner) {
        return dropped("its record was written by somebody who may not");
    }
    std::string text(static_cast<std::size_t>(status.st_size), '\0');
    if (pread(file.get(), text.data(), text.size(), 0) != status.st_size) {
        return dropped("its record cannot be read");
    }
    auto record = decodeRecord(text, device);
    if (!record) {
        if (damaged != nullptr) {
            *damaged = std::move(text);
        }
        return dropped("its record is damaged");
    }
    if (folderOwner != 0) {
        if (folderOwner != geteuid() && record->kind != VolumeKind::folder) {
            // Whoever keeps records of his own may not mount: other kinds are claims on somebody else's
            // disks.
            return dropped("its record claims what its writer may not have");
        }
        // What a user wrote about himself is no reason to believe that a disk is somebody else's.
        record->owner = folderOwner;
    }
    return record;
}

} // namespace

DiskRecordStore::DiskRecordStore(std::filesystem::path folder) : folder_(std::move(folder)) {}

std::filesystem::path DiskRecordStore::pathOf(const DeviceIdentifier& device) const {
    return folder_ / (device.bsdName() + std::string(suffix));
}

std::vector<unsigned> DiskRecordStore::usedNumbers() const {
    std::vector<unsigned> numbers;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder_, error)) {
        if (const auto number = numberIn(entry.path().filename().native())) {
            numbers.push_back(*number);
        }
    }
    if (error && error != std::errc::no_such_file_or_directory) {
        traceRefused("records", "listing the records", "they count as none", error.value());
    }
    return numbers;
}

std::vector<DiskRecord> DiskRecordStore::readAll(std::vector<DamagedRecord>* damaged) const {
    const auto owner = folderOwner();
    if (!owner) {
        return {};
    }
    auto numbers = usedNumbers();
    std::sort(numbers.begin(), numbers.end());
    std::vector<DiskRecord> records;
    records.reserve(numbers.size());
    for (const unsigned number : numbers) {
        const auto device = DeviceIdentifier::wholeDisk(number);
        std::optional<std::string> remains;
        if (auto record = recordIn(openRecord(device), device, *owner, &remains)) {
            record->folder = folder_;
            records.push_back(std::move(*record));
        } else if (remains && damaged != nullptr) {
            damaged->push_back({device, *std::move(remains), folder_});
        }
    }
    return records;
}

std::optional<uid_t> DiskRecordStore::folderOwner() const {
    struct stat status {};
    return lstat(folder_.c_str(), &status) == 0 && S_ISDIR(status.st_mode) ? std::optional(status.st_uid)
                                                                           : std::nullopt;
}

bool DiskRecordStore::isOwn() const {
    return folderOwner() == geteuid();
}

FileDescriptor DiskRecordStore::openRecord(const DeviceIdentifier& device) const {
    // Without blocking, since what has the name of a record may be a pipe.
    return FileDescriptor(open(pathOf(device).c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
}

void DiskRecordStore::makeFolder() const {
    struct stat status {};
    if (lstat(folder_.c_str(), &status) != 0) {
        std::error_code error;
        std::filesystem::create_directories(folder_.parent_path(), error);
        if (mkdir(folder_.c_str(), geteuid() == 0 ? 0755 : 0700) != 0 && errno != EEXIST) {
            throw SystemCallError("make the folder", folder_);
        }
        if (lstat(folder_.c_str(), &status) != 0) {
            throw SystemCallError("look at the folder", folder_);
        }
    }
    // In a place that everybody may write to, the name could have been taken by somebody else first.
    if (!S_ISDIR(status.st_mode) || status.st_uid != geteuid() || (status.st_mode & 0022U) != 0) {
        throw SystemCallError("trust the folder", folder_, EPERM);
    }
}

FileDescriptor DiskRecordStore::writeUnnamed(const DiskRecord& record) const {
    const auto text = encodeRecord(record);
    if (text.size() > largestRecord || !decodeRecord(text, record.device)) {
        // Nobody would find the disk again.
        throw SystemCallError("write a record into", folder_, text.size() > largestRecord ? EFBIG : EINVAL);
    }
    FileDescriptor file(open(folder_.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, recordMode));
    if (!file) {
        throw SystemCallError("write a record into", folder_);
    }
    const auto written = write(file.get(), text.data(), text.size());
    if (written != static_cast<ssize_t>(text.size())) {
        throw SystemCallError("write a record into", folder_, written < 0 ? errno : ENOSPC);
    }
    // Locked before it has a name, so that nobody ever sees it free.
    if (flock(file.get(), LOCK_EX | LOCK_NB) != 0) {
        throw SystemCallError("lock a record in", folder_);
    }
    return file;
}

RecordHold DiskRecordStore::claim(DiskRecord draft, const std::vector<unsigned>& alsoTaken,
                                  gid_t group) const {
    makeFolder();
    draft.folder = folder_;
    auto file = writeUnnamed(draft);
    if (group != getegid() && fchown(file.get(), static_cast<uid_t>(-1), group) != 0) {
        throw SystemCallError("hand over a record in", folder_);
    }
    for (;;) {
        auto taken = usedNumbers();
        taken.insert(taken.end(), alsoTaken.begin(), alsoTaken.end());
        std::sort(taken.begin(), taken.end());
        taken.erase(std::unique(taken.begin(), taken.end()), taken.end());
        draft.device = DeviceIdentifier::wholeDisk(lowestFree(std::move(taken)));
        if (linkUnnamed(file, pathOf(draft.device)) == 0) {
            return {std::move(draft), std::move(file)};
        }
        if (errno != EEXIST) {
            throw SystemCallError("write the record", pathOf(draft.device));
        }
        trace("records",
              [&] { return draft.device.bsdName() + " was taken meanwhile; trying the next number"; });
    }
}

std::optional<RecordHold> DiskRecordStore::tryHold(const DiskRecord& record) const {
    auto file = openRecord(record.device);
    if (!file || flock(file.get(), LOCK_EX | LOCK_NB) != 0 || !isSameFile(file, pathOf(record.device))) {
        return std::nullopt;
    }
    const auto owner = folderOwner();
    auto current = owner ? recordIn(file, record.device, *owner) : std::nullopt;
    if (!current || current->uuid != record.uuid) {
        return std::nullopt;
    }
    current->folder = folder_;
    return RecordHold{std::move(*current), std::move(file)};
}

std::optional<RecordHold> DiskRecordStore::hold(const DiskRecord& record) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    for (unsigned attempt = 1;; ++attempt) {
        if (auto held = tryHold(record)) {
            return held;
        }
        const auto owner = folderOwner();
        const auto current =
            owner ? recordIn(openRecord(record.device), record.device, *owner) : std::nullopt;
        if (!current || current->uuid != record.uuid) {
            return std::nullopt;
        }
        if (attempt == 1) {
            trace("records", [&] {
                return record.device.bsdName() + " is held by another process; waiting up to ten seconds";
            });
        }
        if (std::chrono::steady_clock::now() > deadline) {
            throw std::runtime_error(fmt::format("another process has been at work on {} for ten seconds",
                                                 record.device.bsdName()));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
}

void DiskRecordStore::update(RecordHold& hold) const {
    auto file = writeUnnamed(hold.record);
    struct stat status {};
    if (fstat(hold.lock.get(), &status) == 0 && status.st_gid != getegid()
        && fchown(file.get(), static_cast<uid_t>(-1), status.st_gid) != 0) {
        throw SystemCallError("hand over a record in", folder_);
    }
    const auto temporary =
        folder_ / fmt::format(".{}.{}.new", hold.record.device.bsdName(), hold.record.uuid.text());
    // Only the holder of the record uses this name: what stands there was left by a holder that was killed.
    unlink(temporary.c_str());
    if (linkUnnamed(file, temporary) != 0) {
        throw SystemCallError("write the record", temporary);
    }
    if (rename(temporary.c_str(), pathOf(hold.record.device).c_str()) != 0) {
        const int error = errno;
        unlink(temporary.c_str());
        throw SystemCallError("replace the record", pathOf(hold.record.device), error);
    }
    hold.lock = std::move(file);
}

bool DiskRecordStore::replaceDamaged(DiskRecord record) const {
    auto file = openRecord(record.device);
    const auto owner = folderOwner();
    std::optional<std::string> remains;
    if (!file || !owner || flock(file.get(), LOCK_EX | LOCK_NB) != 0
        || !isSameFile(file, pathOf(record.device)) || recordIn(file, record.device, *owner, &remains)
        || !remains) {
        return false;
    }
    RecordHold hold{std::move(record), std::move(file)};
    update(hold);
    return true;
}

void DiskRecordStore::remove(RecordHold hold) const {
    const auto temporary =
        folder_ / fmt::format(".{}.{}.new", hold.record.device.bsdName(), hold.record.uuid.text());
    unlink(temporary.c_str());
    if (unlink(pathOf(hold.record.device).c_str()) != 0 && errno != ENOENT) {
        throw SystemCallError("remove the record", pathOf(hold.record.device));
    }
}

FileDescriptor DiskRecordStore::lockNames() const {
    const auto path = folder_ / ".names.lock";
    FileDescriptor file(open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file) {
        throw SystemCallError("open", path);
    }
    int result = flock(file.get(), LOCK_EX | LOCK_NB);
    if (result == 0) {
        return file;
    }
    trace("locks", "waiting for {}", path.native());
    do {
        result = flock(file.get(), LOCK_EX);
    } while (result != 0 && errno == EINTR);
    if (result != 0) {
        throw SystemCallError("lock", path);
    }
    return file;
}

} // namespace ramdisk
