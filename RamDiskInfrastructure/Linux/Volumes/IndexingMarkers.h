#pragma once

#include "RamDiskCore/Ports/SearchIndexControlling.h"

#include <array>
#include <string_view>

namespace ramdisk {

/// Files in the root folder of a volume that keep search indexers and media scanners of desktops away.
inline constexpr std::array indexingMarkers{std::string_view{".trackerignore"}, std::string_view{".nomedia"}};

/// Switches search indexing by making or removing both marker files. One of them alone means nothing.
class MarkerFileIndexController final : public SearchIndexControlling {
public:
    void set(SearchIndexing indexing, const std::filesystem::path& volume) override;
    [[nodiscard]] std::optional<SearchIndexing> state(const std::filesystem::path& volume) override;
    [[nodiscard]] std::vector<std::string> plan(SearchIndexing indexing) const override;
};

} // namespace ramdisk
