#include "benchmarks/SaveContenders.h"

#include <fmt/format.h>

#include <cstdlib>
#include <stdexcept>

namespace ramdisk::benchmarks {

namespace {

bool isInstalled(const char* program) {
    try {
        runProgram({program, "--version"});
        return true;
    } catch (const std::runtime_error&) {
        return false;
    }
}

} // namespace

const char* nameOf(Copier copier) {
    switch (copier) {
    case Copier::tramdisk:
        return "tramdisk";
    case Copier::rsync:
        return "rsync -a --delete";
    case Copier::cp:
        return "cp -a";
    default:
        return "tar";
    }
}

SaveContenders::SaveContenders(const BenchmarkState& state, BenchmarkTree::Extent extent)
    : folder_(state.folder()),
      disk_(state.mountPoint("Bench")),
      peerDisk_(state.mountPoint("Peer")),
      size_(fmt::format("{}M", (extent.bytes >> 20U) + (extent.bytes >> 22U) + 64)),
      present_{Copier::tramdisk, Copier::cp, Copier::tar} {
    const auto home = folder_ / "home";
    std::filesystem::create_directories(home);
    setenv("HOME", home.c_str(), 1);
    for (const char* name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_CACHE_HOME", "XDG_STATE_HOME"}) {
        setenv(name, (home / name).c_str(), 1);
    }
    if (isInstalled("rsync")) {
        present_.insert(Copier::rsync);
    } else {
        fmt::print("rsync is not installed: its column is left out.\n");
    }
}

std::string SaveContenders::copyOf(Copier copier) const {
    return folder_ / (copier == Copier::tar ? "copy.tar" : std::string(nameOf(copier)).substr(0, 2));
}

void SaveContenders::prepare() {
    runTramdisk({"create", "--name", "Bench", "--size", size_, "--at-launch", "--keep-files"});
    for (const auto copier : {Copier::rsync, Copier::cp}) {
        std::filesystem::create_directory(copyOf(copier));
    }
}

void SaveContenders::save(Copier copier) {
    const auto copy = copyOf(copier);
    switch (copier) {
    case Copier::tramdisk:
        return runTramdisk({"save", "Bench"});
    case Copier::rsync:
        return runProgram({"rsync", "-a", "--delete", disk_ + "/", copy + "/"});
    case Copier::cp:
        return runProgram({"cp", "-a", disk_ + "/.", copy});
    case Copier::tar:
        return runProgram({"tar", "-cf", copy, "-C", disk_, "."});
    }
}

SaveContenders::Image SaveContenders::image() const {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder_ / "home")) {
        if (entry.path().extension() == ".sparseimage"
            && !entry.path().filename().native().starts_with('.')) {
            return {entry.path(), entry.last_write_time()};
        }
    }
    throw std::runtime_error("there is no saved image");
}

void SaveContenders::emptyDisk() {
    runTramdisk({"eject", "Bench", "--discard"});
}

void SaveContenders::prepareRestore(Copier copier) {
    if (copier != Copier::tramdisk) {
        runTramdisk({"create", "--name", "Peer", "--size", size_});
    }
}

void SaveContenders::restore(Copier copier) {
    const auto copy = copyOf(copier);
    switch (copier) {
    case Copier::tramdisk:
        return runTramdisk({"startup", "create", "Bench"});
    case Copier::rsync:
        return runProgram({"rsync", "-a", "--delete", copy + "/", peerDisk_ + "/"});
    case Copier::cp:
        return runProgram({"cp", "-a", copy + "/.", peerDisk_});
    case Copier::tar:
        return runProgram({"tar", "-xf", copy, "-C", peerDisk_});
    }
}

void SaveContenders::finishRestore(Copier copier) {
    runTramdisk({"eject", copier == Copier::tramdisk ? "Bench" : "Peer", "--discard"});
}

void SaveContenders::remove() {
    runTramdisk({"startup", "remove", "Bench", "--force"});
    for (const auto copier : {Copier::rsync, Copier::cp, Copier::tar}) {
        std::filesystem::remove_all(copyOf(copier));
    }
}

} // namespace ramdisk::benchmarks
