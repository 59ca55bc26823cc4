#pragma once

#include "RamDiskInfrastructure/Linux/Host/LinuxHost.h"
#include "RamDiskInfrastructure/Redirects/FolderMounting.h"

namespace ramdisk {

/// Bind mounts, made and taken away by descriptors: no path is looked up twice.
class BindMounting final : public FolderMounting {
public:
    explicit BindMounting(LinuxHost host) : host_(std::move(host)) {}

    [[nodiscard]] bool isAllowed() const override;
    void mount(const FileDescriptor& folder, const FileDescriptor& target,
               const std::filesystem::path& place) override;
    [[nodiscard]] std::vector<Mounted> list() const override;
    [[nodiscard]] std::optional<std::string> mountedIn(const std::filesystem::path& folder) const override;
    void unmount(const FileDescriptor& parent, const std::filesystem::path& place, Force force) override;

private:
    LinuxHost host_;
};

} // namespace ramdisk
