#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Linux/LinuxPlatform.h"
#include "tests/support/Linux/TestMachine.h"

#include <regex>

namespace ramdisk::test {
namespace {

/// The use cases over a machine, with an observer that can still be changed.
struct Services {
    Services(const test::TestMachine& machine, HostRung rung)
        : context(std::make_shared<LinuxContext>(machine.host(rung))),
          services(makeLinuxServices(context)) {}

    std::shared_ptr<LinuxContext> context;
    RamDiskServices services;
};

/// One way of making a disk.
struct Way {
    const char* name;
    HostRung rung;
    FileSystem format;
    bool isEncrypted = false;
    VolumeAccess access = VolumeAccess::everyone;
};

RamDiskSpecification small(const std::string& name, const Way& way) {
    RamDiskSpecification specification;
    specification.name = name;
    specification.size = ByteCount::of(16, ByteCount::Unit::mebibyte);
    specification.fileSystem = way.format;
    specification.isEncrypted = way.isEncrypted;
    specification.access = way.access;
    return specification;
}

constexpr Way tmpfs{"KernelHFSPlus", HostRung::kernel, FileSystem::hfsPlus};

RamDiskSpecification small(const std::string& name) {
    return small(name, tmpfs);
}

std::string withoutUUIDs(const std::string& text) {
    static const std::regex uuid("[0-9A-F]{8}(-[0-9A-F]{4}){3}-[0-9A-F]{12}");
    return std::regex_replace(text, uuid, "UUID");
}

/// The steps that a creation performs.
std::vector<std::string> stepsOf(const test::TestMachine& machine, const Way& way) {
    std::vector<std::string> steps;
    Services real(machine, way.rung);
    real.context->observer = [&steps](std::string_view step) {
        steps.push_back(withoutUUIDs(std::string(step)));
    };
    const auto made = real.services.create->execute(small("Scratch", way)).ramDisk;
    real.services.eject->eject(made, Force::no);
    return steps;
}

class EveryStep : public testing::TestWithParam<Way> {
protected:
    void SetUp() override {
        if (GetParam().rung == HostRung::kernel) {
            SKIP_UNLESS_ROOT();
        }
    }
};
INSTANTIATE_TEST_SUITE_P(Ways, EveryStep,
                         testing::Values(tmpfs,
                                         Way{"KernelHFSPlusOnlyMe", HostRung::kernel, FileSystem::hfsPlus,
                                             false, VolumeAccess::onlyMe},
                                         Way{"KernelJournaled", HostRung::kernel,
                                             FileSystem::journaledHFSPlus},
                                         Way{"KernelAPFSEncrypted", HostRung::kernel, FileSystem::apfs, true},
                                         Way{"KernelAPFSXOnlyMe", HostRung::kernel,
                                             FileSystem::apfsCaseSensitive, false, VolumeAccess::onlyMe},
                                         Way{"FolderHFSPlus", HostRung::folder, FileSystem::hfsPlus}),
                         [](const auto& row) { return std::string(row.param.name); });

TEST_P(EveryStep, IsPlannedAsItIsPerformedAndPlanningDoesNothing) {
    const test::TestMachine machine;
    Services services(machine, GetParam().rung);
    bool wasObserved = false;
    services.context->observer = [&](std::string_view) { wasObserved = true; };
    std::vector<std::string> planned;
    for (const auto& step : services.services.create->plan(small("Scratch", GetParam())).steps) {
        // Indexing is switched off by the use case itself, whose failure there is only a warning.
        if (step.find(".nomedia") == std::string::npos) {
            planned.push_back(withoutUUIDs(step));
        }
    }
    EXPECT_FALSE(wasObserved);
    EXPECT_THAT(machine.traces(), IsEmpty());
    EXPECT_EQ(planned, stepsOf(machine, GetParam()));
}

TEST_P(EveryStep, ThatFailsLeavesNothingAndTellsItsOwnError) {
    const test::TestMachine machine;
    const auto count = stepsOf(machine, GetParam()).size();
    ASSERT_GE(count, 5U);
    for (std::size_t failing = 0; failing < count; ++failing) {
        Services services(machine, GetParam().rung);
        std::size_t step = 0;
        services.context->observer = [&](std::string_view) {
            machine.remember();
            if (step++ == failing) {
                throw std::runtime_error("step fails");
            }
        };
        try {
            services.services.create->execute(small("Scratch", GetParam()));
            ADD_FAILURE() << "step " << failing << " did not fail";
        } catch (const RamDiskError& error) {
            const bool isFirstOrLast = failing == 0 || failing + 1 == count;
            const RamDiskError allocation(RamDiskError::AllocationFailed{"step fails"});
            const RamDiskError formatting(RamDiskError::FormattingFailed{"step fails"});
            EXPECT_EQ(error, isFirstOrLast ? allocation : formatting) << failing;
        }
        EXPECT_EQ(step, failing + 1) << "steps went on after the failure";
        EXPECT_THAT(machine.traces(), IsEmpty()) << failing;
    }
}

TEST_P(EveryStep, ThatIsKilledLeavesNothingAfterTheNextListing) {
    const test::TestMachine machine;
    const auto count = stepsOf(machine, GetParam()).size();
    for (std::size_t killed = 0; killed < count; ++killed) {
        Services services(machine, GetParam().rung);
        std::size_t step = 0;
        services.context->observer = [&](std::string_view) {
            if (step++ == killed) {
                raise(SIGKILL);
            }
        };
        ASSERT_EQ(test::inChild(geteuid(),
                                [&] {
                                    services.services.create->execute(small("Scratch", GetParam()));
                                    return 0;
                                }),
                  128 + SIGKILL);
        machine.remember();
        // The name is free at once, whether or not anybody listed first.
        Services next(machine, GetParam().rung);
        const auto made = next.services.create->execute(small("Scratch", GetParam())).ramDisk;
        EXPECT_EQ(made.mountPoint->filename(), "Scratch") << killed;
        next.services.eject->eject(made, Force::no);
        EXPECT_THAT(next.services.list->list(), IsEmpty()) << killed;
        EXPECT_THAT(machine.traces(), IsEmpty()) << killed;
    }
}

TEST_P(EveryStep, OfAnAbandonedDiskThatSomebodyUsesIsKept) {
    const test::TestMachine machine;
    const auto count = stepsOf(machine, GetParam()).size();
    Services services(machine, GetParam().rung);
    std::size_t step = 0;
    const auto host = services.context->host;
    services.context->observer = [&](std::string_view) {
        if (++step < count) {
            return;
        }
        const auto records = DiskRecordStore(host.records).readAll();
        test::writeFile(records.at(0).mountPoint / "mine", "precious");
        raise(SIGKILL);
    };
    ASSERT_EQ(test::inChild(geteuid(),
                            [&] { return services.services.create->execute(small("Found", GetParam())), 0; }),
              128 + SIGKILL);
    const auto disks = Services(machine, GetParam().rung).services.list->list();
    ASSERT_EQ(disks.size(), 1U);
    EXPECT_EQ(test::readFile(*disks[0].mountPoint / "mine"), "precious");
    Services(machine, GetParam().rung).services.eject->eject(disks[0], Force::no);
    EXPECT_THAT(machine.traces(), IsEmpty());
}

TEST(MountFolder, WhatStandsInTheWayIsLeftAlone) {
    SKIP_UNLESS_ROOT();
    const test::TestMachine machine;
    namespace fs = std::filesystem;
    fs::create_directories(machine.media() / "Empty");
    fs::create_directories(machine.media() / "Full");
    test::writeFile(machine.media() / "Full/file", "theirs");
    test::writeFile(machine.media() / "File", "theirs");
    fs::create_symlink("/", machine.media() / "Link");
    for (const std::string name : {"Empty", "Full", "File", "Link"}) {
        // Once made and ejected, and once failing at each step.
        for (std::size_t failing = 1; failing <= 8; ++failing) {
            Services services(machine, HostRung::kernel);
            std::size_t step = 0;
            services.context->observer = [&](std::string_view) {
                if (++step == failing) {
                    throw std::runtime_error("step fails");
                }
            };
            try {
                const auto made = services.services.create->execute(small(name)).ramDisk;
                EXPECT_EQ(made.mountPoint, machine.media() / (name + " 2"));
                EXPECT_EQ(made.name, name);
                services.services.eject->eject(made, Force::no);
            } catch (const RamDiskError&) {
                EXPECT_LT(failing, 8U);
            }
            EXPECT_EQ(std::distance(fs::directory_iterator(machine.media()), {}), 4) << name << failing;
        }
        EXPECT_TRUE(fs::exists(fs::symlink_status(machine.media() / name))) << name;
    }
    EXPECT_EQ(test::readFile(machine.media() / "Full/file"), "theirs");
}

TEST(MountFolder, OurOwnLeftoverOfAPowerCutIsUsedAgain) {
    SKIP_UNLESS_ROOT();
    const test::TestMachine machine;
    Services services(machine, HostRung::kernel);
    const auto first = services.services.create->execute(small("Scratch")).ramDisk;
    // As after a power cut: the mount and the records are gone, the folder on the system disk is not.
    ASSERT_EQ(umount2(first.mountPoint->c_str(), 0), 0);
    std::filesystem::remove_all(machine.records());
    ASSERT_TRUE(std::filesystem::exists(*first.mountPoint));
    const auto second = services.services.create->execute(small("Scratch")).ramDisk;
    EXPECT_EQ(second.mountPoint, first.mountPoint);
    services.services.eject->eject(second, Force::no);
    EXPECT_THAT(machine.traces(), IsEmpty());
}

TEST(Eject, SparesANewerDiskOnTheSameDevice) {
    SKIP_UNLESS_ROOT();
    const test::TestMachine machine;
    Services services(machine, HostRung::kernel);
    const auto old = services.services.create->execute(small("Old")).ramDisk;
    services.services.eject->eject(old, Force::no);
    const auto newer = services.services.create->execute(small("Old")).ramDisk;
    ASSERT_EQ(newer.device, old.device);
    EXPECT_THROW(services.services.eject->eject(old, Force::yes), RamDiskError);
    EXPECT_EQ(services.services.list->list(), std::vector{newer});
    services.services.eject->eject(newer, Force::no);
}

} // namespace
} // namespace ramdisk::test
