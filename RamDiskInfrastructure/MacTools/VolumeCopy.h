#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Ports/TransferProgress.h"
#include "RamDiskInfrastructure/MacTools/FolderWalk.h"

#include <filesystem>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace ramdisk {

/// As `walkFolder`, without what macOS keeps for itself on a volume.
void walkVolume(const std::filesystem::path& root, const FolderVisitor& visitor);

/// Whether items of this kind are copied.
[[nodiscard]] bool isCopied(const struct stat& status);

/// One copy of the users' files on a volume to another volume.
///
/// `ditto` copies the contents of a folder, but follows a link that it gets as an argument, and stops at the
/// first folder that it may not read. So it gets the items of the root one by one, and the plain files
/// together. Links and pipes of the root are made here, and so are hard links between two of these items.
class VolumeCopy {
public:
    VolumeCopy(std::filesystem::path from, std::filesystem::path to, CommandRunning& runner,
               const ProgressObserver& observer);

    /// @throws CommandFailure, SystemCallError
    void perform();

private:
    struct Item {
        std::filesystem::path name;
        struct stat status {};
        std::uint64_t files = 0;
        std::uint64_t bytes = 0;
    };

    void readSource();
    void makeRoomFor(const Item& item) const;
    void copy(const Item& item);
    void copyFiles();
    void makeLink(const Item& item) const;
    void linkSecondNames() const;
    void ditto(std::vector<std::string> sources, const std::filesystem::path& target);
    void report(const Item& item);

    std::filesystem::path from_;
    std::filesystem::path to_;
    CommandRunning& runner_;
    const ProgressObserver& observer_;
    std::vector<Item> items_;
    std::vector<const Item*> files_;
    std::map<std::pair<dev_t, ino_t>, std::vector<std::filesystem::path>> secondNames_;
    TransferProgress progress_;
};

} // namespace ramdisk
