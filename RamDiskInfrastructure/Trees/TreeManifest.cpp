#include "RamDiskInfrastructure/Trees/TreeManifest.h"

#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/Trees/FileHasher.h"
#include "RamDiskInfrastructure/Trees/TreeComparison.h"
#include "RamDiskInfrastructure/Trees/TreeScanner.h"
#include "RamDiskInfrastructure/Trees/WriteWatch.h"

#include <unordered_map>

namespace ramdisk {

namespace {

TreeManifest scanWith(TreeScanner&& scanner, const FileDescriptor& root, const ProgressObserver& observer,
                      Writers writers) {
    TreeManifest manifest;
    ProgressMeter meter(observer);
    manifest.contents() = scanner.scan(meter);
    hashFiles(manifest.contents(), root, writers, meter);
    return manifest;
}

} // namespace

TreeManifest::TreeManifest() : contents_(std::make_unique<Contents>()) {
    contents_->items.emplace_back();
}

TreeManifest::~TreeManifest() = default;
TreeManifest::TreeManifest(TreeManifest&&) noexcept = default;
TreeManifest& TreeManifest::operator=(TreeManifest&&) noexcept = default;

TreeManifest TreeManifest::scan(const FileDescriptor& root, const ProgressObserver& observer) {
    return scanWith(TreeScanner(root), root, observer, Writers::ignore);
}

TreeManifest TreeManifest::scan(WriteWatch& watch, const ProgressObserver& observer) {
    return scanWith(TreeScanner(watch), watch.root(), observer, Writers::note);
}

TreeManifest TreeManifest::scanAgain(WriteWatch& watch, const TreeManifest& earlier,
                                     const ProgressObserver& observer) {
    return scanWith(TreeScanner(watch, earlier.contents()), watch.root(), observer, Writers::note);
}

std::uint64_t TreeManifest::itemCount() const noexcept {
    return contents_->items.size() - 1;
}

std::uint64_t TreeManifest::byteCount() const noexcept {
    std::uint64_t sum = 0;
    for (std::uint32_t item = 0; item < contents_->items.size(); ++item) {
        sum += contents_->dataSize(item);
    }
    return sum;
}

std::optional<std::string> TreeManifest::firstNameClash() const {
    for (std::uint32_t folder = 0; folder < contents_->items.size(); ++folder) {
        std::unordered_map<std::string, std::uint32_t> names;
        const auto& item = contents_->items[folder];
        for (auto child = item.firstChild; child < item.firstChild + item.childCount; ++child) {
            const auto [other, isNew] = names.try_emplace(caseFolded(contents_->name(child)), child);
            if (!isNew) {
                return contents_->path(other->second) + " and " + contents_->path(child);
            }
        }
    }
    return std::nullopt;
}

std::optional<std::string> TreeManifest::firstDifference(const TreeManifest& other) const {
    return ramdisk::firstDifference(*contents_, *other.contents_);
}

} // namespace ramdisk
