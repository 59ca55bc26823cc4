#include "RamDiskInfrastructure/Linux/Records/FlatObject.h"

#include <nlohmann/json.hpp>

#include <algorithm>
#include <charconv>
#include <stdexcept>

namespace ramdisk {

namespace {

std::string bytesIn(std::string_view hexadecimalDigits) {
    if (hexadecimalDigits.size() % 2 != 0) {
        throw std::invalid_argument("half a byte");
    }
    std::string bytes;
    for (std::size_t index = 0; index < hexadecimalDigits.size(); index += 2) {
        const auto* digits = hexadecimalDigits.data() + index;
        unsigned byte = 0;
        if (std::from_chars(digits, digits + 2, byte, 16).ptr != digits + 2) {
            throw std::invalid_argument("no byte");
        }
        bytes.push_back(static_cast<char>(byte));
    }
    return bytes;
}

} // namespace

/// Follows the parser; refuses, by returning false, whatever a flat object does not have.
class FlatObject::Reader final : public nlohmann::json_sax<nlohmann::json> {
public:
    explicit Reader(FlatObject& object) : object_(object) {}

    bool null() override { return false; }
    bool boolean(bool value) override { return add(value); }
    bool number_integer(number_integer_t /*value*/) override { return false; }
    bool number_unsigned(number_unsigned_t value) override { return add(std::uint64_t{value}); }
    bool number_float(number_float_t /*value*/, const string_t& /*text*/) override { return false; }
    bool string(string_t& value) override {
        if (depth_ == 2) {
            return isBytes_ && addText(bytesIn(value));
        }
        return addText(std::move(value));
    }
    bool binary(binary_t& /*value*/) override { return false; }
    bool start_object(std::size_t /*elements*/) override {
        isBytes_ = false;
        return ++depth_ <= 2;
    }
    bool key(string_t& value) override {
        if (depth_ == 2) {
            isBytes_ = !isBytes_ && value == "bytes";
            return isBytes_;
        }
        key_ = std::move(value);
        return true;
    }
    bool end_object() override {
        // An object in place of a text must have had its bytes.
        return --depth_ == 0 || isBytes_;
    }
    bool start_array(std::size_t /*elements*/) override { return false; }
    bool end_array() override { return false; }
    bool parse_error(std::size_t /*position*/, const std::string& /*token*/,
                     const nlohmann::detail::exception& /*error*/) override {
        return false;
    }

private:
    bool addText(std::string value) {
        object_.members_.emplace_back(std::move(key_), std::move(value));
        return true;
    }
    template <typename Type>
    bool add(Type value) {
        if (depth_ != 1) {
            return false;
        }
        object_.members_.emplace_back(std::move(key_), value);
        return true;
    }

    FlatObject& object_;
    std::string key_;
    int depth_ = 0;
    bool isBytes_ = false;
};

FlatObject FlatObject::parse(std::string_view json) {
    FlatObject object;
    Reader reader(object);
    if (!nlohmann::json::sax_parse(json, &reader)) {
        throw std::invalid_argument("not a flat object");
    }
    return object;
}

const FlatObject::Value* FlatObject::find(std::string_view key) const {
    const auto found = std::find_if(members_.begin(), members_.end(),
                                    [key](const auto& member) { return member.first == key; });
    return found == members_.end() ? nullptr : &found->second;
}

template <typename Type>
const Type& FlatObject::get(std::string_view key) const {
    const auto* value = find(key);
    const auto* typed = value == nullptr ? nullptr : std::get_if<Type>(value);
    return typed == nullptr ? throw std::invalid_argument("missing or of another type") : *typed;
}

const std::string& FlatObject::text(std::string_view key) const {
    return get<std::string>(key);
}
std::uint64_t FlatObject::number(std::string_view key) const {
    return get<std::uint64_t>(key);
}
bool FlatObject::flag(std::string_view key) const {
    return get<bool>(key);
}

std::string hexadecimal(std::string_view bytes) {
    static constexpr std::string_view digits = "0123456789abcdef";
    std::string text;
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        text.push_back(digits[byte >> 4U]);
        text.push_back(digits[byte & 15U]);
    }
    return text;
}

} // namespace ramdisk
