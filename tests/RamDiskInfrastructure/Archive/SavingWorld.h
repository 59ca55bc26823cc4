#pragma once

#include "RamDiskInfrastructure/Archive/SavedContentsArchiver.h"
#include "tests/support/FakeImageTool.h"

namespace ramdisk::test {

/// A disk with one file, and the folder in which its copies lie.
struct SavingWorld {
    explicit SavingWorld(HardLinks kind = HardLinks::whereSupported) : hardLinks(kind) {
        std::filesystem::create_directory(*disk.mountPoint);
    }

    ScratchFolder scratch;
    HardLinks hardLinks;
    std::string identifier = "6C0E1E7A-0D9C-4E26-9C53-4C2F0B3B9A11";
    SavedCopyFiles files{scratch.path() / "Saved Contents" / (identifier + ".sparseimage")};
    SavedCopyNames names{files};
    RamDisk disk{.device = *DeviceIdentifier::make("disk5"),
                 .name = "Work",
                 .capacity = ByteCount{1000},
                 .mountPoint = scratch.path() / "disk"};
    std::shared_ptr<FakeImageTool> tool = std::make_shared<FakeImageTool>();
    SavedContentsArchiver::StepObserver observer;
    std::uint32_t previousCopies = 3;
    Verification verification = Verification::yes;

    [[nodiscard]] SavedContentsArchiver archiver() const {
        return SavedContentsArchiver(tool, observer, hardLinks);
    }

    SaveOutcome save(const std::string& content) const {
        writeFile(FakeImageTool::fileOn(disk), content);
        return archiver().save(
            {.disk = disk, .files = files, .previousCopies = previousCopies, .verification = verification},
            {});
    }
    RestoredVolume restore(const std::filesystem::path& image) const {
        return archiver().restore({.image = image, .files = files, .disk = disk}, {});
    }
    [[nodiscard]] std::string onDisk() const { return readFile(FakeImageTool::fileOn(disk)); }

    /// What the copies hold, the latest first.
    [[nodiscard]] std::vector<std::string> copies() const {
        std::vector<std::string> contents;
        for (const auto& copy : archiver().copies(files)) {
            contents.push_back(readFile(copy.image));
        }
        return contents;
    }
    /// The files in the folder that are neither copies nor the spare.
    [[nodiscard]] std::set<std::string> leftovers() const {
        std::set<std::string> found;
        for (const auto& entry : std::filesystem::directory_iterator(files.latest.parent_path())) {
            const auto& path = entry.path();
            if (path != files.latest && path != names.spare() && !names.isEarlier(path)) {
                found.insert(path.filename().string());
            }
        }
        return found;
    }
};

inline std::vector<std::string> images(const std::vector<std::string>& contents) {
    std::vector<std::string> result;
    for (const auto& content : contents) {
        result.push_back(FakeImageTool::imageOf(content));
    }
    return result;
}

} // namespace ramdisk::test
