#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "tests/support/Linux/TestMachine.h"

#include <linux/fs.h>
#include <sys/ioctl.h>

namespace ramdisk::test {

inline constexpr std::uint64_t mebibyte = std::uint64_t{1} << 20U;

/// One way in which a disk comes to be, and who runs the tool.
struct DiskKind {
    enum class Means { tmpfs, loop, folder };
    const char* name;
    Means means;
    uid_t user = 0;

    [[nodiscard]] bool isMounted() const { return means != Means::folder; }
};

inline constexpr DiskKind tmpfsKind{"Tmpfs", DiskKind::Means::tmpfs};
inline constexpr DiskKind loopKind{"Loop", DiskKind::Means::loop};
inline constexpr DiskKind folderKind{"Folder", DiskKind::Means::folder};
inline constexpr DiskKind folderOfAUserKind{"FolderOfAUser", DiskKind::Means::folder, nobody};

/// A machine on which every disk is of one kind.
class Disks : public testing::TestWithParam<DiskKind> {
public:
    static std::string nameOf(const testing::TestParamInfo<DiskKind>& row) { return row.param.name; }

protected:
    void SetUp() override {
        SKIP_UNLESS_ROOT();
        machine.emplace(kind.user);
        if (!kind.isMounted()) {
            machine->environment["TRAMDISK_HOST"] = "folder";
        }
    }

    [[nodiscard]] std::vector<std::string> options() const {
        return {"--size", "16M", "--format", kind.means == DiskKind::Means::loop ? "jhfs+" : "hfs+"};
    }
    nlohmann::json create(const std::string& name) const { return machine->create(name, options()); }
    /// A command that makes a disk.
    [[nodiscard]] std::vector<std::string> creation(const std::string& name) const {
        std::vector<std::string> arguments{"create", "--name", name};
        const auto more = options();
        arguments.insert(arguments.end(), more.begin(), more.end());
        return arguments;
    }
    void eject(const std::string& reference) const {
        const auto outcome = machine->run({"eject", reference});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
    }
    void expectNoTraces() const { EXPECT_THAT(machine->traces(), testing::IsEmpty()); }

    DiskKind kind = GetParam();
    std::optional<TestMachine> machine;
};

inline std::filesystem::path mountPointOf(const nlohmann::json& disk) {
    return disk.at("mountPoint").get<std::string>();
}

/// A file held open, on a disk.
inline FileDescriptor openFile(const nlohmann::json& disk) {
    return FileDescriptor(open((mountPointOf(disk) / "open").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644));
}

/// What the file system of a mounted disk calls itself.
inline std::string labelOf(const std::filesystem::path& mountPoint) {
    std::array<char, FSLABEL_MAX> label{};
    const FileDescriptor root(open(mountPoint.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    ioctl(root.get(), FS_IOC_GETFSLABEL, label.data());
    return label.data();
}

} // namespace ramdisk::test
