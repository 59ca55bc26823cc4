#include "RamDiskCore/Startup/StartupOutcome.h"

namespace ramdisk {

namespace {

struct DiskOf {
    const RamDisk* operator()(const StartupOutcome::Failed&) const { return nullptr; }
    template <typename OneCase>
    const RamDisk* operator()(const OneCase& outcome) const {
        return &outcome.disk;
    }
};

} // namespace

const RamDisk* StartupOutcome::disk() const noexcept {
    return std::visit(DiskOf{}, value);
}

const std::string& StartupOutcome::name() const noexcept {
    const auto* failed = std::get_if<Failed>(&value);
    return failed != nullptr ? failed->profile.name : disk()->name;
}

bool StartupOutcome::needsAttention() const noexcept {
    return !std::holds_alternative<Created>(value) && !std::holds_alternative<AlreadyMounted>(value);
}

} // namespace ramdisk
