#pragma once

#include "RamDiskCore/Ports/TemplateRepository.h"
#include "RamDiskCore/Setup/ConfigureRamDiskUseCase.h"
#include "RamDiskCore/Values/DiskTemplate.h"

#include <memory>
#include <string_view>
#include <vector>

namespace ramdisk {

/// The templates that come with the system, by fixed identifiers; they are always there and never stored.
[[nodiscard]] const std::vector<DiskTemplate>& builtInTemplates();

/// Lists templates, saves disks as new ones and removes the user's own.
class DiskTemplatesUseCase {
public:
    DiskTemplatesUseCase(std::shared_ptr<TemplateRepository> repository,
                         std::shared_ptr<ConfigureRamDiskUseCase> configure);

    /// The user's own, in the order in which they were first saved, then those built in.
    [[nodiscard]] std::vector<DiskTemplate> templates() const;

    /// How many stored entries this version does not understand; they are kept as they are.
    [[nodiscard]] std::size_t notUnderstood() const { return repository_->notUnderstood(); }

    /// The template with this title, whatever its case and accents. A built-in one hides the user's own of
    /// the same title, which an earlier version may have stored.
    /// @throws RamDiskError `templateNotFound`
    [[nodiscard]] DiskTemplate named(std::string_view title) const;

    struct Saved {
        DiskTemplate stored;
        /// Whether a template of the same title made way for it.
        bool hasReplaced;
    };

    /// Saves how the disk is set up now. A template of the user's with the same title is replaced.
    /// @throws RamDiskError `templateNameMissing`; `invalidSpecification` when the title has a character that
    ///         cannot be shown and so not be typed after what is shown; `builtInTemplate` when a built-in
    ///         template has the title, since the new one could never be reached; as
    ///         `ConfigureRamDiskUseCase::validSetup`; std::system_error when it could not be stored.
    Saved save(std::string_view title, const RamDisk& disk);

    /// @throws RamDiskError `builtInTemplate`; std::system_error. It is no failure when there is no such
    ///         template.
    void remove(const UUID& id);

    /// The same by title. Of the user's own and a built-in one with the same title, the user's goes.
    /// @returns what is removed.
    /// @throws RamDiskError `templateNotFound` as well
    DiskTemplate remove(std::string_view title);

private:
    std::shared_ptr<TemplateRepository> repository_;
    std::shared_ptr<ConfigureRamDiskUseCase> configure_;
};

} // namespace ramdisk
