#pragma once

#include "RamDiskCore/Ports/UserDefaultsStoring.h"
#include "RamDiskInfrastructure/Stores/LockedFile.h"

#include <nlohmann/json_fwd.hpp>

#include <filesystem>
#include <string>

namespace ramdisk {

/// User defaults for platforms that have none. Each domain is one JSON object in a file, which is changed
/// under its lock.
///
/// Changes are atomic and durable, like those of the stored lists. A file that is not a JSON object counts as
/// empty, and the next change sets it aside. Values that this system cannot read, such as null, stay in the
/// file and count as not set.
class JSONUserDefaults final : public UserDefaultsStoring {
public:
    /// The file is DOMAIN.json in `folder`, beside DOMAIN.lock.
    JSONUserDefaults(const std::filesystem::path& folder, const std::string& domain);

    [[nodiscard]] std::map<std::string, DefaultsValue> values() const override;
    [[nodiscard]] std::optional<DefaultsValue> value(const std::string& key) const override;
    void requireReadable() const override;
    void apply(const DefaultsChanges& changes) override;

private:
    LockedFile file_;
};

} // namespace ramdisk
