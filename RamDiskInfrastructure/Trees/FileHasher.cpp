#include "RamDiskInfrastructure/Trees/FileHasher.h"

#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Trees/FolderCursor.h"
#include "RamDiskInfrastructure/Trees/TreeScanner.h"

#include <algorithm>
#include <deque>
#include <optional>
#include <utility>

#include <sys/stat.h>

namespace ramdisk {

namespace {

struct Piece {
    std::uint32_t item;
    std::uint64_t start;
    std::uint64_t end;
    unsigned worker = 0;
    bool isGone = false;
    /// Of another inode than was looked at.
    bool isExchanged = false;
    FileReading reading{};
};

struct OpenedFile {
    FileDescriptor descriptor;
    struct stat status;
};

class HashWorker {
public:
    HashWorker(const TreeManifest::Contents& tree, const FileDescriptor& root, Writers writers,
               ProgressMeter& meter)
        : tree_(tree),
          cursor_(root, tree),
          reader_(tree, writers, meter) {}

    void hash(Piece& piece) {
        const auto file = openFile(piece.item);
        if (!file) {
            piece.isGone = true;
            return;
        }
        piece.isExchanged = file->status.st_ino != tree_.items[piece.item].inode;
        piece.reading =
            reader_.read(file->descriptor.get(), file->status, piece.item, piece.start, piece.end);
    }

    [[nodiscard]] const FileReader& reader() const noexcept { return reader_; }

private:
    std::optional<OpenedFile> openFile(std::uint32_t item) {
        // Another name serves as well when the first one is gone.
        for (auto name = item; name < tree_.items.size(); ++name) {
            if (tree_.items[name].original != item) {
                continue;
            }
            const int folder = cursor_.open(tree_.items[name].parent);
            auto file =
                folder < 0 ? FileDescriptor() : openForReading(folder, std::string(tree_.name(name)).c_str());
            struct stat status {};
            if (!file) {
                if (!isGone(errno)) {
                    throw SystemCallError("open", tree_.path(name));
                }
            } else if (::fstat(file.get(), &status) == 0 && S_ISREG(status.st_mode)) {
                return OpenedFile{std::move(file), status};
            }
        }
        return std::nullopt;
    }

    const TreeManifest::Contents& tree_;
    FolderCursor cursor_;
    FileReader reader_;
};

} // namespace

void hashFiles(TreeManifest::Contents& tree, const FileDescriptor& root, Writers writers,
               ProgressMeter& meter) {
    std::vector<Piece> pieces;
    std::uint64_t bytes = 0;
    std::uint64_t bytesLeft = 0;
    std::uint64_t files = 0;
    for (std::uint32_t item = 0; item < tree.items.size(); ++item) {
        const auto& file = tree.items[item];
        if (!tree.hasOwnContents(item)) {
            continue;
        }
        ++files;
        bytes += file.size;
        if (file.areContentsNoted) {
            continue;
        }
        bytesLeft += file.size;
        const auto step = partSizeOf(file.size);
        for (std::uint64_t start = 0; start < file.size; start += step) {
            pieces.push_back({item, start, std::min(file.size, start + step)});
        }
    }
    meter.expect(bytes, files);
    const ParallelJobs jobs(pieces.size(), bytesLeft);
    std::deque<HashWorker> workers;
    while (workers.size() < jobs.workerCount()) {
        workers.emplace_back(tree, root, writers, meter);
    }
    jobs.run([&](unsigned worker) {
        return [&pieces, &hasher = workers[worker], worker](std::size_t job) {
            pieces[job].worker = worker;
            hasher.hash(pieces[job]);
        };
    });
    std::vector<bool> gone;
    for (auto& piece : pieces) {
        auto& file = tree.items[piece.item];
        if (piece.isGone) {
            gone.resize(tree.items.size());
            gone[piece.item] = true;
            continue;
        }
        if (piece.isExchanged) {
            file.inode = 0;
        }
        workers[piece.worker].reader().note(std::move(piece.reading), tree, piece.item);
    }
    for (auto& item : tree.items) {
        item.attributes = tree.items[item.original].attributes;
    }
    if (!gone.empty()) {
        for (std::uint32_t item = 0; item < tree.items.size(); ++item) {
            // All names of a file were tried.
            gone[item] = gone[tree.items[item].original];
        }
        tree.remove(gone);
    }
    meter.finish();
}

} // namespace ramdisk
