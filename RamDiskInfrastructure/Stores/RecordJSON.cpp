#include "RamDiskInfrastructure/Stores/RecordJSON.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Stores/CacheFolders.h"
#include "RamDiskInfrastructure/Stores/JSONFields.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <limits>
#include <type_traits>

namespace ramdisk {

namespace {

using Target = RedirectTarget;
using State = RedirectRestoreState;

/// The key of a payload that has no name.
constexpr auto payload = "_0";

template <typename Value, typename Read>
std::optional<Value> optionalFrom(const Json& object, const char* key, Read read) {
    const auto* json = optionalMember(object, key);
    return json == nullptr ? std::nullopt : std::optional<Value>(read(*json));
}

template <typename Value, typename Read>
std::vector<Value> arrayFrom(const Json& json, Read read) {
    if (!json.is_array()) {
        throw DecodingError("a list is missing");
    }
    std::vector<Value> list;
    list.reserve(json.size());
    for (const auto& element : json) {
        list.push_back(read(element));
    }
    return list;
}

template <typename Value>
Value known(std::optional<Value> value) {
    if (!value) {
        throw DecodingError("a value that is not known");
    }
    return *value;
}

FileSystem fileSystemFrom(const Json& json) {
    return known(fileSystemFromRawValue(textFrom(json)));
}
VolumeAccess accessFrom(const Json& json) {
    return known(volumeAccessFromRawValue(textFrom(json)));
}

Json optionalText(const char* key, const std::optional<std::string>& text) {
    auto json = Json::object();
    if (text) {
        json[key] = *text;
    }
    return json;
}

Json optionalURL(const char* key, const std::optional<std::filesystem::path>& path) {
    auto json = Json::object();
    if (path) {
        json[key] = fileURLToJson(*path);
    }
    return json;
}

template <typename Folder>
void addWhereabouts(Json& content, const Folder& state) {
    if (state.place) {
        content["place"] = fileURLToJson(*state.place);
    }
    if (state.inode) {
        content["inode"] = *state.inode;
    }
}

std::uint64_t inodeFrom(const Json& json) {
    return unsignedFrom(json);
}

/// The one member that names the case; other members may come with a newer version.
template <typename Value, std::size_t count>
Value caseFrom(const Json& json, const std::pair<const char*, Value (*)(const Json&)> (&cases)[count]) {
    std::optional<Value> found;
    for (const auto& [name, read] : cases) {
        const auto* content = optionalMember(json, name);
        if (content == nullptr) {
            continue;
        }
        if (found || !content->is_object()) {
            throw DecodingError("a value with two cases, or with a damaged one");
        }
        found = read(*content);
    }
    return known(std::move(found));
}

struct TargetJSON {
    Json operator()(const Target::XcodeDerivedData&) const { return {{"xcodeDerivedData", Json::object()}}; }
    Json operator()(const Target::NpmCache&) const { return {{"npmCache", Json::object()}}; }
    Json operator()(const Target::Folder& target) const { return {{"folder", {{payload, target.path}}}}; }
    Json operator()(const Target::Cache& target) const {
        if (!isStoredByName(target.cache)) {
            return (*this)(Target::Folder{folderOfCache(target.cache).string()});
        }
        return {{"cache", {{payload, rawValue(target.cache)}}}};
    }
    Json operator()(const Target::TemporaryFolder&) const { return {{"temporaryFolder", Json::object()}}; }
};

struct StateJSON {
    Json operator()(const State::Preference& state) const {
        return {{"preference", optionalText(payload, state.value)}};
    }
    Json operator()(const State::ConfigLine& state) const {
        return {{"configLine", optionalText(payload, state.line)}};
    }
    Json operator()(const State::MovedFolder& state) const {
        auto content = optionalURL("backup", state.backup);
        addWhereabouts(content, state);
        return {{"movedFolder", content}};
    }
    Json operator()(const State::LinkedFolder& state) const {
        auto content = optionalURL("backup", state.backup);
        content["link"] = state.link;
        addWhereabouts(content, state);
        return {{"linkedFolder", content}};
    }
    Json operator()(const State::EnvironmentVariable& state) const {
        return {{"environmentVariable", optionalText(payload, state.value)}};
    }
};

/// The entries of a text that is known to be a JSON array, as they are written.
std::vector<std::string_view> entriesOf(std::string_view array) {
    constexpr std::string_view blanks = " \t\r\n";
    std::vector<std::string_view> entries;
    int depth = 0;
    bool isText = false;
    std::size_t begin = 0;
    const auto finish = [&](std::size_t end) {
        auto entry = array.substr(begin, end - begin);
        entry.remove_prefix(std::min(entry.find_first_not_of(blanks), entry.size()));
        entry = entry.substr(0, entry.find_last_not_of(blanks) + 1);
        if (!entry.empty()) {
            entries.push_back(entry);
        }
        begin = end + 1;
    };
    for (std::size_t index = 0; index < array.size(); ++index) {
        const char letter = array[index];
        if (isText) {
            index += letter == '\\' ? 1 : 0;
            isText = letter != '"';
        } else if (letter == '"') {
            isText = true;
        } else if (letter == '[' || letter == '{') {
            begin = depth++ == 0 ? index + 1 : begin;
        } else if (letter == ']' || letter == '}') {
            if (--depth == 0) {
                finish(index);
            }
        } else if (letter == ',' && depth == 1) {
            finish(index);
        }
    }
    return entries;
}

template <typename Element>
Element recordFrom(const Json& json) {
    if constexpr (std::is_same_v<Element, RamDiskProfile>) {
        return profileFrom(json);
    } else if constexpr (std::is_same_v<Element, DiskTemplate>) {
        return templateFrom(json);
    } else {
        return redirectFrom(json);
    }
}

} // namespace

Json toJSON(const RamDiskProfile& value) {
    Json json;
    json["id"] = value.id.text();
    json["name"] = value.name;
    json["size"] = toJSON(value.size);
    json["fileSystem"] = rawValue(value.fileSystem);
    json["isEncrypted"] = value.isEncrypted;
    json["isIndexingEnabled"] = value.isIndexingEnabled;
    json["access"] = rawValue(value.access);
    json["keepsContents"] = value.keepsContents;
    if (value.seedFolder) {
        json["seedFolder"] = fileURLToJson(*value.seedFolder);
    }
    json["previousCopies"] = value.previousCopies;
    json["folders"] = value.folders;
    return json;
}

Json toJSON(const RamDiskSetup& value) {
    Json json;
    json["specification"] = toJSON(value.specification);
    json["createsAtLaunch"] = value.createsAtLaunch;
    json["keepsFiles"] = value.keepsFiles;
    if (value.seedFolder) {
        json["seedFolder"] = fileURLToJson(*value.seedFolder);
    }
    auto& redirects = json["redirects"] = Json::array();
    for (const auto& target : value.redirects) {
        redirects.push_back(toJSON(target));
    }
    json["folders"] = value.folders;
    return json;
}

Json toJSON(const DiskTemplate& value) {
    return {{"id", value.id.text()}, {"title", value.title()}, {"setup", toJSON(value.setup)}};
}

Json toJSON(const RedirectTarget& value) {
    return std::visit(TargetJSON{}, value.value);
}
Json toJSON(const RedirectRestoreState& value) {
    return std::visit(StateJSON{}, value.value);
}

Json toJSON(const FolderRedirect& value) {
    Json json;
    json["id"] = value.id.text();
    json["diskName"] = value.diskName;
    json["target"] = toJSON(value.target);
    if (value.restoreState) {
        json["restoreState"] = toJSON(*value.restoreState);
    }
    if (value.applying) {
        json["applying"] = *value.applying;
    }
    return json;
}

ByteCount byteCountFrom(const Json& json) {
    return {unsignedFrom(member(json, "bytes"))};
}

RamDiskSpecification specificationFrom(const Json& json) {
    return {.name = textFrom(member(json, "name")),
            .size = byteCountFrom(member(json, "size")),
            .fileSystem = fileSystemFrom(member(json, "fileSystem")),
            .isIndexingEnabled = booleanFrom(member(json, "isIndexingEnabled")),
            .isEncrypted = booleanFrom(member(json, "isEncrypted")),
            .access = accessFrom(member(json, "access"))};
}

RamDiskProfile profileFrom(const Json& json) {
    return {.id = uuidFrom(member(json, "id")),
            .name = textFrom(member(json, "name")),
            .size = byteCountFrom(member(json, "size")),
            .fileSystem = fileSystemFrom(member(json, "fileSystem")),
            .isEncrypted = booleanFrom(member(json, "isEncrypted")),
            .isIndexingEnabled = booleanFrom(member(json, "isIndexingEnabled")),
            .access = accessFrom(member(json, "access")),
            .keepsContents = booleanFrom(member(json, "keepsContents")),
            .seedFolder = optionalFrom<std::filesystem::path>(json, "seedFolder", fileURLFrom),
            .previousCopies = static_cast<std::uint32_t>(
                unsignedFrom(member(json, "previousCopies"), std::numeric_limits<std::uint32_t>::max())),
            .folders = arrayFrom<std::string>(member(json, "folders"), textFrom)};
}

RamDiskSetup setupFrom(const Json& json) {
    return {.specification = specificationFrom(member(json, "specification")),
            .createsAtLaunch = booleanFrom(member(json, "createsAtLaunch")),
            .keepsFiles = booleanFrom(member(json, "keepsFiles")),
            .seedFolder = optionalFrom<std::filesystem::path>(json, "seedFolder", fileURLFrom),
            .redirects = arrayFrom<RedirectTarget>(member(json, "redirects"), redirectTargetFrom),
            .folders = arrayFrom<std::string>(member(json, "folders"), textFrom)};
}

DiskTemplate templateFrom(const Json& json) {
    return {uuidFrom(member(json, "id")), textFrom(member(json, "title")), setupFrom(member(json, "setup"))};
}

RedirectTarget redirectTargetFrom(const Json& json) {
    return caseFrom<Target>(
        json,
        {{"xcodeDerivedData", [](const Json&) { return Target{Target::XcodeDerivedData{}}; }},
         {"npmCache", [](const Json&) { return Target{Target::NpmCache{}}; }},
         {"folder",
          [](const Json& content) { return Target{Target::Folder{textFrom(member(content, payload))}}; }},
         {"cache",
          [](const Json& content) {
              const auto cache = known(knownCacheFromRawValue(textFrom(member(content, payload))));
              return Target{
                  Target::Cache{known(isStoredByName(cache) ? std::optional(cache) : std::nullopt)}};
          }},
         {"temporaryFolder", [](const Json&) { return Target{Target::TemporaryFolder{}}; }}});
}

RedirectRestoreState restoreStateFrom(const Json& json) {
    return caseFrom<State>(
        json,
        {{"preference",
          [](const Json& content) {
              return State{State::Preference{optionalFrom<std::string>(content, payload, textFrom)}};
          }},
         {"configLine",
          [](const Json& content) {
              return State{State::ConfigLine{optionalFrom<std::string>(content, payload, textFrom)}};
          }},
         {"movedFolder",
          [](const Json& content) {
              return State{
                  State::MovedFolder{optionalFrom<std::filesystem::path>(content, "backup", fileURLFrom),
                                     optionalFrom<std::filesystem::path>(content, "place", fileURLFrom),
                                     optionalFrom<std::uint64_t>(content, "inode", inodeFrom)}};
          }},
         {"linkedFolder",
          [](const Json& content) {
              return State{
                  State::LinkedFolder{optionalFrom<std::filesystem::path>(content, "backup", fileURLFrom),
                                      textFrom(member(content, "link")),
                                      optionalFrom<std::filesystem::path>(content, "place", fileURLFrom),
                                      optionalFrom<std::uint64_t>(content, "inode", inodeFrom)}};
          }},
         {"environmentVariable", [](const Json& content) {
              return State{State::EnvironmentVariable{optionalFrom<std::string>(content, payload, textFrom)}};
          }}});
}

FolderRedirect redirectFrom(const Json& json) {
    return {.id = uuidFrom(member(json, "id")),
            .diskName = textFrom(member(json, "diskName")),
            .target = redirectTargetFrom(member(json, "target")),
            .restoreState = optionalFrom<State>(json, "restoreState", restoreStateFrom),
            .applying = optionalFrom<bool>(json, "applying", booleanFrom)};
}

template <typename Element>
std::string encodeList(const std::vector<Element>& list, const std::vector<ForeignEntry>& foreign) {
    // What comes before the first entry, then each entry with what follows it.
    std::vector<std::string> parts(list.size() + 1);
    const auto add = [](std::string& part, const std::string& text) {
        part += part.empty() ? text : "," + text;
    };
    try {
        for (std::size_t index = 0; index < list.size(); ++index) {
            parts[index + 1] = toJSON(list[index]).dump();
        }
    } catch (const Json::type_error&) {
        throw std::invalid_argument("The list holds a text that is not valid UTF-8, so it cannot be stored.");
    }
    for (const auto& entry : foreign) {
        std::size_t place = 0;
        for (auto id = entry.after.begin(); place == 0 && id != entry.after.end(); ++id) {
            const auto found = std::find_if(list.begin(), list.end(),
                                            [&](const Element& element) { return element.id == *id; });
            place = found == list.end() ? 0 : static_cast<std::size_t>(found - list.begin()) + 1;
        }
        add(parts[place], entry.text);
    }
    std::string all;
    for (const auto& part : parts) {
        if (!part.empty()) {
            add(all, part);
        }
    }
    return "[" + all + "]";
}

template <typename Element>
std::optional<StoredList<Element>> decodeEntries(std::string_view text) {
    if (const auto whole = Json::parse(text, nullptr, false); !whole.is_array()) {
        return std::nullopt;
    }
    StoredList<Element> list;
    std::vector<UUID> before;
    for (const auto entry : entriesOf(text)) {
        try {
            list.entries.push_back(recordFrom<Element>(Json::parse(entry)));
            before.insert(before.begin(), list.entries.back().id);
        } catch (const DecodingError&) {
            traceCaught("stores", "an entry of a stored list is not understood and kept as it is");
            list.foreign.push_back({std::string(entry), before});
        }
    }
    return list;
}

template <typename Element>
std::optional<std::vector<Element>> decodeList(std::string_view text) {
    auto list = decodeEntries<Element>(text);
    return list && list->foreign.empty() ? std::optional(std::move(list->entries)) : std::nullopt;
}

template std::string encodeList(const std::vector<RamDiskProfile>&, const std::vector<ForeignEntry>&);
template std::string encodeList(const std::vector<DiskTemplate>&, const std::vector<ForeignEntry>&);
template std::string encodeList(const std::vector<FolderRedirect>&, const std::vector<ForeignEntry>&);
template std::optional<StoredList<RamDiskProfile>> decodeEntries(std::string_view);
template std::optional<StoredList<DiskTemplate>> decodeEntries(std::string_view);
template std::optional<StoredList<FolderRedirect>> decodeEntries(std::string_view);
template std::optional<std::vector<RamDiskProfile>> decodeList(std::string_view);
template std::optional<std::vector<DiskTemplate>> decodeList(std::string_view);
template std::optional<std::vector<FolderRedirect>> decodeList(std::string_view);

} // namespace ramdisk
