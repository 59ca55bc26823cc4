#pragma once

#include "RamDiskCore/Values/DiskTemplate.h"
#include "RamDiskCore/Values/FolderRedirect.h"
#include "RamDiskCore/Values/RamDiskProfile.h"
#include "RamDiskInfrastructure/Stores/ValueJSON.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The stored records as JSON, their fields in their order.
namespace ramdisk {

[[nodiscard]] Json toJSON(const RamDiskProfile& value);
[[nodiscard]] Json toJSON(const RamDiskSetup& value);
[[nodiscard]] Json toJSON(const DiskTemplate& value);
[[nodiscard]] Json toJSON(const RedirectTarget& value);
[[nodiscard]] Json toJSON(const RedirectRestoreState& value);
[[nodiscard]] Json toJSON(const FolderRedirect& value);

/// Each throws a DecodingError when a required field is missing or invalid. Unknown fields are skipped, since
/// a newer version may have written them.
[[nodiscard]] ByteCount byteCountFrom(const Json& json);
[[nodiscard]] RamDiskSpecification specificationFrom(const Json& json);
[[nodiscard]] RamDiskProfile profileFrom(const Json& json);
[[nodiscard]] RamDiskSetup setupFrom(const Json& json);
[[nodiscard]] DiskTemplate templateFrom(const Json& json);
[[nodiscard]] RedirectTarget redirectTargetFrom(const Json& json);
[[nodiscard]] RedirectRestoreState restoreStateFrom(const Json& json);
[[nodiscard]] FolderRedirect redirectFrom(const Json& json);

/// An entry of a stored list that this version does not understand, such as one of a newer version's. It is
/// kept byte for byte.
struct ForeignEntry {
    std::string text;
    /// The entries before it that are understood, the nearest first: they tell its place.
    std::vector<UUID> after;
};

/// A stored list, entry by entry.
template <typename Element>
struct StoredList {
    std::vector<Element> entries;
    std::vector<ForeignEntry> foreign;
};

/// A stored list: one compact array, with foreign entries where they were.
/// @throws std::invalid_argument when a text is not UTF-8, which JSON cannot hold.
template <typename Element>
[[nodiscard]] std::string encodeList(const std::vector<Element>& list,
                                     const std::vector<ForeignEntry>& foreign = {});

/// Absent when the text is no array.
template <typename Element>
[[nodiscard]] std::optional<StoredList<Element>> decodeEntries(std::string_view text);

/// Absent when the text is not such an array, or one of its entries does not decode.
template <typename Element>
[[nodiscard]] std::optional<std::vector<Element>> decodeList(std::string_view text);

} // namespace ramdisk
