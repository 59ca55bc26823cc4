#pragma once

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

namespace ramdisk {

/// The error of a failed system call. It says what was being done to which path: "could not mount “/media/X”:
/// Operation not permitted". `code()` holds the errno.
class SystemCallError : public std::system_error {
public:
    /// With the calling thread's errno unless another is given.
    SystemCallError(const std::string& doing, const std::filesystem::path& path, int error = errno);
    explicit SystemCallError(const std::string& doing, int error = errno);

    /// The sentence alone, without what the standard library adds.
    [[nodiscard]] const char* what() const noexcept override { return text_.c_str(); }

    /// Whether the caller lacked a right or the kernel does not have the call, so that another way may still
    /// work.
    [[nodiscard]] bool isLackOfRights() const noexcept;

private:
    std::string text_;
};

} // namespace ramdisk
