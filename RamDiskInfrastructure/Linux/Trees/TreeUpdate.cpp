#include "RamDiskInfrastructure/Linux/Trees/TreeUpdate.h"

#include "RamDiskInfrastructure/Linux/Trees/TreeUpdater.h"

namespace ramdisk {

void TreeUpdate::perform(const ProgressObserver& observer) const {
    TreeUpdater(*this, observer).perform();
}

} // namespace ramdisk
