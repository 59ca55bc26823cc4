#include "tests/support/ScriptedMac.h"

#include <fmt/format.h>
#include <gtest/gtest.h>

namespace ramdisk::test {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t sectorsOfAMebibyte = 2048;

void copyInto(const fs::path& source, const fs::path& target) {
    // As the tool does: a link that is given as an argument is followed.
    if (fs::is_directory(source)) {
        fs::create_directories(target);
        fs::copy(source, target,
                 fs::copy_options::recursive | fs::copy_options::copy_symlinks
                     | fs::copy_options::overwrite_existing);
    } else {
        fs::copy_file(source, fs::is_directory(target) ? target / source.filename() : target,
                      fs::copy_options::overwrite_existing);
    }
}

} // namespace

ScriptedMac::ImageFile* ScriptedMac::imageFile(const std::filesystem::path& path) {
    const auto found = imageFiles_.find(readFile(path));
    return found == imageFiles_.end() ? nullptr : &found->second;
}

RamDisk ScriptedMac::makeRamDisk(const std::string& name, const std::filesystem::path& mountPoint,
                                 std::uint64_t bytes) {
    fs::create_directories(mountPoint);
    auto& image = attachForeign(fmt::format("ram://{}", bytes / 512), name);
    image.volume->mountPoint = mountPoint;
    return {.device = *DeviceIdentifier::make(image.name()),
            .name = name,
            .capacity = ByteCount{bytes},
            .mountPoint = mountPoint};
}

CommandOutput ScriptedMac::createImage(const Words& words, const Input& passphrase) {
    if (creation) {
        return *creation;
    }
    if (fs::exists(words.back())) {
        return fails(1, "hdiutil: create failed - File exists\n");
    }
    const auto identifier = fmt::format("image {}", imageFiles_.size());
    const auto files = vault_.path() / identifier;
    fs::create_directory(files);
    // The system keeps its own record of changes there.
    fs::create_directory(files / ".fseventsd");
    imageFiles_[identifier] = {words[0], words[2], passphrase, files};
    writeFile(words.back(), identifier);
    return succeeds();
}

CommandOutput ScriptedMac::openImage(const Words& words, const Input& passphrase) {
    const fs::path mountPoint = words[0];
    const auto* file = imageFile(words.back());
    if (file == nullptr || attaching == Attaching::fails) {
        return fails(1, "hdiutil: attach failed - no mountable file systems\n");
    }
    if (file->passphrase != passphrase) {
        return fails(1, "hdiutil: attach failed - Authentication error\n");
    }
    auto& image = addImage(words.back(), std::stoull(file->sizeArgument) * sectorsOfAMebibyte);
    image.container = freeDiskNumber();
    image.detaching = detachingOfImages;
    image.volume = Volume{fmt::format("/dev/disk{}s1", *image.container),
                          file->volumeName,
                          FileSystem::apfsCaseSensitive,
                          {},
                          file->files};
    if (attaching == Attaching::works) {
        EXPECT_TRUE(fs::is_empty(mountPoint));
        fs::rename(file->files, mountPoint);
        image.volume->mountPoint = mountPoint;
    }
    return succeeds(fmt::format("/dev/{:<15}\tGUID_partition_scheme          \t\n", image.name()));
}

CommandOutput ScriptedMac::isEncrypted(const std::string& path) {
    const auto* file = imageFile(path);
    if (file == nullptr) {
        return fails(1, "hdiutil: isencrypted failed - image not recognized\n");
    }
    return succeeds(fmt::format("<plist version=\"1.0\"><dict><key>encrypted</key><{}/></dict></plist>\n",
                                file->passphrase.has_value()));
}

CommandOutput ScriptedMac::ditto(const Words& words) {
    try {
        for (std::size_t index = 0; index + 1 < words.size(); ++index) {
            copyInto(words[index], words.back());
        }
    } catch (const fs::filesystem_error& error) {
        return fails(1, fmt::format("ditto: {}\n", error.what()));
    }
    if (whileCopying) {
        whileCopying();
    }
    return succeeds();
}

} // namespace ramdisk::test
