#include "tests/support/RedirectInterruptions.h"

#include <ostream>

namespace ramdisk::test {
namespace {

struct NamedScene {
    const char* name;
    RedirectScene scene;
};

void fillCache(RedirectWorld& world) {
    world.write("Projects/cache/a file", "one");
    world.write("Projects/cache/deep/er", "two");
    chmod((world.home() / "Projects/cache").c_str(), 0750);
    world.write("Projects/cache.ramdisk-original", "a file of the user's");
}

const std::vector<NamedScene>& scenes() {
    static const std::vector<NamedScene> all{
        {"Folder", {folderTarget("Projects/cache"), fillCache}},
        {"FolderWithoutExchange",
         {folderTarget("Projects/cache"),
          [](RedirectWorld& world) {
              fillCache(world);
              world.parts.exchange = NameExchange::never;
          }}},
        {"FolderThatIsNotThere",
         {folderTarget("Projects/cache"), [](RedirectWorld& world) { world.write("Projects/x", ""); }}},
        {"FolderBelowFoldersThatAreNotThere",
         {folderTarget("a/b/c/d"), [](RedirectWorld& world) { world.write("a/x", ""); }}},
        {"FolderBehindALink",
         {folderTarget("way/cache"),
          [](RedirectWorld& world) {
              world.write("real/cache/x", "old");
              std::filesystem::create_symlink("real", world.home() / "way");
          }}},
        {"FolderThatIsCopied",
         {folderTarget("Projects/cache"), fillCache, [](const RedirectWorld&) { return std::string(); },
          RedirectStart::copyOfOriginal}},
        {"NpmLine",
         {{RedirectTarget::NpmCache{}},
          [](RedirectWorld& world) {
              world.write(".npmrc", "; mine\r\ncache = /old\r\n//r/:_authToken=secret");
              chmod((world.home() / ".npmrc").c_str(), 0600);
          }}},
        {"NpmWithoutFile",
         {{RedirectTarget::NpmCache{}}, [](RedirectWorld& world) { world.write("x", ""); }}},
        {"NpmBehindALink",
         {{RedirectTarget::NpmCache{}},
          [](RedirectWorld& world) {
              world.write("dotfiles/npmrc", "_authToken=secret\n");
              chmod((world.home() / "dotfiles/npmrc").c_str(), 0640);
              std::filesystem::create_symlink("dotfiles/npmrc", world.home() / ".npmrc");
          }}},
        {"NpmWithoutFinalLineEnd",
         {{RedirectTarget::NpmCache{}},
          [](RedirectWorld& world) { world.write(".npmrc", "fund=false\naudit=false"); }}},
    };
    return all;
}

void PrintTo(const NamedScene& scene, std::ostream* stream) {
    *stream << scene.name;
}

class Interruption : public testing::TestWithParam<NamedScene> {};

TEST_P(Interruption, IsRepairedAtEveryStep) {
    expectEveryInterruptionIsRepaired(GetParam().scene);
    if (!std::holds_alternative<RedirectTarget::NpmCache>(GetParam().scene.target.value)) {
        expectEveryInterruptedRemovalIsRepaired(GetParam().scene);
    }
}

INSTANTIATE_TEST_SUITE_P(Redirect, Interruption, testing::ValuesIn(scenes()),
                         [](const auto& scene) { return std::string(scene.param.name); });

} // namespace
} // namespace ramdisk::test
