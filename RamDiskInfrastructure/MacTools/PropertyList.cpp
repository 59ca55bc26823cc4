#include "RamDiskInfrastructure/MacTools/PropertyList.h"

#include <fmt/format.h>
#include <plist/plist.h>

#include <limits>

namespace ramdisk {

namespace {

/// Far above what any tool prints; the library counts in 32 bits.
constexpr std::size_t largestDocument = 64U << 20U;
/// The library frees nested values by recursion, so a document of nothing but brackets would exhaust the
/// stack.
constexpr int deepestNesting = 512;

bool startsTag(std::string_view text, std::string_view tag) {
    return text.substr(0, tag.size()) == tag;
}

bool isNestedTooDeeply(std::string_view xml) {
    int depth = 0;
    for (auto at = xml.find('<'); at != std::string_view::npos; at = xml.find('<', at + 1)) {
        const auto rest = xml.substr(at + 1, 6);
        if (startsTag(rest, "dict") || startsTag(rest, "array")) {
            if (++depth > deepestNesting) {
                return true;
            }
        } else if (startsTag(rest, "/dict") || startsTag(rest, "/array")) {
            --depth;
        }
    }
    return false;
}

} // namespace

void PropertyList::Free::operator()(void* node) const noexcept {
    plist_free(node);
}

PropertyList PropertyList::parse(std::string_view data) {
    if (data.size() > largestDocument) {
        throw PropertyListError("The property list is too long.");
    }
    const auto length = static_cast<std::uint32_t>(data.size());
    plist_t root = nullptr;
    if (data.substr(0, 6) == "bplist") {
        plist_from_bin(data.data(), length, &root);
    } else if (!isNestedTooDeeply(data)) {
        // The library's reader of texts looks for a terminator.
        const std::string text(data);
        plist_from_xml(text.c_str(), length, &root);
    }
    if (root == nullptr) {
        throw PropertyListError("The property list cannot be read.");
    }
    return PropertyList(root);
}

std::optional<PropertyListNode> PropertyListNode::find(const std::string& key) const {
    if (plist_get_node_type(node_) != PLIST_DICT) {
        refuse("a dictionary");
    }
    auto* const value = plist_dict_get_item(node_, key.c_str());
    if (value == nullptr) {
        return std::nullopt;
    }
    return PropertyListNode(value, key);
}

std::size_t PropertyListNode::size() const {
    if (plist_get_node_type(node_) != PLIST_ARRAY) {
        refuse("an array");
    }
    return plist_array_get_size(node_);
}

PropertyListNode PropertyListNode::at(std::size_t index) const {
    auto* const value =
        index < size() ? plist_array_get_item(node_, static_cast<std::uint32_t>(index)) : nullptr;
    if (value == nullptr) {
        refuse("an array of that many elements");
    }
    return {value, fmt::format("{}[{}]", name_, index)};
}

std::string PropertyListNode::string() const {
    std::uint64_t length = 0;
    const char* const text =
        plist_get_node_type(node_) == PLIST_STRING ? plist_get_string_ptr(node_, &length) : nullptr;
    if (text == nullptr) {
        refuse("a text");
    }
    return {text, static_cast<std::size_t>(length)};
}

std::uint64_t PropertyListNode::unsignedInteger() const {
    const auto value = rawInteger();
    if (value > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        refuse("a number in range");
    }
    return value;
}

std::int32_t PropertyListNode::signedInteger32() const {
    const auto value = static_cast<std::int64_t>(rawInteger());
    if (value < std::numeric_limits<std::int32_t>::min()
        || value > std::numeric_limits<std::int32_t>::max()) {
        refuse("a number in range");
    }
    return static_cast<std::int32_t>(value);
}

bool PropertyListNode::boolean() const {
    if (plist_get_node_type(node_) != PLIST_BOOLEAN) {
        refuse("true or false");
    }
    std::uint8_t value = 0;
    plist_get_bool_val(node_, &value);
    return value != 0;
}

std::uint64_t PropertyListNode::rawInteger() const {
    if (plist_get_node_type(node_) != PLIST_UINT) {
        refuse("a whole number");
    }
    std::uint64_t value = 0;
    plist_get_uint_val(node_, &value);
    return value;
}

void PropertyListNode::refuse(const char* wanted) const {
    throw PropertyListError(fmt::format("The property list cannot be read: “{}” is not {}.", name_, wanted));
}

} // namespace ramdisk
