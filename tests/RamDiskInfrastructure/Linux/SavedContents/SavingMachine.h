#pragma once

#include "RamDiskCore/Values/RamDiskError.h"
#include "RamDiskInfrastructure/Archive/SavedCopyNames.h"
#include "RamDiskInfrastructure/Commands/ProcessCommandRunner.h"
#include "RamDiskInfrastructure/Linux/Host/SmallFile.h"
#include "RamDiskInfrastructure/Linux/Mounting/LoopDevice.h"
#include "RamDiskInfrastructure/Linux/SavedContents/LoopImageTool.h"
#include "RamDiskInfrastructure/Trees/TreeManifest.h"
#include "tests/support/Linux/TestMachine.h"

namespace ramdisk::test {

/// A machine with disks, and a folder on its system disk in which their files are kept.
struct SavingMachine {
    TestMachine machine;
    std::filesystem::path images = machine.folder() / "images";
    SavedCopyFiles files{images / "A.sparseimage"};
    VolumeProtection protection{};
    LoopImageTool tool{machine.host(HostRung::kernel), std::make_shared<ProcessCommandRunner>()};

    SavingMachine() { std::filesystem::create_directory(images); }

    /// Makes a disk.
    RamDisk disk(const std::string& name, const std::string& format = "hfs+",
                 const std::string& size = "32M") const {
        const auto outcome =
            machine.run({"create", "--json", "--name=" + name, "--format", format, "--size", size});
        EXPECT_EQ(outcome.status, 0) << outcome.err;
        const auto made = outcome.json().at("ramDisk");
        return {.device = DeviceIdentifier::wholeDisk(1),
                .name = name,
                .capacity = ByteCount::parse(size, ByteCount::Unit::byte),
                .mountPoint = made.at("mountPoint").get<std::string>(),
                .instance = UUID::parse(made.at("instance").get<std::string>())};
    }

    [[nodiscard]] SaveRequest request(const RamDisk& disk) const {
        return {.disk = disk, .files = files, .protection = protection};
    }

    /// Saves in one round and puts the new image in the latest's place, whose file is retired.
    void save(const RamDisk& disk) {
        const auto wanted = request(disk);
        const auto source = tool.openSource(wanted);
        const auto partial = SavedCopyNames{files}.partial();
        const auto image = source->begin(partial, wanted);
        image->fill({});
        EXPECT_EQ(source->takeStatus({}), SaveSource::Status::unchanged);
        image->close();
        tool.retire(files.latest, files);
        std::filesystem::rename(partial, files.latest);
    }

    SavedImageTool::Closing restore(const RamDisk& disk, RestoreMode mode = RestoreMode::fill) {
        return tool.restore({files.latest, files, disk, protection, mode}, {});
    }

    [[nodiscard]] bool isUpToDate(const RamDisk& disk) {
        const auto source = tool.openSource(request(disk));
        return source->isUpToDate(request(disk));
    }

    /// The first difference between the trees on two disks.
    [[nodiscard]] static std::string difference(const RamDisk& one, const RamDisk& other) {
        const auto scan = [](const RamDisk& disk) {
            return TreeManifest::scan(requireFolder(*disk.mountPoint / "tree"), {});
        };
        return scan(one).firstDifference(scan(other)).value_or("");
    }

    /// The loop devices that files in `folder` lie behind.
    [[nodiscard]] std::vector<std::string> loopsUpon(const std::filesystem::path& folder) const {
        std::vector<std::string> found;
        for (const auto& [number, path] : LoopDevices{"/sys"}.backingFiles()) {
            if (path.string().starts_with(folder.string() + "/")) {
                found.push_back(path);
            }
        }
        return found;
    }
};

/// Writes into a file through a mapping that stays, so that no date tells of it once the first write is done.
class Mapping {
public:
    explicit Mapping(const std::filesystem::path& file) {
        const FileDescriptor open(::open(file.c_str(), O_RDWR | O_CLOEXEC));
        bytes_ = static_cast<char*>(mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_SHARED, open.get(), 0));
        EXPECT_NE(bytes_, MAP_FAILED);
        // This one makes the page writable and is dated.
        write('1');
    }
    Mapping(const Mapping&) = delete;
    Mapping& operator=(const Mapping&) = delete;
    ~Mapping() { munmap(bytes_, size); }

    void write(char byte) { bytes_[0] = byte; }

private:
    static constexpr std::size_t size = 4096;
    char* bytes_ = nullptr;
};

/// The name of the case of the error that `work` ends with, and its reason where it has one.
template <typename Work>
std::string failureOf(const Work& work) {
    try {
        work();
    } catch (const RamDiskError& error) {
        const auto* transfer = std::get_if<RamDiskError::ContentsTransferFailed>(&error.value());
        return std::string(error.caseName()) + (transfer != nullptr ? ": " + transfer->reason : "");
    } catch (const std::exception& error) {
        return error.what();
    }
    return "none";
}

} // namespace ramdisk::test
