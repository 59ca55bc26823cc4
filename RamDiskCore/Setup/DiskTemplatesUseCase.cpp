#include "RamDiskCore/Setup/DiskTemplatesUseCase.h"

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>

namespace ramdisk {

namespace {

DiskTemplate builtIn(std::string_view identifier, std::string_view title, std::string_view diskName,
                     std::uint64_t gibibytes, RedirectTarget redirect) {
    RamDiskSetup setup;
    setup.specification.name = diskName;
    setup.specification.size = ByteCount::of(gibibytes, ByteCount::Unit::gibibyte);
    setup.createsAtLaunch = true;
    setup.redirects = {std::move(redirect)};
    return {UUID::parse(identifier).value(), title, std::move(setup)};
}

/// The first of these templates with the title.
std::optional<DiskTemplate> find(const std::vector<DiskTemplate>& templates, std::string_view title) {
    const auto found = std::find_if(templates.begin(), templates.end(), [title](const DiskTemplate& one) {
        return namesEqual(one.title(), title);
    });
    return found == templates.end() ? std::nullopt : std::optional(*found);
}

/// Refuses a title that cannot be shown as it is: nobody could type it, and a list cannot hold it.
void requireShowable(std::string_view title) {
    for (const auto character : graphemes(title)) {
        if (replacingInvalidUTF8(character) != character || replacingControls(character, "") != character) {
            throw RamDiskError(RamDiskError::InvalidSpecification{
                {{ValidationIssue::ForbiddenCharacter{std::string(character)}}}});
        }
    }
}

} // namespace

const std::vector<DiskTemplate>& builtInTemplates() {
    static const std::vector<DiskTemplate> templates{
        builtIn("6F1D2A8E-3C1B-4E4A-9D0B-5A6E2C7B0001", "Xcode", "DerivedData", 8,
                {RedirectTarget::XcodeDerivedData{}}),
        builtIn("6F1D2A8E-3C1B-4E4A-9D0B-5A6E2C7B0002", "npm", "npm", 2, {RedirectTarget::NpmCache{}})};
    return templates;
}

DiskTemplatesUseCase::DiskTemplatesUseCase(std::shared_ptr<TemplateRepository> repository,
                                           std::shared_ptr<ConfigureRamDiskUseCase> configure)
    : repository_(std::move(repository)),
      configure_(std::move(configure)) {}

std::vector<DiskTemplate> DiskTemplatesUseCase::templates() const {
    repository_->requireReadable();
    auto all = repository_->load();
    const auto& builtIn = builtInTemplates();
    all.insert(all.end(), builtIn.begin(), builtIn.end());
    return all;
}

DiskTemplate DiskTemplatesUseCase::named(std::string_view title) const {
    const auto all = templates();
    auto found = find(builtInTemplates(), title);
    if (!found) {
        found = find(all, title);
    }
    if (!found) {
        throw RamDiskError(RamDiskError::TemplateNotFound{std::string(trimmed(title))});
    }
    return *std::move(found);
}

DiskTemplatesUseCase::Saved DiskTemplatesUseCase::save(std::string_view title, const RamDisk& disk) {
    const auto name = trimmed(title);
    if (name.empty()) {
        throw RamDiskError(RamDiskError::TemplateNameMissing{});
    }
    requireShowable(name);
    if (const auto builtIn = find(builtInTemplates(), name)) {
        throw RamDiskError(RamDiskError::BuiltInTemplate{builtIn->title()});
    }
    repository_->requireReadable();
    Saved saved{DiskTemplate(UUID::random(), name, configure_->validSetup(disk)), false};
    const auto& fresh = saved.stored;
    repository_->update([&saved, &fresh](TemplateRepository::List list) {
        const auto former = std::find_if(list.begin(), list.end(), [&fresh](const DiskTemplate& other) {
            return namesEqual(other.title(), fresh.title());
        });
        saved.hasReplaced = former != list.end();
        if (!saved.hasReplaced) {
            list.push_back(fresh);
        } else {
            *former = fresh;
        }
        return list;
    });
    return saved;
}

DiskTemplate DiskTemplatesUseCase::remove(std::string_view title) {
    // The user's own come first.
    auto found = find(templates(), title);
    if (!found) {
        throw RamDiskError(RamDiskError::TemplateNotFound{std::string(trimmed(title))});
    }
    remove(found->id);
    return *std::move(found);
}

void DiskTemplatesUseCase::remove(const UUID& id) {
    for (const auto& one : builtInTemplates()) {
        if (one.id == id) {
            throw RamDiskError(RamDiskError::BuiltInTemplate{one.title()});
        }
    }
    repository_->update([&id](TemplateRepository::List list) {
        std::erase_if(list, [&id](const DiskTemplate& other) { return other.id == id; });
        return list;
    });
}

} // namespace ramdisk
