#include "RamDiskInfrastructure/Linux/Trees/FileHasher.h"

#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Linux/Trees/ContentHash.h"
#include "RamDiskInfrastructure/Linux/Trees/FolderCursor.h"
#include "RamDiskInfrastructure/Linux/Trees/ItemMetadata.h"
#include "RamDiskInfrastructure/Linux/Trees/ParallelJobs.h"
#include "RamDiskInfrastructure/Linux/Trees/TreeScanner.h"
#include "RamDiskInfrastructure/Linux/Trees/WriteWatch.h"
#include "RamDiskInfrastructure/Linux/Trees/ZeroBytes.h"

#include <algorithm>
#include <deque>
#include <memory>
#include <optional>

#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr std::uint64_t hashBufferSize = 4 * BlockHash::blockSize;
/// Larger files are hashed in several pieces at once.
constexpr std::uint64_t pieceSize = 32ULL << 20U;

struct Piece {
    std::uint32_t item;
    std::uint64_t start;
    std::uint64_t end;
    unsigned worker = 0;
    std::size_t firstBlock = 0;
    std::size_t blockCount = 0;
    bool isGone = false;
    /// Of another inode than was looked at.
    bool isExchanged = false;
    bool hadNoWriter = false;
    /// Only of the piece at the start.
    ItemAttributes attributes{};
};

struct OpenedFile {
    FileDescriptor descriptor;
    struct stat status;
};

class HashWorker {
public:
    HashWorker(const TreeManifest::Contents& tree, const FileDescriptor& root, std::vector<BlockHash>& blocks,
               Writers writers, const TreeManifest::Contents* earlier, ProgressMeter& meter)
        : tree_(tree),
          cursor_(root, tree),
          blocks_(blocks),
          writers_(writers),
          earlier_(earlier),
          // Not set to zero: of a small tree next to nothing of it is used.
          buffer_(new char[hashBufferSize]),
          meter_(meter) {}

    void hash(Piece& piece) {
        if (tree_.items[piece.item].unwritten != noItem) {
            takeOver(piece);
            return;
        }
        const auto file = openFile(piece.item);
        if (!file) {
            piece.isGone = true;
            return;
        }
        const int descriptor = file->descriptor.get();
        piece.isExchanged = file->status.st_ino != tree_.items[piece.item].inode;
        // Before anything is read: who opens it for writing from now on shows.
        piece.hadNoWriter = writers_ == Writers::note && WriteWatch::hasNoWriter(descriptor);
        if (piece.start == 0) {
            piece.attributes = readFileAttributes(descriptor, tree_, piece.item);
        }
        piece.firstBlock = blocks_.size();
        const bool hasHoles = file->status.st_blocks * 512 < file->status.st_size;
        for (auto place = piece.start; place < piece.end;) {
            place = hasHoles ? nextData(descriptor, place, piece) : place;
            const auto length = place < piece.end ? read(descriptor, place, piece) : 0;
            if (length == 0) {
                break;
            }
            hashBlocks(place, length);
            meter_.add(length, 0);
            place += length;
        }
        meter_.add(0, piece.start == 0 ? 1 : 0);
        piece.blockCount = blocks_.size() - piece.firstBlock;
    }

private:
    void takeOver(Piece& piece) {
        const auto then = tree_.items[piece.item].unwritten;
        const auto* const first = earlier_->blocksOf(then);
        piece.attributes = earlier_->attributes(then);
        piece.hadNoWriter = true;
        piece.firstBlock = blocks_.size();
        piece.blockCount = earlier_->items[then].blockCount;
        blocks_.insert(blocks_.end(), first, first + piece.blockCount);
        meter_.add(piece.end, 1);
    }

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

    /// The start of the block in which the next data lies.
    std::uint64_t nextData(int file, std::uint64_t place, const Piece& piece) const {
        const auto data = ::lseek(file, static_cast<off_t>(place), SEEK_DATA);
        if (data < 0) {
            // Without an answer everything counts as data.
            return errno == ENXIO ? piece.end : place;
        }
        const auto block = static_cast<std::uint64_t>(data) / BlockHash::blockSize;
        return std::max(place, block * BlockHash::blockSize);
    }

    std::size_t read(int file, std::uint64_t place, const Piece& piece) {
        const auto wanted = std::min(hashBufferSize, piece.end - place);
        std::size_t got = 0;
        while (got < wanted) {
            const auto count =
                ::pread(file, buffer_.get() + got, wanted - got, static_cast<off_t>(place + got));
            if (count < 0 && errno != EINTR) {
                throw SystemCallError("read", tree_.path(piece.item));
            }
            if (count == 0) {
                break;
            }
            got += count > 0 ? static_cast<std::size_t>(count) : 0;
        }
        return got;
    }

    void hashBlocks(std::uint64_t place, std::size_t length) {
        for (std::size_t start = 0; start < length; start += BlockHash::blockSize) {
            const char* bytes = buffer_.get() + start;
            const auto size = std::min<std::size_t>(BlockHash::blockSize, length - start);
            if (!isAllZero(bytes, size)) {
                const auto hash = contentHash(bytes, size);
                blocks_.push_back({(place + start) / BlockHash::blockSize, hash.low, hash.high});
            }
        }
    }

    const TreeManifest::Contents& tree_;
    FolderCursor cursor_;
    std::vector<BlockHash>& blocks_;
    Writers writers_;
    const TreeManifest::Contents* earlier_;
    std::unique_ptr<char[]> buffer_;
    ProgressMeter& meter_;
};

} // namespace

void hashFiles(TreeManifest::Contents& tree, const FileDescriptor& root, const ProgressObserver& observer,
               Writers writers, const TreeManifest::Contents* earlier) {
    std::vector<Piece> pieces;
    std::uint64_t bytes = 0;
    std::uint64_t files = 0;
    for (std::uint32_t item = 0; item < tree.items.size(); ++item) {
        const auto& file = tree.items[item];
        if (!tree.hasOwnContents(item)) {
            continue;
        }
        ++files;
        bytes += file.size;
        if (file.unwritten != noItem) {
            pieces.push_back({item, 0, file.size});
            continue;
        }
        // Of a sparse giant only the holes would be shared out.
        const auto step = std::max(pieceSize, (file.size / 4096 + 1) / hashBufferSize * hashBufferSize);
        for (std::uint64_t start = 0; start < file.size; start += step) {
            pieces.push_back({item, start, std::min(file.size, start + step)});
        }
    }
    ProgressMeter meter(observer);
    meter.expect(bytes, files);
    const ParallelJobs jobs(pieces.size(), bytes);
    std::deque<std::vector<BlockHash>> blocks(jobs.workerCount());
    jobs.run([&](unsigned worker) {
        const auto hasher = std::make_shared<HashWorker>(tree, root, blocks[worker], writers, earlier, meter);
        return [&pieces, hasher, worker](std::size_t job) {
            pieces[job].worker = worker;
            hasher->hash(pieces[job]);
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
        file.hadNoWriter = piece.hadNoWriter && (piece.start == 0 || file.hadNoWriter);
        if (piece.start == 0) {
            file.firstBlock = tree.blocks.size();
            tree.setAttributes(piece.item, std::move(piece.attributes));
        }
        const auto first = blocks[piece.worker].begin() + static_cast<std::ptrdiff_t>(piece.firstBlock);
        tree.blocks.insert(tree.blocks.end(), first, first + static_cast<std::ptrdiff_t>(piece.blockCount));
        file.blockCount += piece.blockCount;
    }
    for (auto& item : tree.items) {
        item.attributes = tree.items[item.original].attributes;
    }
    if (!gone.empty()) {
        for (std::uint32_t item = 0; item < tree.items.size(); ++item) {
            // All names of a file were tried.
            gone[item] = gone[tree.items[item].original];
        }
        removeItems(tree, gone);
    }
    meter.finish();
}

} // namespace ramdisk
