#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/DiskTemplate.h"

#include <cstddef>
#include <functional>
#include <vector>

namespace ramdisk {

/// Keeps the user's own templates.
///
/// Other processes work on the same list: it is read anew at every call, and only `update` changes it. A
/// crash during a change leaves either the old list or the new one.
class TemplateRepository : public Port {
public:
    using List = std::vector<DiskTemplate>;

    /// The stored list; empty when there is none or it cannot be read. Never waits for a change under way.
    [[nodiscard]] virtual List load() const = 0;

    /// How many stored entries are not understood, such as a newer version's. They are no part of the list,
    /// and are kept as they are.
    [[nodiscard]] virtual std::size_t notUnderstood() const { return 0; }
    /// @throws std::exception that names a list that is there but cannot be read.
    virtual void requireReadable() const = 0;

    /// Replaces the list by what `transform` makes of it, while nobody else can change it. What the transform
    /// throws is passed on, with nothing stored.
    /// @throws std::system_error when the list could not be stored.
    virtual void update(const std::function<List(List)>& transform) = 0;
};

} // namespace ramdisk
