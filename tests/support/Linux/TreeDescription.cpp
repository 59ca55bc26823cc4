#include "tests/support/Linux/TreeDescription.h"

#include "tests/support/Linux/TestMachine.h"

#include <sys/sysmacros.h>

namespace ramdisk::test {

namespace {

std::string attributesOf(const fs::path& path) {
    std::string names(64 << 10, '\0');
    const auto length = llistxattr(path.c_str(), names.data(), names.size());
    std::map<std::string, std::string> attributes;
    for (std::size_t start = 0; length > 0 && start < static_cast<std::size_t>(length);) {
        const std::string name = names.c_str() + start;
        std::string value(64 << 10, '\0');
        const auto size = lgetxattr(path.c_str(), name.c_str(), value.data(), value.size());
        value.resize(size > 0 ? static_cast<std::size_t>(size) : 0);
        attributes[name] = value;
        start += name.size() + 1;
    }
    std::string text;
    for (const auto& [name, value] : attributes) {
        text += name + "=" + std::to_string(std::hash<std::string>()(value)) + " ";
    }
    return text;
}

std::string contentsOf(const fs::path& path, const struct stat& status) {
    if (S_ISLNK(status.st_mode)) {
        return fs::read_symlink(path).string();
    }
    if (!S_ISREG(status.st_mode)) {
        return "";
    }
    // Only where there is data: one file is larger than any memory.
    const FileDescriptor file(open(path.c_str(), O_RDONLY | O_NOATIME));
    std::string text;
    for (off_t place = 0; (place = lseek(file.get(), place, SEEK_DATA)) >= 0;) {
        // File systems differ in how small a piece may be without data.
        place = place / 4096 * 4096;
        std::string bytes(4096, '\0');
        const auto count = pread(file.get(), bytes.data(), bytes.size(), place);
        if (count <= 0) {
            break;
        }
        bytes.resize(static_cast<std::size_t>(count));
        if (bytes.find_first_not_of('\0') != std::string::npos) {
            text += fmt::format("{}:{} ", place, std::hash<std::string>()(bytes));
        }
        place += count;
    }
    return text;
}

} // namespace

std::map<std::string, std::string> describeTree(const fs::path& root) {
    std::vector<std::string> paths{"."};
    for (const auto& entry : fs::recursive_directory_iterator(root)) {
        paths.push_back(entry.path().lexically_relative(root).string());
    }
    std::sort(paths.begin(), paths.end());
    std::map<std::string, std::string> items;
    std::map<ino_t, std::string> firstNames;
    for (const auto& path : paths) {
        struct stat status {};
        lstat((root / path).c_str(), &status);
        const auto& first = firstNames.try_emplace(status.st_ino, path).first->second;
        const bool isFolder = S_ISDIR(status.st_mode);
        items[path] = fmt::format(
            "mode {:o} owner {}:{} modified {}.{:09} links {} first {} size {} device {} {}| {}",
            status.st_mode, status.st_uid, status.st_gid, status.st_mtim.tv_sec, status.st_mtim.tv_nsec,
            isFolder ? 0 : status.st_nlink, first, isFolder ? 0 : status.st_size, status.st_rdev,
            attributesOf(root / path), contentsOf(root / path, status));
    }
    return items;
}

std::string differences(const fs::path& left, const fs::path& right) {
    const auto one = describeTree(left);
    auto other = describeTree(right);
    std::string text;
    for (const auto& [path, item] : one) {
        if (other[path] != item) {
            text += path + "\n  " + item + "\n  " + other[path] + "\n";
        }
        other.erase(path);
    }
    for (const auto& [path, item] : other) {
        text += path + " is too much\n";
    }
    return text;
}

void makeOddTree(const fs::path& root) {
    fs::create_directories(root / "folder/sub");
    fs::create_directories(root / "other");
    writeFile(root / "folder/file", std::string(200'000, 'x') + "end");
    writeFile(root / "folder/empty", "");
    writeFile(root / "folder/sub/first name", "of one file");
    fs::create_hard_link(root / "folder/sub/first name", root / "a name that sorts before");
    fs::create_hard_link(root / "folder/sub/first name", root / "other/third");
    fs::create_symlink("sub/first name", root / "folder/link");
    fs::create_symlink("nowhere", root / "dangling");
    fs::create_symlink("/etc/passwd", root / "out of the tree");
    fs::create_symlink("../other", root / "folder/link to folder");
    writeFile(root / "sparse", "");
    fs::resize_file(root / "sparse", 1ULL << 40U);
    overwrite(root / "sparse", 3 << 20, "in the middle");
    overwrite(root / "sparse", (1LL << 40) - 5, "end");
    writeFile(root / "big", "");
    for (off_t place = 0; place < 4 << 20; place += 4096) {
        overwrite(root / "big", place, std::string(4096, static_cast<char>('a' + place / 4096 % 23)));
    }
    // Enough to be worth several threads.
    fs::create_directory(root / "many");
    for (int file = 0; file < 300; ++file) {
        writeFile(root / "many" / std::to_string(file), std::string(static_cast<std::size_t>(file), 'm'));
    }
    const std::string longest(255, 'n');
    fs::create_directories(root / longest / longest);
    writeFile(root / longest / longest / "\n new\n\x01\xff\xfe 'line' \"", "bytes");
    mkfifo((root / "fifo").c_str(), 0641);
    writeFile(root / "script", "#!/bin/sh");
    chmod((root / "script").c_str(), 06755);
    writeFile(root / "unreadable", "secret");
    chmod((root / "unreadable").c_str(), geteuid() == 0 ? 0 : 0400);
    setAttribute(root / "script", "user.note", std::string("a\0b", 3));
    setAttribute(root / "folder", "user.long", std::string(900, 'v'));
    // The lists of rights as they are stored: the version, then tag, rights and ID of each entry.
    const std::string rights("\2\0\0\0"
                             "\1\0\6\0\xff\xff\xff\xff"
                             "\2\0\4\0\xfe\xff\0\0"
                             "\4\0\4\0\xff\xff\xff\xff"
                             "\x10\0\4\0\xff\xff\xff\xff"
                             "\x20\0\0\0\xff\xff\xff\xff",
                             44);
    setAttribute(root / "folder/file", "system.posix_acl_access", rights);
    setAttribute(root / "other", "system.posix_acl_default", rights);
    writeFile(root / "other/inherits", "rights");
    if (geteuid() == 0) {
        mknod((root / "device").c_str(), S_IFCHR | 0620, makedev(1, 3));
        setAttribute(root / "dangling", "trusted.note", "of the link itself");
        lchown((root / "dangling").c_str(), nobody, nobody);
        chown((root / "folder/sub").c_str(), nobody, 12345);
    }
    for (const auto& [name, mode] : {std::pair("sticky", 01777U), {"sealed", 0500U}, {"set group", 02750U}}) {
        fs::create_directory(root / name);
        chmod((root / name).c_str(), mode);
    }
    const timespec times[2] = {{1'000'000'000, 5}, {-86'400, 987'654'321}};
    utimensat(AT_FDCWD, (root / "dangling").c_str(), times, AT_SYMLINK_NOFOLLOW);
    utimensat(AT_FDCWD, (root / "folder").c_str(), times, 0);
    utimensat(AT_FDCWD, root.c_str(), times, 0);
}

FileDescriptor openTree(const fs::path& root) {
    return FileDescriptor(open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
}

TreeManifest scanTree(const fs::path& root) {
    return TreeManifest::scan(openTree(root), {});
}

void updateTree(const fs::path& source, const fs::path& target, Extras extras, PageCache pageCache,
                HugePages hugePages) {
    const auto from = openTree(source);
    const auto to = openTree(target);
    const auto sourceManifest = TreeManifest::scan(from, {});
    const auto targetManifest = TreeManifest::scan(to, {});
    TreeUpdate update{from, sourceManifest, to, targetManifest, extras};
    update.pageCache = pageCache;
    update.hugePages = hugePages;
    update.perform({});
}

void setAttribute(const fs::path& path, const std::string& name, const std::string& value) {
    if (lsetxattr(path.c_str(), name.c_str(), value.data(), value.size(), 0) != 0 && errno != ENOTSUP) {
        throw std::system_error(errno, std::generic_category(), name);
    }
}

void overwrite(const fs::path& path, off_t place, const std::string& bytes) {
    struct stat status {};
    const FileDescriptor file(open(path.c_str(), O_WRONLY | O_CLOEXEC));
    if (fstat(file.get(), &status) != 0
        || pwrite(file.get(), bytes.data(), bytes.size(), place) != static_cast<ssize_t>(bytes.size())) {
        throw std::system_error(errno, std::generic_category(), path.string());
    }
    const timespec times[2] = {status.st_atim, status.st_mtim};
    futimens(file.get(), times);
}

} // namespace ramdisk::test
