#pragma once

#include "RamDiskCore/Values/RamDiskSetup.h"
#include "RamDiskCore/Values/UUID.h"

#include <string>
#include <string_view>

namespace ramdisk {

/// A named set-up for new disks. The title never has white space around it.
class DiskTemplate {
public:
    DiskTemplate(const UUID& identifier, std::string_view title, RamDiskSetup aSetup);

    UUID id;
    RamDiskSetup setup;

    [[nodiscard]] const std::string& title() const noexcept { return title_; }
    /// Stores `title` trimmed of white space and line breaks.
    void setTitle(std::string_view title);

    /// What to type in a terminal to make a disk of this template.
    [[nodiscard]] std::string commandLine() const;

    friend bool operator==(const DiskTemplate&, const DiskTemplate&) = default;

private:
    std::string title_;
};

} // namespace ramdisk
