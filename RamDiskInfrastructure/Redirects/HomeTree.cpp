#include "RamDiskInfrastructure/Redirects/HomeTree.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/Commands/SystemCallError.h"

#include <climits>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace ramdisk {

bool isInside(const std::filesystem::path& path, const std::filesystem::path& folder) {
    return std::mismatch(folder.begin(), folder.end(), path.begin(), path.end()).first == folder.end();
}

std::filesystem::path normalizedHomePath(const std::string& path) {
    const auto refuse = [&] {
        return RamDiskError(
            RamDiskError::InvalidSpecification{{ValidationIssue{ValidationIssue::InvalidFolder{path}}}});
    };
    const std::filesystem::path given(path);
    if (given.is_absolute() || path.find('\0') != std::string::npos || replacingInvalidUTF8(path) != path) {
        throw refuse();
    }
    std::filesystem::path normalized;
    for (const auto& component : given) {
        // A shell did not expand the tilde: taken as a name it would be a folder that nobody means.
        if (component == ".." || (normalized.empty() && component == "~")) {
            throw refuse();
        }
        if (!component.empty() && component != ".") {
            normalized /= component;
        }
    }
    if (normalized.empty()) {
        throw refuse();
    }
    return normalized;
}

std::filesystem::path realPlaceInHome(const std::filesystem::path& home,
                                      const std::filesystem::path& relative) {
    constexpr int mostLinks = 40;
    std::error_code error;
    const auto root = std::filesystem::weakly_canonical(home, error);
    std::vector<std::filesystem::path> left(relative.begin(), relative.end());
    std::reverse(left.begin(), left.end());
    std::filesystem::path real;
    for (int links = 0; !left.empty();) {
        const auto component = left.back();
        left.pop_back();
        const auto link = left.empty() || links == mostLinks
                              ? std::filesystem::path()
                              : std::filesystem::read_symlink(root / real / component, error);
        const auto target = link.empty() ? link : (root / real / link).lexically_normal();
        const auto inside = target.lexically_relative(isInside(target, root) ? root : home);
        if (link.empty() || inside.empty() || *inside.begin() == "..") {
            real /= component;
            continue;
        }
        ++links;
        const std::vector<std::filesystem::path> parts(inside.begin(), inside.end());
        real.clear();
        for (auto part = parts.rbegin(); part != parts.rend(); ++part) {
            if (!part->empty() && *part != ".") {
                left.push_back(*part);
            }
        }
    }
    return real;
}

OpenedFolder openInHome(const std::filesystem::path& home, const std::filesystem::path& relative) {
    std::error_code error;
    const auto root = std::filesystem::canonical(home, error);
    if (error) {
        throw SystemCallError("open", home, error.value());
    }
    auto real = root;
    std::filesystem::path missing;
    for (const auto& component : relative) {
        if (!missing.empty()) {
            missing /= component;
            continue;
        }
        const auto next = std::filesystem::canonical(real / component, error);
        if (error == std::errc::no_such_file_or_directory) {
            missing = component;
            continue;
        }
        if (error) {
            throw SystemCallError("open", real / component, error.value());
        }
        if (!isInside(next, root)) {
            throw LeadsOutOfHome(relative);
        }
        real = next;
    }
    OpenedFolder folder{openFolder(AT_FDCWD, root.c_str()), root, std::move(missing)};
    for (const auto& component : real.lexically_relative(root)) {
        if (folder.descriptor && component != ".") {
            folder.path /= component;
            folder.descriptor = openFolder(folder.descriptor.get(), component.c_str());
        }
    }
    if (!folder.descriptor) {
        throw SystemCallError("open", folder.path);
    }
    return folder;
}

std::optional<struct stat> statusIn(const OpenedFolder& folder, const std::string& name) {
    struct stat status {};
    if (fstatat(folder.descriptor.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0) {
        return status;
    }
    if (errno == ENOENT) {
        return std::nullopt;
    }
    throw SystemCallError("look at", folder.path / name);
}

std::string freeNameIn(const OpenedFolder& folder, const std::string& name, const std::string& ending) {
    auto candidate = name + ending;
    for (int number = 2; statusIn(folder, candidate); ++number) {
        candidate = name + " " + std::to_string(number) + ending;
    }
    return candidate;
}

std::optional<std::string> linkIn(const OpenedFolder& folder, const std::string& name) {
    std::array<char, PATH_MAX> text{};
    const auto size = readlinkat(folder.descriptor.get(), name.c_str(), text.data(), text.size());
    if (size < 0) {
        return std::nullopt;
    }
    return std::string(text.data(), static_cast<std::size_t>(size));
}

} // namespace ramdisk
