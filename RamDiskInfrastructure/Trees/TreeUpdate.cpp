#include "RamDiskInfrastructure/Trees/TreeUpdate.h"

#include "RamDiskInfrastructure/Trees/TreeUpdater.h"

namespace ramdisk {

void TreeUpdate::perform(const ProgressObserver& observer) const {
    TreeUpdater(*this, observer).perform();
}

} // namespace ramdisk
