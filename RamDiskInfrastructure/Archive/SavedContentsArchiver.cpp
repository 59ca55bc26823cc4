#include "RamDiskInfrastructure/Archive/SavedContentsArchiver.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Archive/FileIdentity.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"

#include <utility>

namespace ramdisk {

namespace {

/// Runs `work` with every failure turned into one that users can be told.
template <typename Work>
auto toldToUsers(const Work& work) {
    try {
        return work();
    } catch (const RamDiskError&) {
        throw;
    } catch (const std::exception& error) {
        throw RamDiskError(RamDiskError::ContentsTransferFailed{error.what()});
    }
}

/// As `tidy`, for a failure that is to be reported rather than one of the tidying; what stays is the next
/// operation's to remove.
void tidyAfterFailure(const SavedCopyFolder& folder, SavedImageTool& tool) noexcept {
    try {
        folder.tidy(tool);
    } catch (const std::exception&) {
        traceCaught("save", "what is left of a failed save stays for the next one to remove");
    }
}

} // namespace

SavedContentsArchiver::SavedContentsArchiver(std::shared_ptr<SavedImageTool> tool, StepObserver steps,
                                             HardLinks hardLinks)
    : tool_(std::move(tool)),
      steps_(std::move(steps)),
      hardLinks_(hardLinks) {}

void SavedContentsArchiver::requireSupport(const RamDisk& disk) const {
    tool_->requireSupport(disk);
}

SaveOutcome SavedContentsArchiver::save(const SaveRequest& request, const ProgressObserver& observer) {
    const auto folder = folderOf(request.files);
    return toldToUsers([&] {
        folder.requireOwnPlace();
        step("tidy");
        folder.tidy(*tool_);
        step("open source");
        const auto source = tool_->openSource(request);
        try {
            const auto outcome = save(request, *source, folder, observer);
            if (auto leftOut = source->leftOut()) {
                throw SomeFilesNotSaved(RamDiskError::ContentsTransferFailed{*std::move(leftOut)});
            }
            return outcome;
        } catch (const SomeFilesNotSaved&) {
            throw;
        } catch (const std::exception&) {
            traceCaught("save", "the save failed");
            tidyAfterFailure(folder, *tool_);
            if (!source->isPresent()) {
                throw RamDiskError(RamDiskError::DiskEjected{});
            }
            throw;
        }
    });
}

SaveOutcome SavedContentsArchiver::save(const SaveRequest& request, SaveSource& source,
                                        const SavedCopyFolder& folder, const ProgressObserver& observer) {
    const auto& latest = request.files.latest;
    step("take status");
    static_cast<void>(source.takeStatus(observer));
    if (FileIdentity::of(latest) && !folder.damagedName(latest) && source.isUpToDate(request)) {
        if (request.verification == Verification::yes) {
            step("verify");
            tool_->verify(latest, request.protection);
        }
        requirePresent(source);
        trace("save", "nothing is written: the latest copy holds just this");
        // Whoever put the latest there may have died before its name was safe.
        flushFolder(latest.parent_path());
        folder.prune(request.previousCopies, *tool_);
        return SaveOutcome::nothingChanged;
    }
    step("make folder");
    makeFolders(latest.parent_path());
    const auto partial = SavedCopyNames{request.files}.partial();
    fill(partial, request, source, observer);
    if (request.verification == Verification::yes) {
        step("verify");
        tool_->verify(partial, request.protection);
    }
    requirePresent(source);
    folder.takePlace(partial);
    folder.prune(request.previousCopies, *tool_);
    return SaveOutcome::saved;
}

void SavedContentsArchiver::fill(const std::filesystem::path& partial, const SaveRequest& request,
                                 SaveSource& source, const ProgressObserver& observer) {
    step("begin");
    const auto image = source.begin(partial, request);
    auto status = SaveSource::Status::changed;
    for (int round = 0; round < tool_->rounds() && status == SaveSource::Status::changed; ++round) {
        step("fill");
        image->fill(observer);
        step("take status again");
        status = source.takeStatus(observer);
        if (status == SaveSource::Status::changed) {
            trace("save", "files changed while they were saved: round {} of {}", round + 1, tool_->rounds());
        }
    }
    if (status == SaveSource::Status::changed) {
        throw RamDiskError(RamDiskError::FilesKeptChanging{});
    }
    step("close");
    image->close();
}

RestoredVolume SavedContentsArchiver::restore(const RestoreRequest& request,
                                              const ProgressObserver& observer) {
    const auto folder = folderOf(request.files);
    return toldToUsers([&] {
        auto adjusted = request;
        const auto identity = FileIdentity::of(request.image);
        folder.requireOwnPlace();
        step("tidy");
        folder.tidy(*tool_);
        if (identity && FileIdentity::of(request.files.latest) == identity) {
            // Also when it was an earlier copy until the tidying.
            adjusted.image = request.files.latest;
        }
        step("restore");
        const auto closing = tool_->restore(adjusted, observer);
        if (folder.holdsEarlier(adjusted.image)) {
            try {
                folder.bringBack(adjusted.image);
            } catch (const std::exception&) {
                tidyAfterFailure(folder, *tool_);
                throw;
            }
        }
        return RestoredVolume{request.disk, closing == SavedImageTool::Closing::leftOpen};
    });
}

void SavedContentsArchiver::tidy(const SavedCopyFiles& files) {
    folderOf(files).tidy(*tool_);
}

std::vector<SavedCopy> SavedContentsArchiver::copies(const SavedCopyFiles& files) {
    return folderOf(files).copies();
}

SavedVolume SavedContentsArchiver::describe(const std::filesystem::path& image,
                                            const VolumeProtection& protection) {
    return tool_->describe(image, protection);
}

void SavedContentsArchiver::remove(const SavedCopyFiles& files) {
    folderOf(files).remove(*tool_);
}

SavedCopyFolder SavedContentsArchiver::folderOf(const SavedCopyFiles& files) const {
    return {files, hardLinks_, steps_};
}

void SavedContentsArchiver::step(std::string_view name) const {
    if (steps_) {
        steps_(name);
    }
}

void SavedContentsArchiver::requirePresent(const SaveSource& source) {
    if (!source.isPresent()) {
        throw RamDiskError(RamDiskError::DiskEjected{});
    }
}

} // namespace ramdisk
