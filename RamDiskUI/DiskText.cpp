#include "RamDiskUI/DiskText.h"

#include <fmt/format.h>

namespace ramdisk {

std::string privateAccessText(std::string_view folder) {
    return fmt::format("Mounted in {}, which only you can open.", folder);
}

} // namespace ramdisk
