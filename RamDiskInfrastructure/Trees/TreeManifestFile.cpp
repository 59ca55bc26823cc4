#include "RamDiskInfrastructure/Commands/SystemCallError.h"
#include "RamDiskInfrastructure/Trees/ContentHash.h"
#include "RamDiskInfrastructure/Trees/TreeContents.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <limits>
#include <utility>

#include <sys/stat.h>
#include <unistd.h>

namespace ramdisk {

namespace {

constexpr std::string_view manifestMagic = "RAMDISK TREES 1\n";
/// Where items have flags, which follow all else. Versions that do not know flags refuse such a manifest.
constexpr std::string_view magicWithFlags = "RAMDISK TREES 2\n";
static_assert(manifestMagic.size() == magicWithFlags.size());
constexpr std::size_t headerSize = 40; // magic, length of the rest, its hash
constexpr std::uint64_t largestFile = 4ULL << 30U;

/// The lowest byte first, or back.
std::uint64_t littleEndian(std::uint64_t value) {
    return std::endian::native == std::endian::little ? value : __builtin_bswap64(value);
}

/// Numbers in the fewest bytes, seven bits each, the lowest first.
class Encoder {
public:
    void number(std::uint64_t value) {
        for (; value >= 0x80U; value >>= 7U) {
            bytes.push_back(static_cast<char>(value | 0x80U));
        }
        bytes.push_back(static_cast<char>(value));
    }
    void text(std::string_view value) {
        number(value.size());
        bytes.append(value);
    }
    void time(const timespec& value) {
        // Dates before 1970 wrap around and back again.
        fixed(static_cast<std::uint64_t>(value.tv_sec));
        number(static_cast<std::uint64_t>(value.tv_nsec));
    }
    void fixed(std::uint64_t value) {
        const auto wire = littleEndian(value);
        bytes.append(reinterpret_cast<const char*>(&wire), sizeof wire);
    }

    std::string bytes;
};

/// What is not as the encoder writes it.
struct Malformed {};

void require(bool condition) {
    if (!condition) {
        throw Malformed{};
    }
}

class Decoder {
public:
    explicit Decoder(std::string_view bytes) : bytes_(bytes) {}

    [[nodiscard]] std::uint64_t number(std::uint64_t most = ~std::uint64_t{0}) {
        std::uint64_t value = 0;
        for (unsigned shift = 0; shift < 64; shift += 7) {
            require(!bytes_.empty());
            const auto byte = static_cast<unsigned char>(bytes_.front());
            bytes_.remove_prefix(1);
            value |= static_cast<std::uint64_t>(byte & 0x7FU) << shift;
            if ((byte & 0x80U) == 0) {
                require(value <= most);
                return value;
            }
        }
        throw Malformed{};
    }
    template <typename Number>
    void read(Number& value, std::uint64_t most = std::numeric_limits<Number>::max()) {
        value = static_cast<Number>(number(most));
    }
    [[nodiscard]] std::string_view text() { return take(number()); }
    [[nodiscard]] timespec time() {
        timespec value{};
        value.tv_sec = static_cast<time_t>(fixed());
        value.tv_nsec = static_cast<long>(number(999'999'999));
        return value;
    }
    [[nodiscard]] std::uint64_t fixed() {
        std::uint64_t wire = 0;
        std::memcpy(&wire, take(sizeof wire).data(), sizeof wire);
        return littleEndian(wire);
    }
    /// How many things follow, each of at least `size` bytes: never more than there is room for.
    [[nodiscard]] std::uint64_t count(std::size_t size) { return number(bytes_.size() / size); }
    [[nodiscard]] bool isAtEnd() const { return bytes_.empty(); }

private:
    std::string_view take(std::uint64_t length) {
        require(length <= bytes_.size());
        const auto taken = bytes_.substr(0, length);
        bytes_.remove_prefix(length);
        return taken;
    }

    std::string_view bytes_;
};

void encodeItem(Encoder& encoder, const TreeManifest::Contents& tree, std::uint32_t number) {
    const auto& item = tree.items[number];
    encoder.number(static_cast<std::uint64_t>(item.type));
    encoder.number(item.parent);
    encoder.number(number - item.original);
    encoder.text(tree.name(number));
    encoder.text(tree.linkTarget(number));
    encoder.number(item.mode);
    encoder.number(item.user);
    encoder.number(item.group);
    encoder.number(item.attributes);
    encoder.time(item.modified);
    encoder.time(item.accessed);
    encoder.number(item.size);
    encoder.number(item.device);
    encoder.number(item.blockCount);
    std::uint64_t next = 0;
    for (std::uint64_t index = 0; index < item.blockCount; ++index) {
        const auto& block = tree.blocksOf(number)[index];
        encoder.number(block.block - next);
        encoder.fixed(block.low);
        encoder.fixed(block.high);
        next = block.block + 1;
    }
}

/// The items with flags, each counted from the one before.
void encodeFlags(Encoder& encoder, const TreeManifest::Contents& tree) {
    std::uint32_t last = 0;
    for (std::uint32_t item = 0; item < tree.items.size(); ++item) {
        if (tree.items[item].flags != 0) {
            encoder.number(item - last);
            encoder.number(tree.items[item].flags);
            last = item;
        }
    }
}

bool hasFlags(const TreeManifest::Contents& tree) {
    return std::any_of(tree.items.begin(), tree.items.end(),
                       [](const auto& item) { return item.flags != 0; });
}

bool isName(std::string_view name) {
    return !name.empty() && name.size() <= 255 && name != "." && name != ".."
           && name.find_first_of(std::string_view("/\0", 2)) == std::string_view::npos;
}

/// Gives the item its place in its folder. What comes from a file must not lead out of any tree.
void place(TreeManifest::Contents& tree, std::uint32_t number) {
    const auto& item = tree.items[number];
    if (number == 0) {
        require(item.type == ItemType::folder && item.parent == 0 && item.original == 0);
        return;
    }
    require(item.parent < number && isName(tree.name(number)));
    auto& folder = tree.items[item.parent];
    require(folder.type == ItemType::folder);
    if (folder.childCount == 0) {
        folder.firstChild = number;
    } else {
        require(folder.firstChild + folder.childCount == number && tree.name(number - 1) < tree.name(number));
    }
    ++folder.childCount;
    const auto& original = tree.items[item.original];
    require(original.original == item.original && original.type == item.type);
    require(item.original == number || (item.type != ItemType::folder && item.blockCount == 0));
    require(item.linkTarget.length == 0 || item.type == ItemType::link);
    require(item.size == 0 || item.type == ItemType::file);
}

void decodeItem(Decoder& decoder, TreeManifest::Contents& tree) {
    const auto number = static_cast<std::uint32_t>(tree.items.size());
    TreeItem item;
    item.type = static_cast<ItemType>(decoder.number(static_cast<std::uint64_t>(ItemType::blockDevice)));
    decoder.read(item.parent);
    item.original = number - static_cast<std::uint32_t>(decoder.number(number));
    item.name = tree.addText(decoder.text());
    item.linkTarget = tree.addText(decoder.text());
    decoder.read(item.mode, 07777);
    decoder.read(item.user);
    decoder.read(item.group);
    decoder.read(item.attributes, tree.attributeSets.size() - 1);
    item.modified = decoder.time();
    item.accessed = decoder.time();
    decoder.read(item.size, static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()));
    decoder.read(item.device);
    item.blockCount = decoder.count(17);
    item.firstBlock = tree.blocks.size();
    const auto end = item.size / BlockHash::blockSize + (item.size % BlockHash::blockSize == 0 ? 0 : 1);
    std::uint64_t next = 0;
    for (std::uint64_t index = 0; index < item.blockCount; ++index) {
        require(next < end);
        BlockHash block;
        block.block = next + decoder.number(end - next - 1);
        block.low = decoder.fixed();
        block.high = decoder.fixed();
        tree.blocks.push_back(block);
        next = block.block + 1;
    }
    tree.items.push_back(item);
    place(tree, number);
}

void decodeFlags(Decoder& decoder, TreeManifest::Contents& tree) {
    std::uint64_t item = 0;
    for (bool isFirst = true; !decoder.isAtEnd(); isFirst = false) {
        const auto step = decoder.number(tree.items.size() - 1 - item);
        require(isFirst || step > 0);
        item += step;
        auto& flagged = tree.items[item];
        require(flagged.type == ItemType::folder || flagged.type == ItemType::file);
        decoder.read(flagged.flags, allItemFlags);
    }
}

/// With room for the header.
std::string encode(const TreeManifest::Contents& tree) {
    // About what all of it takes, so that what is written is not moved again and again.
    constexpr std::size_t bytesPerItem = 48;
    constexpr std::size_t bytesPerBlock = 17;
    Encoder encoder;
    encoder.bytes.reserve(headerSize + tree.items.size() * bytesPerItem + tree.text.size()
                          + tree.blocks.size() * bytesPerBlock);
    encoder.bytes.resize(headerSize);
    encoder.number(tree.attributeSets.size());
    for (const auto& set : tree.attributeSets) {
        encoder.number(set.size());
        for (const auto& attribute : set) {
            encoder.text(attribute.name);
            encoder.text(attribute.value);
        }
    }
    encoder.number(tree.items.size());
    for (std::uint32_t item = 0; item < tree.items.size(); ++item) {
        encodeItem(encoder, tree, item);
    }
    encodeFlags(encoder, tree);
    return std::move(encoder.bytes);
}

TreeManifest::Contents decode(std::string_view bytes, bool withFlags) {
    Decoder decoder(bytes);
    TreeManifest::Contents tree;
    tree.attributeSets.resize(decoder.count(1));
    require(!tree.attributeSets.empty());
    for (auto& set : tree.attributeSets) {
        set.resize(decoder.count(2));
        for (auto& attribute : set) {
            attribute.name = decoder.text();
            attribute.value = decoder.text();
            require(!attribute.name.empty() && attribute.name.find('\0') == std::string::npos);
        }
    }
    const auto count = decoder.count(20);
    require(count > 0 && count < std::numeric_limits<std::uint32_t>::max());
    tree.items.reserve(count);
    tree.blocks.reserve(count);
    for (std::uint64_t item = 0; item < count; ++item) {
        decodeItem(decoder, tree);
    }
    if (withFlags) {
        decodeFlags(decoder, tree);
    }
    require(decoder.isAtEnd());
    return tree;
}

std::string headerFor(std::string_view magic, std::string_view bytes) {
    Encoder header;
    header.bytes = magic;
    header.fixed(bytes.size());
    const auto hash = contentHash(bytes.data(), bytes.size());
    header.fixed(hash.low);
    header.fixed(hash.high);
    return std::move(header.bytes);
}

void writeAll(const FileDescriptor& file, std::string_view bytes) {
    for (std::size_t done = 0; done < bytes.size();) {
        const auto count =
            ::pwrite(file.get(), bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        if (count < 0 && errno != EINTR) {
            throw SystemCallError("write the list of the files");
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
}

} // namespace

void TreeManifest::write(const FileDescriptor& file) const {
    auto bytes = encode(*contents_);
    bytes.replace(0, headerSize,
                  headerFor(hasFlags(*contents_) ? magicWithFlags : manifestMagic,
                            std::string_view(bytes).substr(headerSize)));
    writeAll(file, bytes);
    if (::ftruncate(file.get(), static_cast<off_t>(bytes.size())) != 0) {
        throw SystemCallError("write the list of the files");
    }
}

std::optional<TreeManifest> TreeManifest::read(const FileDescriptor& file) {
    struct stat status {};
    if (::fstat(file.get(), &status) != 0 || !S_ISREG(status.st_mode)
        || static_cast<std::uint64_t>(status.st_size) < headerSize
        || static_cast<std::uint64_t>(status.st_size) > largestFile) {
        return std::nullopt;
    }
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    for (std::size_t done = 0; done < bytes.size();) {
        const auto count =
            ::pread(file.get(), bytes.data() + done, bytes.size() - done, static_cast<off_t>(done));
        if (count == 0 || (count < 0 && errno != EINTR)) {
            return std::nullopt;
        }
        done += count > 0 ? static_cast<std::size_t>(count) : 0;
    }
    const auto rest = std::string_view(bytes).substr(headerSize);
    const bool withFlags = bytes.starts_with(magicWithFlags);
    if (!bytes.starts_with(headerFor(withFlags ? magicWithFlags : manifestMagic, rest))) {
        return std::nullopt;
    }
    try {
        TreeManifest manifest;
        manifest.contents() = decode(rest, withFlags);
        return manifest;
    } catch (const Malformed&) {
        return std::nullopt;
    }
}

} // namespace ramdisk
