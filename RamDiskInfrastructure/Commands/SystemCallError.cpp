#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <fmt/format.h>

namespace ramdisk {

SystemCallError::SystemCallError(const std::string& doing, const std::filesystem::path& path, int error)
    : std::system_error(error, std::generic_category()),
      text_(fmt::format("could not {} “{}”: {}", doing, path.string(), code().message())) {}

SystemCallError::SystemCallError(const std::string& doing, int error)
    : std::system_error(error, std::generic_category()),
      text_(fmt::format("could not {}: {}", doing, code().message())) {}

bool SystemCallError::isLackOfRights() const noexcept {
    return code().value() == EPERM || code().value() == EACCES || code().value() == ENOSYS;
}

} // namespace ramdisk
