#pragma once

#include "RamDiskInfrastructure/Trees/TreeUpdate.h"
#include "tests/support/Testing.h"

namespace ramdisk::test {

/// Everything about every item below a folder and the folder itself, read by the plainest means, by path.
[[nodiscard]] std::map<std::string, std::string> describeTree(const std::filesystem::path& root);

/// Where two trees differ, a line each; empty when they are the same.
[[nodiscard]] std::string differences(const std::filesystem::path& left, const std::filesystem::path& right);

/// Fills a folder with one of everything that a file system can hold.
void makeOddTree(const std::filesystem::path& root);

[[nodiscard]] FileDescriptor openTree(const std::filesystem::path& root);
[[nodiscard]] TreeManifest scanTree(const std::filesystem::path& root);
/// Scans both trees and makes the second like the first.
void updateTree(const std::filesystem::path& source, const std::filesystem::path& target,
                Extras extras = Extras::remove, PageCache pageCache = PageCache::use,
                HugePages hugePages = HugePages::none);

/// An attribute of the item itself, never of what it links to.
void setAttribute(const std::filesystem::path& path, const std::string& name, const std::string& value);
/// Writes some bytes into a file that exists, and puts its dates back.
void overwrite(const std::filesystem::path& path, off_t place, const std::string& bytes);

} // namespace ramdisk::test
