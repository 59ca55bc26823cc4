#pragma once

namespace ramdisk {

/// Whether the kept files of a disk are saved before it is ejected.
enum class SaveBeforeEject { yes, no };

} // namespace ramdisk
