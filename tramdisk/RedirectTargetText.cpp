#include "tramdisk/RedirectTargetText.h"

#include "RamDiskCore/Values/KnownCache.h"
#include "RamDiskInfrastructure/Stores/CacheFolders.h"

namespace ramdisk::cli {

namespace {

constexpr std::string_view cachePrefix = "cache:";
constexpr std::string_view folderPrefix = "folder:";

struct TargetText {
    std::string operator()(const RedirectTarget::XcodeDerivedData&) const { return "xcode"; }
    std::string operator()(const RedirectTarget::NpmCache&) const { return "npm"; }
    std::string operator()(const RedirectTarget::Folder& target) const {
        for (const auto cache : allKnownCaches) {
            if (!isStoredByName(cache) && folderOfCache(cache) == target.path) {
                return (*this)(RedirectTarget::Cache{cache});
            }
        }
        return std::string(folderPrefix) + target.path;
    }
    std::string operator()(const RedirectTarget::Cache& target) const {
        return std::string(cachePrefix).append(rawValue(target.cache));
    }
    std::string operator()(const RedirectTarget::TemporaryFolder&) const { return "tmp"; }
};

} // namespace

std::string targetText(const RedirectTarget& target) {
    return std::visit(TargetText{}, target.value);
}

std::optional<RedirectTarget> targetFromText(std::string_view text) {
    if (text == "xcode") {
        return RedirectTarget{RedirectTarget::XcodeDerivedData{}};
    }
    if (text == "npm") {
        return RedirectTarget{RedirectTarget::NpmCache{}};
    }
    if (text == "tmp") {
        return RedirectTarget{RedirectTarget::TemporaryFolder{}};
    }
    if (text.starts_with(cachePrefix)) {
        const auto cache = knownCacheFromRawValue(text.substr(cachePrefix.size()));
        return cache ? std::optional(RedirectTarget{RedirectTarget::Cache{*cache}}) : std::nullopt;
    }
    if (text.starts_with(folderPrefix) && text.size() > folderPrefix.size()) {
        return RedirectTarget{RedirectTarget::Folder{std::string(text.substr(folderPrefix.size()))}};
    }
    return std::nullopt;
}

} // namespace ramdisk::cli
