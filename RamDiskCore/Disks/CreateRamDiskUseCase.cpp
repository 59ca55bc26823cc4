#include "RamDiskCore/Disks/CreateRamDiskUseCase.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskCore/Values/ReasonText.h"
#include "RamDiskCore/Values/Text.h"

#include <algorithm>
#include <iterator>

namespace ramdisk {

namespace {

/// Does one step of a creation. Whatever it throws leaves as one of our errors, of the step's own case.
template <typename Case, typename Step>
auto failingAs(const Step& step) {
    try {
        return step();
    } catch (const RamDiskError&) {
        throw;
    } catch (const std::exception& error) {
        throw RamDiskError(Case{error.what()});
    }
}

} // namespace

CreateRamDiskUseCase::CreateRamDiskUseCase(Ports ports) : ports_(std::move(ports)) {}

CreateRamDiskResult CreateRamDiskUseCase::execute(RamDiskSpecification specification, Purpose purpose) {
    auto warnings = requireValid(specification, purpose);
    failingAs<RamDiskError::FormattingFailed>([&] { ports_.formatter->prepare(specification); });
    VolumeProtection protection;
    const auto device = failingAs<RamDiskError::AllocationFailed>([&] {
        if (specification.isEncrypted) {
            protection.value = VolumeProtection::Encrypted{ports_.passphrases->generate()};
        }
        return ports_.allocator->allocate(specification.size);
    });
    try {
        return fill(device, specification, protection, std::move(warnings));
    } catch (...) {
        try {
            ports_.allocator->release(device, Force::yes);
        } catch (...) {
            // The step's own error is what the user must see; the next listing retries this clean-up.
            traceCaught("create", "the half-made disk could not be taken away; the next listing tries again");
        }
        throw;
    }
}

CreateRamDiskUseCase::Plan CreateRamDiskUseCase::plan(RamDiskSpecification specification) const {
    Plan plan{requireValid(specification, Purpose::requested), {}};
    auto append = [&steps = plan.steps](std::vector<std::string> more) {
        std::move(more.begin(), more.end(), std::back_inserter(steps));
    };
    append(ports_.formatter->planPreparation(specification));
    append(ports_.allocator->plan(specification.size));
    append(ports_.formatter->plan(specification));
    if (!specification.isIndexingEnabled) {
        append(ports_.indexing->plan(SearchIndexing::off));
    }
    append(ports_.allocator->planSettling());
    return plan;
}

void CreateRamDiskUseCase::requireSupport(const RamDiskSpecification& specification) const {
    failingAs<RamDiskError::FormattingFailed>([&] { ports_.formatter->requireSupport(specification); });
}

std::vector<CreationWarning> CreateRamDiskUseCase::requireValid(RamDiskSpecification& specification,
                                                                Purpose purpose) const {
    specification.name = std::string(trimmed(specification.name));
    auto context =
        failingAs<RamDiskError::AllocationFailed>([this] { return ports_.contextProvider.current(); });
    if (purpose == Purpose::startupDisk) {
        context.startupDiskNames.clear();
    }
    const auto report = ports_.validator.validate(specification, context);
    if (!report.isValid()) {
        throw RamDiskError(RamDiskError::InvalidSpecification{report.errors()});
    }
    requireSupport(specification);
    std::vector<CreationWarning> warnings;
    for (const auto& issue : report.warnings()) {
        warnings.push_back({CreationWarning::Validation{issue}});
    }
    return warnings;
}

CreateRamDiskResult CreateRamDiskUseCase::fill(const DeviceIdentifier& device,
                                               const RamDiskSpecification& specification,
                                               const VolumeProtection& protection,
                                               std::vector<CreationWarning> warnings) {
    const auto volume = failingAs<RamDiskError::FormattingFailed>(
        [&] { return ports_.formatter->format(device, specification, protection); });
    if (!specification.isIndexingEnabled) {
        try {
            ports_.indexing->set(SearchIndexing::off, volume);
        } catch (const std::exception& error) {
            warnings.push_back({CreationWarning::IndexingNotDisabled{reasonText(error)}});
        }
    }
    const auto disks =
        failingAs<RamDiskError::InventoryUnavailable>([this] { return ports_.inventory->list(); });
    const auto made =
        std::find_if(disks.begin(), disks.end(), [&device](const RamDisk& disk) { return disk.has(device); });
    if (made == disks.end()) {
        throw RamDiskError(RamDiskError::NotFound{RamDiskReference{RamDiskReference::Device{device}}});
    }
    failingAs<RamDiskError::AllocationFailed>([&] { ports_.allocator->settle(device); });
    return {*made, std::move(warnings)};
}

} // namespace ramdisk
