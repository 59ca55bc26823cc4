#pragma once

#include "tramdisk/GlobalOptions.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ramdisk::cli {

/// Where the program writes: results to standard output, everything else to standard error. Names and paths
/// are others' choice, so all texts but results and documents are made `printable`.
class Console {
public:
    explicit Console(const GlobalOptions& options);

    [[nodiscard]] bool wantsJSON() const noexcept { return options_.json; }
    [[nodiscard]] const GlobalOptions& options() const noexcept { return options_; }

    /// Asks a question on the terminal; only "y" and "yes" mean yes. Absent when nobody is there to answer.
    [[nodiscard]] static std::optional<bool> ask(std::string_view question);

    /// A result that was asked for.
    void print(std::string_view text) const;
    /// The one JSON document of this call.
    void printDocument(std::string_view document) const;
    /// Good news that `--quiet` and JSON leave out.
    void confirm(std::string_view text) const;
    /// Something worth knowing beside a success; `--quiet` leaves it out.
    void note(std::string_view text) const;
    void warn(std::string_view text) const;
    /// "tramdisk: " and the text, in one line.
    void fail(std::string_view text) const;
    /// The same with a line a sentence.
    void fail(const std::vector<std::string>& sentences) const;
    /// What the user can do about the failure just told.
    void hint(std::string_view text) const;

    /// Aligned columns under a heading; control characters in cells are made harmless.
    void printTable(const std::vector<std::string>& heading,
                    const std::vector<std::vector<std::string>>& rows) const;
    /// Names and values in two columns.
    void printFields(const std::vector<std::pair<std::string, std::string>>& fields) const;

private:
    GlobalOptions options_;
    bool hasColor_;
};

/// `text` with control characters and marks of direction replaced, so that a name can neither steer the
/// user's terminal nor pass for another one.
[[nodiscard]] std::string printable(std::string_view text);

} // namespace ramdisk::cli
