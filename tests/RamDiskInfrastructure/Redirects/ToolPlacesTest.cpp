#include "RamDiskInfrastructure/Redirects/ToolPlaces.h"

#include "RamDiskInfrastructure/Redirects/FolderUse.h"
#include "RamDiskUI/RedirectText.h"
#include "tests/support/RedirectWorld.h"

namespace ramdisk::test {
namespace {

using Variables = std::map<std::string, std::string>;

const RedirectTarget npmTarget{RedirectTarget::NpmCache{}};

VariableLookup lookupIn(const Variables& variables) {
    return [&variables](const char* name) {
        const auto found = variables.find(name);
        return found == variables.end() ? std::nullopt : std::optional(found->second);
    };
}

TEST(ToolPlaces, AreWhereTheVariablesOfEachToolLead) {
    constexpr auto xdg = HomeLayout::xdg;
    constexpr auto library = HomeLayout::library;
    const struct {
        KnownCache cache;
        HomeLayout layout;
        Variables variables;
        std::string place; ///< Or the problem.
    } rows[] = {
        {KnownCache::pip, xdg, {}, ".cache/pip"},
        {KnownCache::pip, library, {}, "Library/Caches/pip"},
        {KnownCache::pip, xdg, {{"XDG_CACHE_HOME", "/home/me/c"}}, "c/pip"},
        {KnownCache::pip, library, {{"XDG_CACHE_HOME", "/home/me/c"}}, "Library/Caches/pip"},
        {KnownCache::pip,
         library,
         {{"XDG_CACHE_HOME", "/home/me/c"}, {"PIP_CACHE_DIR", "/home/me/p/"}, {"PIP_NO_CACHE_DIR", "off"}},
         "p"},
        {KnownCache::pip,
         xdg,
         {{"PIP_CACHE_DIR", "/home/me/p"}, {"PIP_NO_CACHE_DIR", "1"}},
         "pip keeps no cache, since PIP_NO_CACHE_DIR is set."},
        {KnownCache::pip, xdg, {{"XDG_CACHE_HOME", "relative"}}, ".cache/pip"},
        {KnownCache::pip,
         xdg,
         {{"XDG_CACHE_HOME", "/home/meandyou"}},
         "pip keeps its cache in “/home/meandyou”, as XDG_CACHE_HOME says, which is not below the home "
         "folder."},
        {KnownCache::cargo, xdg, {{"CARGO_HOME", "/home/me"}}, "registry"},
        {KnownCache::cargo,
         library,
         {{"CARGO_HOME", "/home/me/../you"}},
         "cargo keeps its cache in “/home/me/../you”, as CARGO_HOME says, which is not below the home "
         "folder."},
        {KnownCache::gradle,
         library,
         {{"GRADLE_USER_HOME", "/home/me/tools//gradle"}},
         "tools/gradle/caches"},
        {KnownCache::homebrew,
         xdg,
         {{"HOMEBREW_CACHE", "/home/me"}},
         "homebrew keeps its cache in “/home/me”, as HOMEBREW_CACHE says, which is not below the home "
         "folder."},
        {KnownCache::homebrew, xdg, {}, ".cache/Homebrew"},
        {KnownCache::cocoaPods, xdg, {}, ".cache/CocoaPods"},
        {KnownCache::cocoaPods, library, {{"CP_CACHE_DIR", "/home/me/pods"}}, "pods"},
        {KnownCache::swiftPM, xdg, {{"XDG_CACHE_HOME", "/home/me/c"}}, "c/org.swift.swiftpm"},
        {KnownCache::chrome, xdg, {{"XDG_CACHE_HOME", "/home/me/c"}}, "c/google-chrome"},
        {KnownCache::ccache, library, {{"XDG_CACHE_HOME", "/home/me/c"}}, "c/ccache"},
        {KnownCache::ccache, xdg, {{"XDG_CACHE_HOME", "/home/me/c"}, {"CCACHE_DIR", "/home/me/x"}}, "x"},
        {KnownCache::sccache, library, {}, "Library/Caches/Mozilla.sccache"},
        {KnownCache::sccache, xdg, {{"SCCACHE_DIR", "/home/me/s"}}, "s"},
        {KnownCache::goBuild,
         xdg,
         {{"GOCACHE", "off"}},
         "go-build keeps its cache in “off”, as GOCACHE says, which is not a full path."},
        {KnownCache::yarn, library, {{"YARN_CACHE_FOLDER", "/home/me/y"}}, "y"},
        {KnownCache::yarn, library, {}, "Library/Caches/Yarn"},
        {KnownCache::pnpm, xdg, {{"PNPM_HOME", "/home/me/pnpm"}}, "pnpm/store"},
        {KnownCache::pnpm, library, {{"XDG_DATA_HOME", "/home/me/d"}}, "d/pnpm/store"},
        {KnownCache::maven, xdg, {{"XDG_CACHE_HOME", "/home/me/c"}}, ".m2/repository"},
        {KnownCache::firefox, xdg, {}, ".cache/mozilla/firefox"},
        {KnownCache::firefox, library, {}, "Library/Caches/Firefox"},
        {KnownCache::ruff,
         xdg,
         {},
         "ruff keeps a cache in each project, unless RUFF_CACHE_DIR names a folder below the home folder."},
        {KnownCache::ruff, xdg, {{"RUFF_CACHE_DIR", "/home/me/.cache/ruff"}}, ".cache/ruff"},
        {KnownCache::mypy,
         library,
         {{"MYPY_CACHE_DIR", "/home/me/m\xff"}},
         "mypy keeps its cache in “/home/me/m\uFFFD”, as MYPY_CACHE_DIR says, which is not UTF-8."},
    };
    for (const auto& row : rows) {
        const auto place = ToolPlaces("/home/me", lookupIn(row.variables), row.layout).placeOf(row.cache);
        EXPECT_EQ(place.folder ? place.folder->string() : place.problem, row.place);
        EXPECT_NE(place.folder.has_value(), place.movedBy.empty() == false && !place.problem.empty());
    }
}

TEST(ToolPlaces, AreBelowHomeByNameOrByWhereLinksLead) {
    const RedirectWorld world;
    fs::create_directory_symlink(world.home(), world.scratch() / "alias");
    fs::create_directory(world.home() / ".ccache");
    Variables variables{{"PIP_CACHE_DIR", world.scratch() / "alias/p"}};
    const ToolPlaces places(world.home(), lookupIn(variables));
    EXPECT_EQ(places.placeOf(KnownCache::pip).folder, "p");
    EXPECT_EQ(places.placeOf(KnownCache::ccache).folder, ".ccache");
    variables["CCACHE_DIR"] = world.home() / "x";
    EXPECT_EQ(places.placeOf(KnownCache::ccache).folder, "x");
}

TEST(ToolPlaces, ARedirectIsUndoneWhereItWasMadeWhateverTheVariablesSay) {
    RedirectWorld world;
    world.write("mine/pip/wheel", "x");
    const auto before = world.tree();
    auto redirects = world.useCase();
    const auto pip = cacheTarget(KnownCache::pip);
    world.variables["PIP_CACHE_DIR"] = world.home() / "mine/pip";
    EXPECT_THAT(texts(redirects.add(world.disk(), {pip})), IsEmpty());
    EXPECT_EQ(fs::read_symlink(world.home() / "mine/pip"), world.onDisk("mine+pip"));
    EXPECT_EQ(redirects.list().front().target, folderTarget("mine/pip"))
        << "for versions that know no variable";
    EXPECT_EQ(redirects.statuses(redirects.list()).front().target, pip);
    EXPECT_THAT(texts(redirects.add(world.disk(), {pip})), IsEmpty());
    EXPECT_EQ(redirects.list().size(), 1U);

    for (const Variables& now : {Variables{}, Variables{{"PIP_CACHE_DIR", world.home() / "other"}},
                                 Variables{{"PIP_CACHE_DIR", "/"}}}) {
        world.variables = now;
        EXPECT_THAT(texts(redirects.undo("Dev")), IsEmpty());
        EXPECT_EQ(world.tree(), before);
        EXPECT_THAT(texts(redirects.apply(world.disk())), IsEmpty());
    }
    world.variables["PIP_CACHE_DIR"] = world.home() / "mine/pip";
    EXPECT_THAT(texts(redirects.remove("Dev", {pip})), IsEmpty());
    EXPECT_EQ(world.tree(), before);
    EXPECT_THAT(redirects.list(), IsEmpty());
}

TEST(ToolPlaces, AStoredCacheFollowsAVariableThatCameLaterAndFailsOneThatLeadsAway) {
    RedirectWorld world;
    auto redirects = world.useCase();
    const auto pip = cacheTarget(KnownCache::pip);
    EXPECT_THAT(texts(redirects.add(world.disk(), {pip})), IsEmpty());
    EXPECT_EQ(redirects.list().front().target, pip);
    world.variables["PIP_CACHE_DIR"] = world.home() / "p";
    EXPECT_THAT(texts(redirects.add(world.disk(), {pip})),
                ElementsAre(testing::HasSubstr("its tool keeps its files in “p” now")))
        << "asked for again, it moves";
    EXPECT_EQ(world.tree().size(), 1U);
    EXPECT_EQ(fs::read_symlink(world.home() / "p"), world.onDisk("p"));
    EXPECT_THAT(texts(redirects.change(world.disk(), {pip})), IsEmpty());
    EXPECT_EQ(redirects.list().size(), 1U);
    EXPECT_THAT(texts(redirects.forget("Dev")), IsEmpty());

    for (const auto& [variable, target, text] :
         std::vector<std::tuple<std::string, RedirectTarget, std::string>>{
             {"PIP_CACHE_DIR", pip,
              "pip keeps its cache in “/tmp/x”, as PIP_CACHE_DIR says, which is not below the home folder."},
             {"npm_config_cache", npmTarget,
              "npm keeps its cache in “/tmp/x”, as npm_config_cache says, whatever “~/.npmrc” holds."},
             {"NPM_CONFIG_USERCONFIG", npmTarget,
              "npm reads “/tmp/x” instead of “~/.npmrc”, as NPM_CONFIG_USERCONFIG says."}}) {
        world.variables = {{variable, "/tmp/x"}};
        EXPECT_THAT(texts(redirects.add(world.disk(), {target})), ElementsAre(text));
        EXPECT_THAT(redirects.list(), IsEmpty());
        world.variables.clear();
        EXPECT_THAT(texts(redirects.add(world.disk(), {target})), IsEmpty());
        EXPECT_THAT(texts(redirects.undo("Dev")), IsEmpty());
        world.variables = {{variable, "/tmp/x"}};
        EXPECT_THAT(texts(redirects.apply(world.disk())), ElementsAre(text));
        EXPECT_EQ(redirects.list().size(), 1U) << "a disk that comes back keeps what it is to have";
        EXPECT_TRUE(world.tree().empty());
        EXPECT_THAT(texts(redirects.remove("Dev", {target})), IsEmpty());
        EXPECT_THAT(redirects.list(), IsEmpty());
    }
}

TEST(RedirectStatus, TellsWhatIsThereAndNotWhatWasRecorded) {
    const auto ccache = cacheTarget(KnownCache::ccache);
    const auto link = [](RedirectWorld& world) { return world.home() / folderOfCache(KnownCache::ccache); };
    const struct {
        RedirectTarget target;
        std::function<void(RedirectWorld&)> meddle;
        std::string text;
        bool isUsed = true;
    } rows[] = {
        {ccache, [](RedirectWorld&) {}, "in place"},
        {ccache, [](RedirectWorld& world) { world.loseDisk(); }, "disk not mounted", false},
        {ccache, [](RedirectWorld& world) { world.useCase().undo("Dev"); }, "not in place"},
        {ccache, [&](RedirectWorld& world) { fs::remove(link(world)); }, "link replaced"},
        {ccache,
         [&](RedirectWorld& world) {
             fs::remove(link(world));
             fs::create_directory(link(world));
         },
         "link replaced"},
        {ccache, [](RedirectWorld& world) { fs::remove_all(world.onDisk(".cache+ccache")); },
         "folder on the disk missing", false},
        {ccache, [&](RedirectWorld& world) { fs::remove_all(link(world).string() + ".ramdisk-original"); },
         "original missing"},
        {ccache, [](RedirectWorld& world) { world.variables["CCACHE_DIR"] = world.home() / "other"; },
         "overridden by CCACHE_DIR"},
        {ccache, [](RedirectWorld& world) { world.write(".ccache/x", ""); }, "overridden by ~/.ccache"},
        {npmTarget, [](RedirectWorld& world) { world.variables["npm_config_cache"] = "/tmp/x"; },
         "overridden by npm_config_cache"},
        {npmTarget, [](RedirectWorld& world) { world.variables["npm_config_cache"] = world.onDisk("npm"); },
         "in place"},
        {npmTarget, [](RedirectWorld& world) { world.write(".npmrc", "cache=/mine\n"); }, "setting replaced"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.text);
        RedirectWorld world;
        world.write(folderOfCache(KnownCache::ccache) / "old", "x");
        ASSERT_THAT(texts(world.useCase().add(world.disk(), {row.target})), IsEmpty());
        row.meddle(world);
        const auto redirects = world.useCase();
        const auto status = redirects.statuses(redirects.list()).at(0);
        EXPECT_EQ(statusText(status), row.text);
        EXPECT_EQ(status.target, row.target);
        EXPECT_EQ(status.used.has_value(), row.isUsed);
    }
}

TEST(FolderUse, CountsUpToABoundAndFollowsNoLinks) {
    const RedirectWorld world;
    writeFile(world.mountPoint() / "big", std::string(1 << 20, 'x'));
    world.write("a", std::string(8192, 'x'));
    world.write("b/c", "");
    fs::create_directory_symlink(world.mountPoint(), world.home() / "link");
    const auto all = useOfFolder(world.home());
    EXPECT_GE(all.bytes.bytes, 8192U);
    EXPECT_LT(all.bytes.bytes, 1U << 20U);
    EXPECT_FALSE(all.isMore);
    EXPECT_FALSE(useOfFolder(world.home(), 4).isMore);
    EXPECT_TRUE(useOfFolder(world.home(), 3).isMore);
    EXPECT_TRUE(useOfFolder(world.home() / "missing").isMore);
}

} // namespace
} // namespace ramdisk::test
