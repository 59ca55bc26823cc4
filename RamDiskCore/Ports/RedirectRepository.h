#pragma once

#include "RamDiskCore/Ports/Port.h"
#include "RamDiskCore/Values/FolderRedirect.h"

#include <cstddef>
#include <functional>
#include <future>
#include <vector>

namespace ramdisk {

/// Keeps the folder redirects.
///
/// Putting a redirect in place takes several steps, each recorded before the next one, so that a crash at any
/// point can be undone from the list. That is why a change is not one transform but a whole piece of work.
class RedirectRepository : public Port {
public:
    using List = std::vector<FolderRedirect>;

    /// The stored list; empty when there is none or it cannot be read. Never waits for a change under way.
    [[nodiscard]] virtual List load() const = 0;

    /// False when there is a list that cannot be read. It counts as empty, and the next `save` sets it aside.
    [[nodiscard]] virtual bool isReadable() const { return true; }

    /// How many stored entries are not understood, such as a newer version's. They are no part of the list,
    /// and are kept as they are.
    [[nodiscard]] virtual std::size_t notUnderstood() const { return 0; }

    /// Replaces the stored list. Called inside the body of an `update`, as often as there are steps to
    /// record.
    /// @throws std::system_error when the list could not be stored; the old one stands.
    virtual void save(const List& list) = 0;

    /// Runs `body` when nobody else is at work on the list, without holding a thread until then. The future
    /// ends when the list is free again, and holds what the body threw. The body does not wait for the future
    /// of another update.
    [[nodiscard]] virtual std::future<void> update(std::function<void()> body) = 0;
};

} // namespace ramdisk
