#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/ByteCount.h"
#include "RamDiskCore/Values/DeviceIdentifier.h"

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// Whether open files may stop an eject.
enum class Force { no, yes };

/// What is still true after a device was released.
struct ReleaseOutcome {
    /// Memory that the device keeps until the programs that have its files open close them. Absent when all
    /// of it is back.
    std::optional<ByteCount> stillHeld;
    /// Those programs, as a message names them; empty when none could be seen.
    std::vector<std::string> holders;

    friend bool operator==(const ReleaseOutcome&, const ReleaseOutcome&) = default;
};

/// Hands out memory-backed devices and takes them back.
///
/// A device lives from a successful `allocate` until `release`. Two callers never get the same device. Until
/// `settle` it belongs to the process that allocated it: should that process die, the next listing removes
/// it. From `settle` on it outlives every process.
class RamDeviceAllocating : public Port {
public:
    /// A device of at least `size` bytes, rounded up to whole 512-byte sectors, not yet formatted.
    /// @throws RamDiskError `allocationFailed`, with nothing allocated.
    [[nodiscard]] virtual DeviceIdentifier allocate(ByteCount size) = 0;

    /// Declares the device complete. Where the operating system has no notion of an incomplete device, this
    /// does nothing.
    /// @throws RamDiskError `allocationFailed`; the device is then still the caller's to release.
    virtual void settle(const DeviceIdentifier& device);

    /// Gives the memory back. With `Force::yes` open files do not stop it. Where `attachment` is given, a
    /// device of the same name but of another attachment is left alone.
    /// @throws RamDiskError `ejectFailed` while the device is still attached, `notFound` when it was gone
    /// already.
    virtual ReleaseOutcome release(const DeviceIdentifier& device, Force force,
                                   std::optional<std::uint64_t> attachment = std::nullopt) = 0;

    /// What `allocate` would do, one step a line, for a user who asks before it is done.
    [[nodiscard]] virtual std::vector<std::string> plan(ByteCount size) const = 0;

    /// The same for `settle`; nothing where that does nothing.
    [[nodiscard]] virtual std::vector<std::string> planSettling() const { return {}; }
};

/// How many 512-byte sectors hold `size`.
[[nodiscard]] constexpr std::uint64_t sectorCount(ByteCount size) {
    return size.bytes / 512 + (size.bytes % 512 == 0 ? 0 : 1);
}

} // namespace ramdisk
