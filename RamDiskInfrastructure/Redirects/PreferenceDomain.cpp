#include "RamDiskInfrastructure/Redirects/PreferenceDomain.h"

#include <stdexcept>

namespace ramdisk {

std::optional<std::string> PreferenceDomain::text(const std::string& key) const {
    const auto value = defaults_->value(key);
    if (!value) {
        return std::nullopt;
    }
    if (const auto* const text = value->as<std::string>()) {
        return *text;
    }
    throw std::runtime_error("The preference “" + key + "” holds no text.");
}

void PreferenceDomain::set(const std::string& key, const std::optional<std::string>& text) {
    defaults_->apply({{key, text ? std::optional(DefaultsValue{*text}) : std::nullopt}});
}

} // namespace ramdisk
