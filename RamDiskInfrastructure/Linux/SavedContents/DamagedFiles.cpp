#include "RamDiskInfrastructure/Linux/SavedContents/DamagedFiles.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Archive/FileIdentity.h"
#include "RamDiskInfrastructure/Archive/SavedCopyFolder.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/SavedContents/OpenImage.h"
#include "RamDiskInfrastructure/Stores/StoreFiles.h"
#include "RamDiskInfrastructure/Trees/FileWriter.h"
#include "RamDiskInfrastructure/Trees/FolderCursor.h"
#include "RamDiskInfrastructure/Trees/ItemMetadata.h"
#include "RamDiskInfrastructure/Trees/ItemStatus.h"
#include "RamDiskInfrastructure/Trees/TreeComparison.h"

#include <fmt/format.h>
#include <fmt/ranges.h>

#include <algorithm>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

namespace ramdisk {

namespace {

/// One; one and another; one, another and a third.
std::string enumeration(const std::vector<std::string>& names) {
    const std::vector<std::string> but(names.begin(), names.end() - 1);
    return but.empty() ? names.back() : fmt::format("{} and {}", fmt::join(but, ", "), names.back());
}

} // namespace

DamagedFiles::DamagedFiles(const RestoreRequest& request, const TreeManifest& saved,
                           std::vector<std::uint32_t> files, const LinuxHost& host)
    : request_(request),
      saved_(saved),
      files_(std::move(files)),
      host_(host) {
    for (const auto file : files_) {
        trace("restore", "“{}” in {} is not what was saved", saved_.contents().path(file),
              request_.image.native());
    }
}

void DamagedFiles::keepImage() {
    kept_ = keepImage(request_);
}

std::filesystem::path DamagedFiles::keepImage(const RestoreRequest& request) {
    const SavedCopyFolder::StepObserver unobserved;
    const SavedCopyFolder folder(request.files, HardLinks::whereSupported, unobserved);
    if (auto former = folder.damagedName(request.image)) {
        return *std::move(former);
    }
    // Two copies may be found to be damaged within one second.
    for (auto foundAt = SavedCopyNames::Earlier::savedAt(std::chrono::system_clock::now());;
         ++foundAt.secondsSince1970) {
        auto kept = SavedCopyNames{request.files}.damaged(foundAt);
        if (stored::link(request.image, kept) == 0) {
            return kept;
        }
        if (errno != EEXIST) {
            throw SystemCallError("keep the damaged copy", request.image);
        }
    }
}

void DamagedFiles::repairFromOtherCopies(const FileDescriptor& disk) {
    const SavedCopyFolder::StepObserver unobserved;
    for (const auto& copy : SavedCopyFolder(request_.files, HardLinks::whereSupported, unobserved).copies()) {
        if (files_.empty() || FileIdentity::of(copy.image) == FileIdentity::of(request_.image)) {
            continue;
        }
        try {
            repairFrom(copy.image, disk);
        } catch (const std::exception&) {
            traceCaught("restore", "a copy does not help with damaged files");
        }
    }
}

void DamagedFiles::repairFrom(const std::filesystem::path& path, const FileDescriptor& disk) {
    const auto image = OpenImage::open(ImageFile::open(path, LoopAccess::readOnly, host_),
                                       LoopAccess::readOnly, request_.protection, host_);
    const auto manifest = image.manifest();
    if (!manifest) {
        return;
    }
    const auto& wanted = saved_.contents();
    const auto& held = manifest->contents();
    const auto pairing = pairItems(wanted, held);
    FolderCursor from(image.contents(), held);
    FolderCursor onto(disk, wanted);
    const ProgressObserver unobserved;
    ProgressMeter meter(unobserved);
    Renewals renewals;
    FileWriter writer(meter, renewals, PageCache::use, HugePages::none);
    const auto repair = [&](std::uint32_t file) {
        const auto other = pairing.ofSource[file];
        if (other == noItem || held.items[other].type != ItemType::file
            || !isSameFile(wanted, wanted.items[file].original, held, held.items[other].original)) {
            return false;
        }
        const auto name = std::string(wanted.name(file));
        const auto sound = openForReading(from.open(held.items[other].parent), name.c_str());
        // A file that nobody may write to is made writable for as long as it takes.
        if (const auto flagged = openForReading(onto.open(wanted.items[file].parent), name.c_str());
            wanted.items[file].flags != 0 && (!flagged || !setItemFlags(flagged.get(), 0))) {
            return false;
        }
        const auto broken = openItem(onto.open(wanted.items[file].parent), name.c_str(), O_RDWR | O_TRUNC);
        if (!sound || !broken || !writer.copyWhole(sound, broken, {wanted, file})) {
            return false;
        }
        applyMetadata(broken.get(), wanted, file, Owners::all);
        if (wanted.items[file].flags != 0 && !setItemFlags(broken.get(), wanted.items[file].flags)) {
            return false;
        }
        trace("restore", "“{}” is put back from {}", wanted.path(file), path.native());
        return true;
    };
    files_.erase(std::remove_if(files_.begin(), files_.end(), repair), files_.end());
}

void DamagedFiles::requireRepaired() const {
    if (files_.empty()) {
        return;
    }
    constexpr std::size_t mostNames = 5;
    std::vector<std::string> names;
    for (std::size_t number = 0; number < std::min(mostNames, files_.size()); ++number) {
        names.push_back(fmt::format("“{}”", saved_.contents().path(files_[number])));
    }
    if (files_.size() > mostNames) {
        names.push_back(fmt::format("{} more", files_.size() - mostNames));
    }
    const bool isOne = files_.size() == 1;
    throw SomeFilesDamaged(RamDiskError::ContentsTransferFailed{fmt::format(
        "the copy is damaged: {} {} from what was saved, and no other copy has {}. All other "
        "files were put back. The damaged copy is kept as “{}”.",
        enumeration(names), isOne ? "differs" : "differ", isOne ? "it" : "them", kept_.filename().string())});
}

} // namespace ramdisk
