#include "RamDiskInfrastructure/Linux/SavedContents/LatestCopy.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"

namespace ramdisk {

namespace {

std::optional<LatestCopy::Description> read(const std::filesystem::path& path,
                                            const VolumeProtection& protection, const LinuxHost& host) {
    try {
        auto image = OpenImage::open(ImageFile::open(path, LoopAccess::readOnly, host), LoopAccess::readOnly,
                                     protection, host);
        auto manifest = image.manifest();
        auto origin = image.origin();
        static_cast<void>(image.close());
        if (manifest && origin) {
            return LatestCopy::Description{*std::move(origin), *std::move(manifest)};
        }
    } catch (const RamDiskError& error) {
        if (std::holds_alternative<RamDiskError::IncorrectPassphrase>(error.value())) {
            throw;
        }
        traceCaught("save", "the latest copy does not tell what it holds");
    } catch (const std::exception&) {
        // Then it tells nothing.
        traceCaught("save", "the latest copy does not tell what it holds");
    }
    return std::nullopt;
}

} // namespace

LatestCopy::LatestCopy(const std::filesystem::path& image, const VolumeProtection& protection,
                       const LinuxHost& host)
    // Without a thread it is read when it is asked for.
    : reading_(std::async(std::launch::async | std::launch::deferred, read, image, protection, host)) {}

const std::optional<LatestCopy::Description>& LatestCopy::description() {
    if (reading_.valid()) {
        description_ = reading_.get();
    }
    return description_;
}

} // namespace ramdisk
