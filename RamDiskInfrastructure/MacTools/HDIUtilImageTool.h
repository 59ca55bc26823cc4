#pragma once

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Archive/SavedImageTool.h"
#include "RamDiskInfrastructure/MacTools/HDIUtilImages.h"
#include "RamDiskInfrastructure/MacTools/VolumeStatisticsReading.h"

#include <map>
#include <memory>
#include <mutex>

namespace ramdisk {

/// macOS's half of saving: sparse images with a case-sensitive APFS volume, filled by `ditto`. Every save
/// makes a new image from nothing, unless the latest one holds just what is on the disk.
class HDIUtilImageTool final : public SavedImageTool {
public:
    HDIUtilImageTool(HDIUtilImages::Ports ports, std::shared_ptr<const VolumeStatisticsReading> statistics);

    [[nodiscard]] int rounds() const noexcept override { return 1; }
    [[nodiscard]] std::unique_ptr<SaveSource> openSource(const SaveRequest& request) override;
    void verify(const std::filesystem::path& image, const VolumeProtection& protection) override;
    void retire(const std::filesystem::path& image, const SavedCopyFiles& files) noexcept override;
    void abandon(const std::filesystem::path& partial) noexcept override;
    Closing restore(const RestoreRequest& request, const ProgressObserver& observer) override;
    [[nodiscard]] SavedVolume describe(const std::filesystem::path& image,
                                       const VolumeProtection& protection) override;

private:
    class OpenImage;
    class DiskSource;
    class SparseImage;

    /// Null for an image that is not encrypted.
    /// @throws RamDiskError `missing` when it is encrypted and there is no passphrase for it.
    [[nodiscard]] const VolumePassphrase* passphraseFor(const std::filesystem::path& image,
                                                        const VolumeProtection& protection,
                                                        const RamDiskError& missing) const;

    HDIUtilImages::Ports ports_;
    HDIUtilImages images_;
    std::shared_ptr<const VolumeStatisticsReading> statistics_;
    std::mutex mutex_;
    /// For each image that is not verified yet, the volume from which it was filled.
    std::map<std::filesystem::path, std::filesystem::path> filledFrom_;
};

} // namespace ramdisk
