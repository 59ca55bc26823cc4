#pragma once

#include "RamDiskCore/Ports/DiskOrderStoring.h"
#include "RamDiskCore/Ports/UserDefaultsStoring.h"

#include <memory>

namespace ramdisk {

/// Keeps the order of the disks in the user defaults, as an array of texts under "diskOrder".
class UserDefaultsDiskOrderStore final : public DiskOrderStoring {
public:
    explicit UserDefaultsDiskOrderStore(std::shared_ptr<UserDefaultsStoring> defaults);

    [[nodiscard]] DiskOrder read() const override;
    void write(const DiskOrder& order) override;

private:
    std::shared_ptr<UserDefaultsStoring> defaults_;
};

} // namespace ramdisk
