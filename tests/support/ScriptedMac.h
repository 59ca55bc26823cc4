#pragma once

#include "RamDiskInfrastructure/MacTools/MacAdapters.h"
#include "RamDiskInfrastructure/Unix/MountedVolume.h"
#include "tests/support/ScratchFolder.h"
#include "tests/support/ScriptedRunner.h"

#include <map>
#include <set>

namespace ramdisk::test {

/// A Mac without a Mac: it answers the exact command lines of the disk tools from a state that they change,
/// in the shape in which the real tools write, and tells of that state what the frameworks would. Besides
/// what a `ScriptedRunner` fails the test for, a passphrase that is missing or not asked for does, and a
/// time limit on anything but the listing.
class ScriptedMac final : public ScriptedRunner,
                          public VolumeMarkAccessing,
                          public MediaIdentifying,
                          public ProcessFootprintReading,
                          public MountedVolumeListing,
                          public PassphraseGenerating {
public:
    /// How a detach ends. `leavesTheList` fails, and only the registry still tells of the device.
    enum class Detaching { works, busy, busyAfterUnmount, busyAtFirst, worksButSaysItFailed, leavesTheList };
    /// What the disk utility's attach does, which the older systems do not know.
    enum class NewerAttach { works, isUnknown, isNotListed };

    struct Volume {
        std::string devicePath;
        std::string name;
        FileSystem fileSystem = FileSystem::hfsPlus;
        std::optional<std::string> passphrase = std::nullopt;
        /// Where the files of an image's volume go when it is closed.
        std::optional<std::filesystem::path> files = std::nullopt;
        std::optional<std::filesystem::path> mountPoint = std::nullopt;
        bool isIndexed = true;
        std::optional<std::string> mark = std::nullopt;
        /// What it says is free of its 1000 bytes.
        std::uint64_t available = 900;
    };
    struct Image {
        unsigned disk = 0;
        std::uint64_t sectors = 0;
        /// ram:// and the sectors for a RAM disk, a file's path for any other image.
        std::string path;
        std::uint64_t attachment = 0;
        std::optional<unsigned> container = std::nullopt;
        std::optional<Volume> volume = std::nullopt;
        Detaching detaching = Detaching::works;
        bool isListed = true;

        [[nodiscard]] std::string name() const { return "disk" + std::to_string(disk); }
    };

    /// What is in an image file. Its volume's files lie in a folder, which moves to the mount point while
    /// the image is open.
    struct ImageFile {
        std::string sizeArgument;
        std::string volumeName;
        std::optional<std::string> passphrase;
        std::filesystem::path files;
    };
    /// How opening an image file ends.
    enum class Attaching { works, mountsNothing, fails };

    ScriptedMac();

    [[nodiscard]] CommandOutput run(const SystemCommand& command) override;

    /// Answers the next command of this description with `output` instead of from the state.
    void script(std::string description, CommandOutput output) {
        once(std::move(description), std::move(output));
    }

    VolumeMark::Reading read(const std::filesystem::path& volume) const override;
    void write(const std::filesystem::path& volume, const UUID& instance) override;
    std::optional<std::uint64_t> identifier(const std::string& bsdName) override;
    /// As many megabytes as the process's number.
    std::optional<ByteCount> footprint(std::int32_t processID) const override;
    std::set<std::string> volumeNames(const std::optional<std::filesystem::path>& excluding) const override;
    VolumePassphrase generate() override;

    /// Something that another program attached: mounted, without a mark.
    Image& attachForeign(const std::string& path, const std::string& volumeName);
    void detachForeign(unsigned disk);
    /// A RAM disk, mounted where there is a real folder.
    RamDisk makeRamDisk(const std::string& name, const std::filesystem::path& mountPoint,
                        std::uint64_t bytes);

    [[nodiscard]] Image* imageOf(const std::string& device);
    [[nodiscard]] Image* imageAt(const std::filesystem::path& mountPoint);
    [[nodiscard]] const Volume* volumeAt(const std::filesystem::path& mountPoint) const;
    /// What is in an image file, whatever its name is now; null when it is no image.
    [[nodiscard]] ImageFile* imageFile(const std::filesystem::path& path);
    [[nodiscard]] std::optional<MountedVolume> mountedVolume(const std::filesystem::path& location);

    NewerAttach newerAttach = NewerAttach::works;
    /// A successful attach of memory does not say to which device.
    bool attachesSilently = false;
    /// The list names an APFS container before the disk that it lies on, and with or without its kind.
    bool listsContainersFirst = false;
    bool hasContentHints = true;
    /// What the disk utility writes before the device of a new container, in the user's language.
    std::string containerPhrase = "Disk from APFS operation: ";
    /// Runs before each command: what other programs do meanwhile.
    std::function<void()> meanwhile;
    /// Runs when `ditto` has copied: what other programs do while it does.
    std::function<void()> whileCopying;
    Attaching attaching = Attaching::works;
    /// How making an image ends, when not well.
    std::optional<CommandOutput> creation;
    /// How the images opened from now on are closed.
    Detaching detachingOfImages = Detaching::works;
    std::list<Image> images;
    /// The devices whose nodes were closed to other accounts, and those that stay open to them.
    std::vector<std::string> closedDevices;
    std::set<std::string> openDevices;

private:
    using Words = std::vector<std::string>;
    using Input = std::optional<std::string>;
    using Act = std::function<CommandOutput(const Words&, const Input&)>;
    /// A command line in which each * stands for one word, and a word in brackets may be missing, and what
    /// it does with the words at the stars and its standard input.
    struct Verb {
        std::string pattern;
        Act act;
    };

    [[nodiscard]] CommandOutput otherwise(const SystemCommand& command) override;
    void know(const char* tool, const std::string& arguments, Act act);
    void knowImages();
    void knowVolumes();
    [[nodiscard]] std::string infoPropertyList() const;
    /// The image whose device, container or volume has this path.
    [[nodiscard]] Image& present(const std::string& devicePath);
    [[nodiscard]] CommandOutput attach(const std::string& address, const std::string& warning);
    [[nodiscard]] CommandOutput eraseVolume(const Words& words);
    [[nodiscard]] std::string entities(const Image& image) const;
    [[nodiscard]] CommandOutput detach(const std::string& devicePath, Force force);
    [[nodiscard]] CommandOutput mount(const std::string& devicePath, const std::string& mountPoint,
                                      const Input& passphrase);
    [[nodiscard]] CommandOutput createImage(const Words& words, const Input& passphrase);
    [[nodiscard]] CommandOutput openImage(const Words& words, const Input& passphrase);
    [[nodiscard]] CommandOutput isEncrypted(const std::string& path);
    [[nodiscard]] CommandOutput ditto(const Words& words);
    void leave(Volume& volume);
    [[nodiscard]] unsigned freeDiskNumber() const;
    Image& addImage(const std::string& path, std::uint64_t sectors);

    std::vector<Verb> verbs_;
    std::uint64_t nextAttachment_ = 4294968000;
    ScratchFolder vault_;
    /// By the text in the image's file.
    std::map<std::string, ImageFile> imageFiles_;
};

/// Everything that the adapters need of a Mac. `privateDirectory` is a folder of the test's own.
[[nodiscard]] MacAdapters adaptersOn(const std::shared_ptr<ScriptedMac>& mac,
                                     const std::filesystem::path& privateDirectory);

} // namespace ramdisk::test
