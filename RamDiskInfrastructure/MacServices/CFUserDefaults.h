#pragma once

#include "RamDiskCore/Ports/UserDefaultsStoring.h"

#include <string>

namespace ramdisk {

/// The user defaults of an application, this one's or another's, as the system keeps them. If several
/// processes make changes, the system applies one after the other. Its own daemon writes them down.
class CFUserDefaults final : public UserDefaultsStoring {
public:
    /// @param domain an application's identifier, such as "com.apple.dt.Xcode".
    explicit CFUserDefaults(std::string domain);

    [[nodiscard]] std::map<std::string, DefaultsValue> values() const override;
    [[nodiscard]] std::optional<DefaultsValue> value(const std::string& key) const override;
    void apply(const DefaultsChanges& changes) override;

private:
    std::string domain_;
};

} // namespace ramdisk
