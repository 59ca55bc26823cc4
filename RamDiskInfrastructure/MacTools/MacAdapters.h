#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"
#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskCore/Ports/ContentArchiving.h"
#include "RamDiskCore/Ports/ProcessFootprintReading.h"
#include "RamDiskInfrastructure/MacTools/MediaIdentifying.h"
#include "RamDiskInfrastructure/MacTools/PrivateMounts.h"
#include "RamDiskInfrastructure/MacTools/RamDeviceAllocator.h"
#include "RamDiskInfrastructure/MacTools/VolumeMarkAccessing.h"
#include "RamDiskInfrastructure/MacTools/VolumeStatisticsReading.h"

#include <chrono>
#include <memory>

namespace ramdisk {

/// What the adapters that drive tools need from a Mac: its tools, and what its frameworks report.
struct MacAdapters {
    std::shared_ptr<CommandRunning> runner;
    RamDeviceAllocator::AttachMethod method = RamDeviceAllocator::AttachMethod::diskImages2;
    std::shared_ptr<const PrivateMounts> privateMounts;
    std::shared_ptr<VolumeMarkAccessing> marks;
    std::shared_ptr<MediaIdentifying> media;
    std::shared_ptr<const VolumeStatisticsReading> statistics;
    std::shared_ptr<const ProcessFootprintReading> footprints;
    std::shared_ptr<const SystemMemoryProviding> memory;
    std::shared_ptr<const MountedVolumeListing> volumes;
    std::shared_ptr<PassphraseGenerating> passphrases;
    /// Null where none are kept.
    std::shared_ptr<const StartupDiskNaming> startupDisks = nullptr;
    /// Before a device that is unmounted, but still busy, is detached again.
    std::chrono::milliseconds detachPause{500};
};

/// Builds the use cases with those adapters.
[[nodiscard]] RamDiskServices makeMacServices(const MacAdapters& adapters);

/// What saves the disks' files and puts them back.
[[nodiscard]] std::shared_ptr<ContentArchiving> makeMacContentArchiver(const MacAdapters& adapters);

} // namespace ramdisk
