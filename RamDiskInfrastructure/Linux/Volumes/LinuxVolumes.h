#pragma once

#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskInfrastructure/Linux/Volumes/LinuxVolume.h"

#include <map>
#include <memory>

namespace ramdisk {

/// The realisation that a record was made with. Lives as long as the process.
class LinuxVolumes {
public:
    LinuxVolumes(const LinuxHost& host, const std::shared_ptr<CommandRunning>& runner);

    [[nodiscard]] const LinuxVolume& of(VolumeKind kind) const { return *volumes_.at(kind); }

private:
    std::map<VolumeKind, std::unique_ptr<const LinuxVolume>> volumes_;
};

} // namespace ramdisk
