#include "RamDiskCore/Values/RamDiskReference.h"

namespace ramdisk {

namespace {

struct TextOf {
    std::string operator()(const RamDiskReference::Device& reference) const {
        return reference.device.bsdName();
    }
    std::string operator()(const RamDiskReference::MountPoint& reference) const {
        return reference.path.string();
    }
    std::string operator()(const RamDiskReference::Name& reference) const { return reference.name; }
};

} // namespace

RamDiskReference RamDiskReference::parse(std::string_view text) {
    constexpr std::string_view devices = "/dev/";
    const auto bsdName = text.starts_with(devices) ? text.substr(devices.size()) : text;
    if (auto device = DeviceIdentifier::make(bsdName)) {
        return {Device{std::move(*device)}};
    }
    if (text.find('/') != std::string_view::npos || text == "." || text == "..") {
        return {MountPoint{std::filesystem::path(text)}};
    }
    return {Name{std::string(text)}};
}

std::string RamDiskReference::text() const {
    return std::visit(TextOf{}, value);
}

} // namespace ramdisk
