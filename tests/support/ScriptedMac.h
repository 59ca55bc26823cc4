#pragma once

#include "RamDiskCore/Disks/RamDiskServices.h"
#include "RamDiskCore/Ports/CommandRunning.h"
#include "RamDiskInfrastructure/MacTools/MediaIdentifying.h"
#include "RamDiskInfrastructure/MacTools/RamDeviceAllocator.h"
#include "RamDiskInfrastructure/MacTools/VolumeMarkAccessing.h"
#include "RamDiskInfrastructure/MacTools/VolumeStatisticsReading.h"
#include "RamDiskInfrastructure/Unix/MountedVolume.h"
#include "tests/support/ScratchFolder.h"

#include <deque>
#include <filesystem>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ramdisk::test {

/// A stand-in for a Mac. It answers the exact command lines of the disk tools, from a state that they change,
/// in the form in which the real tools write. An unknown command, a script that was not used, and a secret in
/// a command line each fail the running test.
class ScriptedMac final : public CommandRunning {
public:
    /// How a detach ends.
    enum class Detaching { works, busy, busyAfterUnmount, worksButSaysItFailed };

    struct Volume {
        std::string devicePath;
        std::string name;
        FileSystem fileSystem = FileSystem::hfsPlus;
        std::optional<std::filesystem::path> mountPoint;
        std::optional<std::string> passphrase;
        bool isIndexed = true;
        std::optional<std::string> mark;
        /// Where the files of an image's volume go when the image is closed.
        std::optional<std::filesystem::path> files = std::nullopt;
    };
    struct Image {
        unsigned disk = 0;
        std::uint64_t sectors = 0;
        /// ram:// and the sectors for a RAM disk, a file's path for any other image.
        std::string path;
        std::uint64_t attachment = 0;
        std::optional<unsigned> container;
        std::optional<Volume> volume;
        Detaching detaching = Detaching::works;

        [[nodiscard]] std::string name() const { return "disk" + std::to_string(disk); }
    };

    /// An image file. The files of its volume lie in a folder, which is moved to the mount point while the
    /// image is open.
    struct ImageFile {
        std::string sizeArgument;
        std::string volumeName;
        std::optional<std::string> passphrase;
        std::filesystem::path files;
    };
    /// How opening an image file ends.
    enum class Attaching { works, mountsNothing, fails };

    ScriptedMac() = default;
    ~ScriptedMac() override;

    [[nodiscard]] CommandOutput run(const SystemCommand& command) override;

    /// Answers the next command of this description with `output` instead of from the state.
    void script(std::string description, CommandOutput output);

    /// An image that another program attached: mounted, without a mark.
    Image& attachForeign(const std::string& path, const std::string& volumeName);
    void detachForeign(unsigned disk);

    [[nodiscard]] Image* imageOf(const std::string& device);
    [[nodiscard]] Volume* volumeAt(const std::filesystem::path& mountPoint);

    /// Whether the disk utility has the newer attach.
    bool hasDiskImages2 = true;
    /// Called before each command, as other programs at work meanwhile.
    std::function<void()> meanwhile;
    /// Called when `ditto` has copied, as other programs at work meanwhile.
    std::function<void()> whileCopying;
    Attaching attaching = Attaching::works;
    /// How making an image ends, if it fails.
    std::optional<CommandOutput> creation;
    /// How the images opened from now on are closed.
    Detaching detachingOfImages = Detaching::works;
    /// The texts that no command line may hold.
    std::vector<std::string> secrets;
    /// Everything that was run, in order.
    std::vector<SystemCommand> commands;
    std::list<Image> images;
    /// The devices whose nodes were closed to other accounts.
    std::vector<std::string> closedDevices;

    [[nodiscard]] std::vector<std::string> descriptions() const;

    /// The image file, whatever its name is now; null when it is not an image.
    [[nodiscard]] ImageFile* imageFile(const std::filesystem::path& path);

    /// Makes a RAM disk that is mounted on a real folder.
    RamDisk makeRamDisk(const std::string& name, const std::filesystem::path& mountPoint,
                        std::uint64_t bytes);

private:
    struct Script {
        std::string description;
        CommandOutput output;
    };

    [[nodiscard]] CommandOutput hdiutil(const SystemCommand& command);
    [[nodiscard]] CommandOutput diskutil(const SystemCommand& command);
    [[nodiscard]] CommandOutput apfs(const SystemCommand& command);
    [[nodiscard]] CommandOutput mdutil(const SystemCommand& command);
    [[nodiscard]] CommandOutput attach(const std::string& address, const std::string& warning);
    [[nodiscard]] CommandOutput detach(const std::string& devicePath, Force force);
    [[nodiscard]] CommandOutput eraseVolume(const std::vector<std::string>& arguments);
    [[nodiscard]] CommandOutput mount(const std::string& devicePath, const std::string& mountPoint,
                                      const std::optional<std::string>& passphrase);
    [[nodiscard]] CommandOutput unmount(const std::string& devicePath);
    [[nodiscard]] CommandOutput createImage(const SystemCommand& command);
    [[nodiscard]] CommandOutput openImage(const SystemCommand& command);
    [[nodiscard]] CommandOutput isEncrypted(const std::string& path);
    [[nodiscard]] CommandOutput detachAt(const std::filesystem::path& mountPoint);
    [[nodiscard]] CommandOutput ditto(const SystemCommand& command);
    void leave(Volume& volume);
    [[nodiscard]] CommandOutput unknown(const SystemCommand& command) const;
    [[nodiscard]] std::string infoPropertyList() const;
    [[nodiscard]] unsigned freeDiskNumber() const;
    Image& addImage(const std::string& path, std::uint64_t sectors);
    void mountInVolumes(Volume& volume);

    std::deque<Script> scripts_;
    std::uint64_t nextAttachment_ = 4294968000;
    ScratchFolder vault_;
    /// The images, by the text in their files.
    std::map<std::string, ImageFile> imageFiles_;
};

/// The use cases with a scripted Mac, built as on a real one. `privateDirectory` is a folder of the test's
/// own.
[[nodiscard]] RamDiskServices
servicesOn(const std::shared_ptr<ScriptedMac>& mac, const std::filesystem::path& privateDirectory,
           RamDeviceAllocator::AttachMethod method = RamDeviceAllocator::AttachMethod::diskImages2);

/// The private mounts, marks and media of the scripted Mac, for tests of single adapters.
[[nodiscard]] std::shared_ptr<PrivateMounts> privateMountsOn(const std::shared_ptr<ScriptedMac>& mac,
                                                             const std::filesystem::path& directory);
[[nodiscard]] std::shared_ptr<VolumeMarkAccessing> marksOn(const std::shared_ptr<ScriptedMac>& mac);
[[nodiscard]] std::shared_ptr<MediaIdentifying> mediaOn(const std::shared_ptr<ScriptedMac>& mac);
[[nodiscard]] std::shared_ptr<const VolumeStatisticsReading>
statisticsOn(const std::shared_ptr<ScriptedMac>& mac);
[[nodiscard]] std::optional<MountedVolume> mountedOn(ScriptedMac& mac, const std::filesystem::path& location);

using TemporaryFolder = ScratchFolder;

} // namespace ramdisk::test
