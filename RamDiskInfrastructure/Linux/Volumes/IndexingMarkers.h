#pragma once

#include "RamDiskCore/Ports/SearchIndexControlling.h"

#include <array>
#include <string_view>

namespace ramdisk {

/// Files on the root of a volume that keep the desktops' search indexers and media scanners off it.
inline constexpr std::array indexingMarkers{std::string_view{".trackerignore"}, std::string_view{".nomedia"}};

/// Switches search indexing by the presence of both marker files; one of them alone tells nothing.
class MarkerFileIndexController final : public SearchIndexControlling {
public:
    void set(SearchIndexing indexing, const std::filesystem::path& volume) override;
    [[nodiscard]] std::optional<SearchIndexing> state(const std::filesystem::path& volume) override;
    [[nodiscard]] std::vector<std::string> plan(SearchIndexing indexing) const override;
};

} // namespace ramdisk
