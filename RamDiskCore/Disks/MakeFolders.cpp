#include "RamDiskCore/Disks/MakeFolders.h"

namespace ramdisk {

std::vector<RamDiskError> makeFolders(FolderMaking& maker, const std::vector<std::string>& folders,
                                      const std::filesystem::path& volume) {
    std::vector<RamDiskError> errors;
    for (const auto& folder : folders) {
        try {
            maker.make(folder, volume);
        } catch (const RamDiskError& error) {
            errors.push_back(error);
        } catch (const std::exception& error) {
            errors.push_back(RamDiskError(RamDiskError::FolderNotCreated{folder, error.what()}));
        }
    }
    return errors;
}

} // namespace ramdisk
