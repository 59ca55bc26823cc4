#include "RamDiskCore/Startup/TransferError.h"

namespace ramdisk {

RamDiskError transferError(const std::exception& error) {
    if (const auto* ours = dynamic_cast<const RamDiskError*>(&error)) {
        return *ours;
    }
    return RamDiskError(RamDiskError::ContentsTransferFailed{error.what()});
}

} // namespace ramdisk
