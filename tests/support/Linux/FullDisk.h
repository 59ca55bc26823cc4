#pragma once

#include "RamDiskInfrastructure/Commands/FileDescriptor.h"
#include "tests/support/Testing.h"

namespace ramdisk::test {

/// Writes until nothing more fits: files of `size` bytes, and then smaller ones, or only empty files, or
/// names of one file.
inline void fillUp(const std::filesystem::path& folder, std::size_t size) {
    std::filesystem::create_directory(folder);
    const std::string bytes(std::max<std::size_t>(size, 1), 'x');
    for (auto length = size;; length /= 4) {
        const auto prefix = folder / std::string(size < 2 ? 180 : 5, static_cast<char>('a' + length % 26));
        for (int number = 0;; ++number) {
            const auto path = prefix.string() + std::to_string(number);
            if (size == 1 && number > 0) {
                const auto first = prefix.string() + std::to_string(number / 60000 * 60000);
                if (number % 60000 != 0 ? link(first.c_str(), path.c_str()) != 0
                                        : mknod(path.c_str(), 0600, 0)) {
                    break;
                }
                continue;
            }
            const FileDescriptor file(open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600));
            std::size_t done = 0;
            ssize_t written = 1;
            while (file && done < length && written > 0) {
                written =
                    write(file.get(), bytes.data() + done, std::min<std::size_t>(length - done, 1U << 20U));
                done += written > 0 ? static_cast<std::size_t>(written) : 0;
            }
            if (!file || written <= 0) {
                break;
            }
        }
        if (length < 1024) {
            return;
        }
    }
}

} // namespace ramdisk::test
