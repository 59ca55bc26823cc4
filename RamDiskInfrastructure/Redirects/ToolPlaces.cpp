#include "RamDiskInfrastructure/Redirects/ToolPlaces.h"

#include "RamDiskCore/Values/Text.h"
#include "RamDiskInfrastructure/Redirects/FolderOnDisk.h"
#include "RamDiskInfrastructure/Redirects/HomeTree.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace ramdisk {

namespace {

namespace fs = std::filesystem;

/// What can move a cache.
struct Mover {
    enum class Kind {
        none,
        /// The variable names the folder, or the one that holds `below`.
        variable,
        /// The same, heeded where home folders have the layout `xdg` alone.
        xdgVariable,
        /// The tool keeps no cache while the variable is set.
        off,
        /// A folder of the home folder that the tool prefers when it exists.
        formerFolder
    };
    Kind kind = Kind::none;
    const char* name = "";
    const char* below = "";
};

using Kind = Mover::Kind;

struct CacheMovers {
    KnownCache value;
    /// The first that applies counts.
    std::array<Mover, 4> movers{};
    /// It lies in each project, unless a variable moves it.
    bool isPerProject = false;
};

constexpr Mover byVariable(const char* name, const char* below = "") {
    return {Kind::variable, name, below};
}

constexpr Mover off(const char* name) {
    return {Kind::off, name};
}

constexpr Mover xdgCache(const char* below) {
    return {Kind::xdgVariable, "XDG_CACHE_HOME", below};
}

constexpr auto cacheMovers = enumerationTable<CacheMovers>({
    {KnownCache::swiftPM, {xdgCache("org.swift.swiftpm")}},
    {KnownCache::cocoaPods, {byVariable("CP_CACHE_DIR")}},
    {KnownCache::gradle, {byVariable("GRADLE_USER_HOME", "caches")}},
    {KnownCache::pip, {off("PIP_NO_CACHE_DIR"), byVariable("PIP_CACHE_DIR"), xdgCache("pip")}},
    {KnownCache::cargo, {byVariable("CARGO_HOME", "registry")}},
    {KnownCache::homebrew, {byVariable("HOMEBREW_CACHE"), xdgCache("Homebrew")}},
    {KnownCache::chrome, {xdgCache("google-chrome")}},
    {KnownCache::ccache,
     {off("CCACHE_DISABLE"), byVariable("CCACHE_DIR"), Mover{Kind::formerFolder, ".ccache"},
      byVariable("XDG_CACHE_HOME", "ccache")}},
    {KnownCache::sccache, {byVariable("SCCACHE_DIR"), xdgCache("sccache")}},
    {KnownCache::goBuild, {byVariable("GOCACHE"), xdgCache("go-build")}},
    {KnownCache::yarn, {byVariable("YARN_CACHE_FOLDER"), xdgCache("yarn")}},
    {KnownCache::pnpm,
     {byVariable("npm_config_store_dir"), byVariable("PNPM_HOME", "store"),
      byVariable("XDG_DATA_HOME", "pnpm/store")}},
    {KnownCache::maven},
    {KnownCache::firefox, {xdgCache("mozilla/firefox")}},
    {KnownCache::ruff, {off("RUFF_NO_CACHE"), byVariable("RUFF_CACHE_DIR")}, true},
    {KnownCache::mypy, {byVariable("MYPY_CACHE_DIR")}, true},
});

bool isFalse(const std::string& value) {
    const auto plain = foldedName(value);
    return plain == "0" || plain == "false" || plain == "no" || plain == "off" || plain == "n"
           || plain == "f";
}

bool isRelativeXDG(std::string_view variable, const std::string& value) {
    // Such a value is to be ignored, by the rule that brought the variable.
    return variable.starts_with("XDG_") && !fs::path(value).is_absolute();
}

/// `path` as seen from `root`, when it lies below it.
std::optional<fs::path> below(const fs::path& path, const fs::path& root) {
    auto relative = path.lexically_relative(root);
    if (relative.empty() || relative == "." || *relative.begin() == "..") {
        return std::nullopt;
    }
    return relative;
}

fs::path withoutLastSlash(const fs::path& path) {
    auto plain = path.lexically_normal();
    return plain.has_filename() ? plain : plain.parent_path();
}

/// The same place by its name, or by where links lead. The last part may be a redirect's own link, which
/// leads to a disk.
std::optional<fs::path> belowHome(const fs::path& path, const fs::path& home) {
    const auto plain = withoutLastSlash(path);
    const bool leadsUp = std::find(path.begin(), path.end(), fs::path("..")) != path.end();
    if (!leadsUp) {
        if (auto found = below(plain, home.lexically_normal())) {
            return found;
        }
    }
    std::error_code error;
    const auto real = leadsUp ? fs::weakly_canonical(path, error)
                              : fs::weakly_canonical(plain.parent_path(), error) / plain.filename();
    if (error) {
        return std::nullopt;
    }
    const auto realHome = fs::canonical(home, error);
    return error ? std::nullopt : below(real, realHome);
}

bool isSame(const fs::path& left, const fs::path& right) {
    return comparableFolder(left) == comparableFolder(right);
}

} // namespace

ToolPlaces::ToolPlaces(fs::path home, VariableLookup variables, HomeLayout layout)
    : home_(std::move(home)),
      variables_(std::move(variables)),
      layout_(layout) {}

ToolPlaces::Place ToolPlaces::placeBelowHome(KnownCache cache, const char* variable, const std::string& value,
                                             const char* below) const {
    const auto problem = [&](std::string_view which) {
        return Place{std::nullopt, variable,
                     fmt::format("{} keeps its cache in “{}”, as {} says, which is not {}.", rawValue(cache),
                                 replacingInvalidUTF8(value), variable, which)};
    };
    const fs::path named(value);
    if (!named.is_absolute()) {
        return problem("a full path");
    }
    const auto folder = belowHome(*below == '\0' ? named : named / below, home_);
    if (!folder) {
        return problem("below the home folder");
    }
    if (replacingInvalidUTF8(folder->string()) != folder->string()) {
        return problem("UTF-8");
    }
    const auto usual = folderOfCache(cache, layout_);
    return {*folder, isSame(*folder, usual) ? "" : variable, ""};
}

ToolPlaces::Place ToolPlaces::placeOf(KnownCache cache) const {
    const auto& row = rowOf(cacheMovers, cache);
    for (const auto& [kind, name, below] : row.movers) {
        if (kind == Kind::formerFolder) {
            std::error_code error;
            if (fs::exists(fs::symlink_status(home_ / name, error))) {
                return {name, fmt::format("~/{}", name), ""};
            }
            continue;
        }
        if (kind == Kind::none || (kind == Kind::xdgVariable && layout_ != HomeLayout::xdg)) {
            continue;
        }
        const auto value = variables_(name);
        if (!value || isRelativeXDG(name, *value)) {
            continue;
        }
        if (kind != Kind::off) {
            return placeBelowHome(cache, name, *value, below);
        }
        if (!isFalse(*value)) {
            return {std::nullopt, name,
                    fmt::format("{} keeps no cache, since {} is set.", rawValue(cache), name)};
        }
    }
    if (row.isPerProject) {
        const auto& variable = *std::find_if(row.movers.begin(), row.movers.end(),
                                             [](const Mover& each) { return each.kind == Kind::variable; });
        return {
            std::nullopt, variable.name,
            fmt::format("{} keeps a cache in each project, unless {} names a folder below the home folder.",
                        rawValue(cache), variable.name)};
    }
    return {folderOfCache(cache, layout_), "", ""};
}

std::optional<ToolPlaces::Place> ToolPlaces::npmElsewhere() const {
    for (const auto* const name : {"npm_config_cache", "NPM_CONFIG_CACHE"}) {
        const auto value = variables_(name);
        // npm tells the programs that it runs where its cache is.
        if (value && !isFolderOnDisk(*value, "npm")) {
            return Place{std::nullopt, name,
                         fmt::format("npm keeps its cache in “{}”, as {} says, whatever “~/.npmrc” holds.",
                                     replacingInvalidUTF8(*value), name)};
        }
    }
    for (const auto* const name : {"npm_config_userconfig", "NPM_CONFIG_USERCONFIG"}) {
        const auto value = variables_(name);
        if (value && fs::path(*value).lexically_normal() != (home_ / ".npmrc").lexically_normal()) {
            return Place{std::nullopt, name,
                         fmt::format("npm reads “{}” instead of “~/.npmrc”, as {} says.",
                                     replacingInvalidUTF8(*value), name)};
        }
    }
    return std::nullopt;
}

RedirectTarget ToolPlaces::settled(const RedirectTarget& target) const {
    if (std::holds_alternative<RedirectTarget::NpmCache>(target.value)) {
        if (const auto elsewhere = npmElsewhere()) {
            throw std::runtime_error(elsewhere->problem);
        }
    }
    const auto* const cache = std::get_if<RedirectTarget::Cache>(&target.value);
    if (cache == nullptr) {
        return target;
    }
    const auto place = placeOf(cache->cache);
    if (!place.folder) {
        throw std::runtime_error(place.problem);
    }
    return place.movedBy.empty() && isStoredByName(cache->cache)
               ? target
               : RedirectTarget{RedirectTarget::Folder{place.folder->string()}};
}

RedirectTarget ToolPlaces::named(const RedirectTarget& target) const {
    const auto* const folder = std::get_if<RedirectTarget::Folder>(&target.value);
    if (folder == nullptr) {
        return target;
    }
    const auto path = withoutLastSlash(folder->path);
    for (const auto cache : allKnownCaches) {
        const auto place = placeOf(cache);
        if ((place.folder && isSame(*place.folder, path)) || isSame(folderOfCache(cache, layout_), path)) {
            return {RedirectTarget::Cache{cache}};
        }
    }
    return target;
}

std::optional<std::string> ToolPlaces::overriding(const RedirectTarget& target) const {
    if (std::holds_alternative<RedirectTarget::NpmCache>(target.value)) {
        const auto elsewhere = npmElsewhere();
        return elsewhere ? std::optional(elsewhere->movedBy) : std::nullopt;
    }
    const auto known = named(target);
    const auto* const cache = std::get_if<RedirectTarget::Cache>(&known.value);
    if (cache == nullptr) {
        return std::nullopt;
    }
    const auto place = placeOf(cache->cache);
    const auto* const folder = std::get_if<RedirectTarget::Folder>(&target.value);
    const auto stored =
        folder == nullptr ? folderOfCache(cache->cache, layout_) : withoutLastSlash(folder->path);
    return place.folder && isSame(*place.folder, stored) ? std::nullopt : std::optional(place.movedBy);
}

} // namespace ramdisk
