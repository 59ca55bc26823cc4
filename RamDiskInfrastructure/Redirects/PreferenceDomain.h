#pragma once

#include "RamDiskCore/Ports/UserDefaultsStoring.h"

#include <memory>
#include <optional>
#include <string>
#include <utility>

namespace ramdisk {

/// The texts in another application's user defaults.
class PreferenceDomain {
public:
    explicit PreferenceDomain(std::shared_ptr<UserDefaultsStoring> defaults)
        : defaults_(std::move(defaults)) {}

    /// Absent when the key is not set.
    /// @throws std::runtime_error when it holds something other than a text, which could not be restored.
    [[nodiscard]] std::optional<std::string> text(const std::string& key) const;

    /// Sets the key, or removes it.
    /// @throws std::exception with nothing changed.
    void set(const std::string& key, const std::optional<std::string>& text);

private:
    std::shared_ptr<UserDefaultsStoring> defaults_;
};

} // namespace ramdisk
