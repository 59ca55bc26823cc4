#pragma once

#include "RamDiskCore/Ports/Port.h"

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk {

/// Whether the desktop's search index reads a volume.
enum class SearchIndexing { off, on };

/// Switches search indexing of a mounted volume.
class SearchIndexControlling : public Port {
public:
    /// @throws the underlying error; its text is fit for a user.
    virtual void set(SearchIndexing indexing, const std::filesystem::path& volume) = 0;

    /// Absent when the state cannot be told.
    /// @throws the underlying error when it could not be asked for.
    [[nodiscard]] virtual std::optional<SearchIndexing> state(const std::filesystem::path& volume) = 0;

    /// What `set` would do, one step a line.
    [[nodiscard]] virtual std::vector<std::string> plan(SearchIndexing indexing) const = 0;
};

} // namespace ramdisk
