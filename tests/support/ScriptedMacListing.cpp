#include "tests/support/ScriptedMac.h"

#include <fmt/format.h>

#include <regex>

namespace ramdisk::test {

namespace {

std::string escaped(std::string text) {
    for (const auto& [character, reference] : {std::pair("&", "&amp;"), {"<", "&lt;"}, {">", "&gt;"}}) {
        text = std::regex_replace(text, std::regex(character), reference);
    }
    return text;
}

std::string entity(const std::string& device, const std::optional<std::filesystem::path>& mountPoint = {}) {
    const auto mount = mountPoint
                           ? fmt::format("\t\t\t\t\t<key>mount-point</key>\n\t\t\t\t\t<string>{}</string>\n",
                                         escaped(mountPoint->string()))
                           : std::string();
    return fmt::format("\t\t\t\t<dict>\n\t\t\t\t\t<key>content-hint</key>\n\t\t\t\t\t<string></string>\n"
                       "\t\t\t\t\t<key>dev-entry</key>\n\t\t\t\t\t<string>{}</string>\n{}\t\t\t\t</dict>\n",
                       device, mount);
}

std::string entities(const ScriptedMac::Image& image) {
    const auto device = "/dev/" + image.name();
    if (image.volume && image.volume->devicePath == device) {
        return entity(device, image.volume->mountPoint);
    }
    return entity(device)
           + (image.volume && image.container ? entity(fmt::format("/dev/disk{}", *image.container)) : "")
           + (image.volume ? entity(image.volume->devicePath, image.volume->mountPoint) : "");
}

} // namespace

std::string ScriptedMac::infoPropertyList() const {
    std::string list;
    for (const auto& image : images) {
        list += fmt::format(
            "\t\t<dict>\n\t\t\t<key>autodiskmount</key>\n\t\t\t<true/>\n\t\t\t<key>blockcount</key>\n"
            "\t\t\t<integer>{}</integer>\n\t\t\t<key>blocksize</key>\n\t\t\t<integer>512</integer>\n"
            "\t\t\t<key>hdid-pid</key>\n\t\t\t<integer>{}</integer>\n\t\t\t<key>image-path</key>\n"
            "\t\t\t<string>{}</string>\n\t\t\t<key>system-entities</key>\n\t\t\t<array>\n{}"
            "\t\t\t</array>\n\t\t</dict>\n",
            image.sectors, 100 + image.disk, escaped(image.path), entities(image));
    }
    if (!list.empty()) {
        list = "\t<key>images</key>\n\t<array>\n" + list + "\t</array>\n";
    }
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n"
           "\t<key>framework</key>\n\t<string>683.100.3</string>\n"
           + list + "\t<key>vendor</key>\n\t<string>Apple</string>\n</dict>\n</plist>\n";
}

} // namespace ramdisk::test
