#include "tramdisk/Subcommand.h"

#include <algorithm>
#include <string_view>
#include <tuple>
#include <utility>

namespace ramdisk::cli {

namespace {

// A list of links is there before any constructor runs, which a container would not be.
constinit const RegisteredSubcommand* newest = nullptr;

} // namespace

RegisteredSubcommand::RegisteredSubcommand(HelpSection section, Subcommand subcommand) noexcept
    : section_(section),
      subcommand_(std::move(subcommand)),
      next_(std::exchange(newest, this)) {}

std::vector<const RegisteredSubcommand*> RegisteredSubcommand::all() {
    std::vector<const RegisteredSubcommand*> list;
    for (const auto* one = newest; one != nullptr; one = one->next_) {
        list.push_back(one);
    }
    const auto rank = [](const RegisteredSubcommand* one) {
        return std::tuple(one->section(), std::string_view(one->subcommand().name));
    };
    std::sort(list.begin(), list.end(),
              [&](const auto* left, const auto* right) { return rank(left) < rank(right); });
    return list;
}

} // namespace ramdisk::cli
