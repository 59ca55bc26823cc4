#include "RamDiskUI/RedirectText.h"

#include "RamDiskInfrastructure/Stores/CacheFolders.h"

#include <fmt/format.h>

namespace ramdisk {

namespace {

using Target = RedirectTarget;
using Condition = RedirectStatus::Condition;

template <typename Value>
struct Worded {
    Value value;
    const char* text;
};

constexpr auto cacheTitles = enumerationTable<Worded<KnownCache>>({
    {KnownCache::swiftPM, "Swift Package Manager cache"},
    {KnownCache::cocoaPods, "CocoaPods cache"},
    {KnownCache::gradle, "Gradle cache"},
    {KnownCache::pip, "pip cache"},
    {KnownCache::cargo, "Cargo registry"},
    {KnownCache::homebrew, "Homebrew downloads"},
    {KnownCache::chrome, "Chrome cache"},
    {KnownCache::ccache, "ccache"},
    {KnownCache::sccache, "sccache"},
    {KnownCache::goBuild, "Go build cache"},
    {KnownCache::yarn, "Yarn cache"},
    {KnownCache::pnpm, "pnpm store"},
    {KnownCache::maven, "Maven repository"},
    {KnownCache::firefox, "Firefox cache"},
    {KnownCache::ruff, "Ruff cache"},
    {KnownCache::mypy, "mypy cache"},
});

struct TargetTitle {
    std::string operator()(const Target::XcodeDerivedData&) const { return "Xcode DerivedData"; }
    std::string operator()(const Target::NpmCache&) const { return "npm cache"; }
    std::string operator()(const Target::Folder& target) const { return "~/" + target.path; }
    std::string operator()(const Target::Cache& target) const {
        return rowOf(cacheTitles, target.cache).text;
    }
    std::string operator()(const Target::TemporaryFolder&) const { return "Temporary files (TMPDIR)"; }
};

struct TargetNote {
    const RedirectTarget& settled;
    bool startsEmpty;

    std::string operator()(const Target::XcodeDerivedData&) const {
        return "Build products and indexes. Restart Xcode to use the new place.";
    }
    std::string operator()(const Target::NpmCache&) const { return "Downloaded packages, set in ~/.npmrc."; }
    std::string operator()(const Target::Folder&) const {
        return startsEmpty
                   ? "Starts empty on the disk; the original is put back when the disk goes away."
                   : "It has files on the disk already; the original is put back when the disk goes away.";
    }
    std::string operator()(const Target::Cache& target) const {
        switch (target.cache) {
        case KnownCache::chrome:
            return quit("Chrome");
        case KnownCache::firefox:
            return quit("Firefox");
        default:
            const auto* const folder = std::get_if<Target::Folder>(&settled.value);
            return fmt::format("~/{}. {}; the original comes back when the disk goes away.",
                               folder != nullptr ? folder->path : folderOfCache(target.cache).string(),
                               startsEmpty ? "Starts empty" : "It has files on the disk already");
        }
    }
    std::string operator()(const Target::TemporaryFolder&) const {
        return "For apps opened from now on. Running apps and open Terminal windows keep their old folder.";
    }

private:
    [[nodiscard]] std::string quit(std::string_view browser) const {
        return fmt::format("Quit {} first. The cache {} and the original comes back when the disk goes away.",
                           browser, startsEmpty ? "starts empty" : "has files on the disk already");
    }
};

constexpr auto conditionTexts = enumerationTable<Worded<Condition>>({
    {Condition::inPlace, "in place"},
    {Condition::notInPlace, "not in place"},
    {Condition::interrupted, "interrupted"},
    {Condition::diskNotMounted, "disk not mounted"},
    {Condition::linkReplaced, "link replaced"},
    {Condition::mountGone, "not mounted any more"},
    {Condition::covered, "covered by another mount"},
    {Condition::settingReplaced, "setting replaced"},
    {Condition::folderMissing, "folder on the disk missing"},
    {Condition::originalMissing, "original missing"},
    {Condition::overridden, "overridden"},
});

} // namespace

std::string redirectsIntroduction() {
    return "Build products, caches, temporary files. Xcode, npm and other tools can keep their folders on a "
           "disk while it is mounted.";
}

std::string redirectTitle(const RedirectTarget& target) {
    return std::visit(TargetTitle{}, target.value);
}

std::string redirectNote(const RedirectTarget& target, const RedirectTarget& settled, bool startsEmpty) {
    return std::visit(TargetNote{settled, startsEmpty}, target.value);
}

std::string statusText(const RedirectStatus& status) {
    const auto* const text = rowOf(conditionTexts, status.condition).text;
    return status.overriddenBy ? fmt::format("{} by {}", text, *status.overriddenBy) : text;
}

} // namespace ramdisk
