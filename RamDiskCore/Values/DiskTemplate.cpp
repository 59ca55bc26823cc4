#include "RamDiskCore/Values/DiskTemplate.h"

#include "RamDiskCore/Values/Text.h"

#include <utility>

namespace ramdisk {

DiskTemplate::DiskTemplate(const UUID& identifier, std::string_view title, RamDiskSetup aSetup)
    : id(identifier),
      setup(std::move(aSetup)),
      title_(trimmed(title)) {}

void DiskTemplate::setTitle(std::string_view title) {
    title_ = trimmed(title);
}

std::string DiskTemplate::commandLine() const {
    std::string command = "tramdisk create --template='";
    for (const char character : title_) {
        if (character == '\'') {
            command += R"('\'')";
        } else {
            command += character;
        }
    }
    return command + "'";
}

} // namespace ramdisk
