#pragma once

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Stores/LockedFile.h"
#include "RamDiskInfrastructure/Stores/RecordJSON.h"
#include "RamDiskInfrastructure/Stores/UserDefaultsJSONList.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <utility>
#include <vector>

namespace ramdisk {

/// A list of records in one JSON file that several processes change.
///
/// Nothing is kept in memory: every call reads the file again. Readers take no lock, since the file is only
/// replaced as a whole. Changes are made one after the other under the lock. If a process is killed at any
/// point, or the power fails, the list is either as before the change or as after it. A file that is no JSON
/// array counts as an empty list. The next change sets it aside and never overwrites it. An entry that is
/// not understood is no part of the list, and every change keeps it as it is, in its place. Until there is a
/// file, the list is the legacy one, if one is given.
template <typename Element>
class LockedJSONFile {
public:
    using List = std::vector<Element>;

    LockedJSONFile(LockedFile file, std::optional<UserDefaultsJSONList> legacy = std::nullopt)
        : file_(std::move(file)),
          legacy_(std::move(legacy)) {}

    [[nodiscard]] const FileLock& lock() const noexcept { return file_.lock(); }

    /// The list, empty when it cannot be read. Takes no lock.
    [[nodiscard]] List load() const { return read().list.entries; }

    /// How many entries are not understood.
    [[nodiscard]] std::size_t notUnderstood() const { return read().list.foreign.size(); }

    /// False when there is a file that cannot be read or does not decode.
    [[nodiscard]] bool isReadable() const { return read().former == FormerContent::readable; }

    /// @throws std::runtime_error that names such a file.
    void requireReadable() const {
        if (!isReadable()) {
            throw file_.unreadable();
        }
    }

    /// Replaces the list by what `transform` makes of it, holding the lock. If the transform throws, nothing
    /// is written and the exception is passed on.
    /// @throws std::system_error with the former list in its place.
    void update(const std::function<List(List)>& transform) const {
        const auto hold = file_.lock().acquire();
        file_.clearUp();
        migrateIfNeeded();
        auto current = read();
        const auto list = transform(std::move(current.list.entries));
        file_.replace(encodeList(list, current.list.foreign), current.former);
    }

    /// Replaces the list without taking the lock, for a caller that holds it.
    /// @throws std::system_error with the former list in its place.
    void write(const List& list) const {
        const auto current = read();
        file_.replace(encodeList(list, current.list.foreign), current.former);
    }

    /// Removes the unfinished changes of killed processes. Every `update` does this too.
    void clearUp() const noexcept { file_.clearUp(); }

    /// Moves the legacy list into the file if there is no file yet. The caller holds the lock.
    /// @throws std::exception when the list could not be written; it stays where it was.
    void migrateIfNeeded() const {
        if (!legacy_ || file_.exists()) {
            return;
        }
        if (const auto list = legacyList(); !list.entries.empty() || !list.foreign.empty()) {
            file_.replace(encodeList(list.entries, list.foreign), FormerContent::readable);
        }
        legacy_->remove();
    }

private:
    struct Content {
        StoredList<Element> list;
        FormerContent former;
    };

    [[nodiscard]] Content read() const {
        if (const auto text = file_.read()) {
            auto list = decodeEntries<Element>(*text);
            if (!list) {
                trace("stores", "{} does not decode and counts as empty", file_.file().native());
            }
            return list ? Content{std::move(*list), FormerContent::readable}
                        : Content{{}, FormerContent::unreadable};
        }
        // A file that exists but cannot be read may be intact, and is worth as much as a damaged one.
        return {legacyList(), file_.exists() ? FormerContent::unreadable : FormerContent::readable};
    }

    [[nodiscard]] StoredList<Element> legacyList() const {
        const auto text = legacy_ ? legacy_->text() : std::nullopt;
        auto list = text ? decodeEntries<Element>(*text) : std::nullopt;
        return list ? std::move(*list) : StoredList<Element>{};
    }

    LockedFile file_;
    std::optional<UserDefaultsJSONList> legacy_;
};

} // namespace ramdisk
