#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace ramdisk {

/// A text is not a property list, or holds a type other than the reader needs.
class PropertyListError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One value inside a `PropertyList`, which must outlive it.
///
/// Every reader checks the type of what it reads, since the library underneath would return zeros and nulls.
class PropertyListNode {
public:
    /// The value under `key`; absent when the dictionary does not have it.
    /// @throws PropertyListError when this is no dictionary.
    [[nodiscard]] std::optional<PropertyListNode> find(const std::string& key) const;

    /// How many elements an array has.
    /// @throws PropertyListError when this is no array.
    [[nodiscard]] std::size_t size() const;
    [[nodiscard]] PropertyListNode at(std::size_t index) const;

    /// @throws PropertyListError when this is no text.
    [[nodiscard]] std::string string() const;

    /// A count. The library reads -5 as a huge number, so anything that does not fit into a signed 64-bit
    /// number is refused.
    /// @throws PropertyListError when this is no whole number, is negative or is that large.
    [[nodiscard]] std::uint64_t unsignedInteger() const;

    /// @throws PropertyListError when this is no whole number of 32 bits.
    [[nodiscard]] std::int32_t signedInteger32() const;

    /// @throws PropertyListError when this is neither true nor false.
    [[nodiscard]] bool boolean() const;

private:
    friend class PropertyList;
    PropertyListNode(void* node, std::string name) : node_(node), name_(std::move(name)) {}

    [[nodiscard]] std::uint64_t rawInteger() const;
    [[noreturn]] void refuse(const char* wanted) const;

    void* node_;
    /// The key or index by which the parent holds this value, for messages.
    std::string name_;
};

/// A property list in the XML or the binary form, owned.
class PropertyList {
public:
    /// @throws PropertyListError
    [[nodiscard]] static PropertyList parse(std::string_view data);

    [[nodiscard]] PropertyListNode root() const { return {root_.get(), "property list"}; }

private:
    struct Free {
        void operator()(void* node) const noexcept;
    };

    explicit PropertyList(void* root) : root_(root) {}

    std::unique_ptr<void, Free> root_;
};

} // namespace ramdisk
