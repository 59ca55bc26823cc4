#include "RamDiskInfrastructure/Redirects/FolderNames.h"

#include <fmt/format.h>

#include <cstddef>
#include <cstdint>

namespace ramdisk {

namespace {

constexpr std::size_t longestName = 200;

} // namespace

std::string nameOfFolder(const std::filesystem::path& folder) {
    std::string name;
    for (const auto& part : folder) {
        name += name.empty() ? "" : "+";
        for (const char letter : part.string()) {
            if (letter == '%' || letter == '+') {
                name += letter == '%' ? "%25" : "%2B";
            } else {
                name += letter;
            }
        }
    }
    if (name == "npm" || name == "Temporary" || name == "DerivedData") {
        // These are the names of settings.
        return name + "+";
    }
    if (name.size() <= longestName) {
        return name;
    }
    // The end tells more than the beginning. FNV-1a, since the name must be the same at every start.
    std::uint64_t hash = 14695981039346656037U;
    for (const char letter : name) {
        hash = (hash ^ static_cast<unsigned char>(letter)) * 1099511628211U;
    }
    auto begin = name.size() - longestName;
    while (begin < name.size() && (static_cast<unsigned char>(name[begin]) & 0xC0U) == 0x80U) {
        ++begin;
    }
    return fmt::format("{:016x}+{}", hash, name.substr(begin));
}

std::filesystem::path folderOfName(const std::string& name) {
    std::filesystem::path folder;
    std::string part;
    for (std::size_t index = 0; index < name.size(); ++index) {
        const auto escape = name.substr(index, 3);
        if (name[index] == '+') {
            folder /= part;
            part.clear();
        } else if (escape == "%2B" || escape == "%25") {
            part += escape == "%2B" ? '+' : '%';
            index += 2;
        } else {
            part += name[index];
        }
    }
    return part.empty() ? folder : folder / part;
}

} // namespace ramdisk
