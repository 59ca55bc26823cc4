#include "tramdisk/CommandLine.h"

#include "RamDiskUI/ErrorText.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <algorithm>
#include <memory>

namespace ramdisk::cli {

namespace {

/// The texts of a disk's options as typed; read only after the whole line proved well formed.
struct SpecificationTexts {
    std::optional<std::string> name;
    std::optional<std::string> size;
    std::optional<std::string> format;
    std::optional<std::string> access;
    bool indexing = false;
    bool noIndexing = false;
    bool encrypt = false;
    bool noEncrypt = false;

    void addTo(CLI::App& app) {
        app.add_option("--name", name,
                       "Name of the volume (default: the first free of RAMDisk, RAMDisk 2, ...)");
        app.add_option(
            "--size", size,
            "Size, such as 512M, 2G or 1.5GB; a bare number means MB (default: as in the settings)");
        app.add_option("--format", format, "apfs, apfsx, hfs+, jhfs+, exfat or fat32");
        addSwitch(app, "encrypt", encrypt, noEncrypt, "Encrypt the volume (apfs and apfsx)");
        addSwitch(app, "indexing", indexing, noIndexing, "Let the desktop's search index read the volume");
        app.add_option("--access", access, "everyone or onlyMe");
    }

    /// An option that overrules a setting, either way.
    static void addSwitch(CLI::App& app, const std::string& name, bool& on, bool& off, const char* help) {
        auto* without = app.add_flag("--no-" + name, off, "Not so, whatever the settings say");
        app.add_flag("--" + name, on, help)->excludes(without);
    }

    static std::optional<bool> switched(bool on, bool off) {
        return on || off ? std::optional(on) : std::nullopt;
    }

    [[nodiscard]] SpecificationOptions read() const {
        SpecificationOptions options;
        options.name = name;
        options.isEncrypted = switched(encrypt, noEncrypt);
        options.isIndexingEnabled = switched(indexing, noIndexing);
        if (size) {
            try {
                options.size = ByteCount::parse(*size, ByteCount::Unit::mebibyte);
            } catch (const ByteCountParsingError& error) {
                throw UsageError(errorText(error));
            }
        }
        if (format) {
            options.fileSystem = fileSystemFromRawValue(*format);
            if (!options.fileSystem) {
                throw UsageError(fmt::format(
                    "“{}” is not a format. Use apfs, apfsx, hfs+, jhfs+, exfat or fat32.", *format));
            }
        }
        if (access) {
            options.access = volumeAccessFromRawValue(*access);
            if (!options.access) {
                throw UsageError(fmt::format("“{}” is not an access. Use everyone or onlyMe.", *access));
            }
        }
        return options;
    }
};

/// The arguments in the order that the parser wants, last first. It would take the argument after "--name="
/// for the name; split in two, such an option has the empty value that was meant.
std::vector<std::string> reversedArguments(int argumentCount, const char* const* arguments) {
    std::vector<std::string> list;
    bool areOptionsOver = false;
    for (int index = 1; index < argumentCount; ++index) {
        std::string_view argument = arguments[index];
        areOptionsOver = areOptionsOver || argument == "--";
        const bool hasEmptyValue =
            !areOptionsOver && argument.starts_with("--") && argument.find('=') == argument.size() - 1;
        if (hasEmptyValue) {
            argument.remove_suffix(1);
        }
        list.emplace_back(argument);
        if (hasEmptyValue) {
            list.emplace_back();
        }
    }
    std::reverse(list.begin(), list.end());
    return list;
}

/// Everything that the parser writes into.
struct Texts {
    GlobalOptions global;
    SpecificationTexts create;
    SpecificationTexts validate;
    bool dryRun = false;
    std::string showReference;
    std::string usersReference;
    std::vector<std::string> ejectReferences;
    bool ejectAll = false;
    std::string renameReference;
    std::string newName;
    std::string configureReference;
    bool indexingOn = false;
    bool indexingOff = false;
    bool force = false;
    std::string settingsAction = "list";
    std::optional<std::string> settingsKey;
    std::optional<std::string> settingsValue;
};

class Parser {
public:
    Parser() : app_("Makes, lists and ejects RAM disks: volumes whose storage is main memory.", "tramdisk") {
        app_.fallthrough();
        app_.require_subcommand(0, 1);
        app_.set_version_flag("--version", "tramdisk " TRAMDISK_VERSION);
        app_.set_help_flag("--help,-h", "Show this help");
        app_.add_flag("--json", texts_.global.json, "One JSON document on standard output");
        app_.add_flag("--no-color", texts_.global.noColor, "No colors");
        app_.add_flag("--quiet,-q", texts_.global.quiet, "Print results and errors only");
        addSubcommands();
    }

    Invocation parse(int argumentCount, const char* const* arguments) {
        try {
            app_.parse(reversedArguments(argumentCount, arguments));
        } catch (const CLI::CallForHelp&) {
            return {texts_.global, PrintInvocation{app_.help()}};
        } catch (const CLI::CallForAllHelp&) {
            return {texts_.global, PrintInvocation{app_.help("", CLI::AppFormatMode::All)}};
        } catch (const CLI::CallForVersion&) {
            return {texts_.global, PrintInvocation{app_.version() + "\n"}};
        } catch (const CLI::ExtrasError&) {
            throw UsageError(unexpectedArgument());
        } catch (const CLI::ParseError& error) {
            throw UsageError(firstLine(error.what()));
        }
        if (app_.get_subcommands().empty()) {
            throw MissingSubcommand(app_.help());
        }
        return {texts_.global, readers_.at(app_.get_subcommands().front())()};
    }

private:
    using Command = decltype(Invocation::command);

    CLI::App& add(const char* name, const char* help, std::function<Command()> reader) {
        auto* subcommand = app_.add_subcommand(name, help);
        readers_[subcommand] = std::move(reader);
        return *subcommand;
    }

    void addSubcommands() {
        auto& create = add("create", "Make a RAM disk", [this] {
            return CreateInvocation{texts_.create.read(), texts_.dryRun};
        });
        texts_.create.addTo(create);
        create.add_flag("--dry-run", texts_.dryRun, "Print what would be done, and do nothing");

        auto& validate = add("validate", "Check a request for a disk without making it",
                             [this] { return ValidateInvocation{texts_.validate.read()}; });
        texts_.validate.addTo(validate);

        add("list", "List the RAM disks", [] { return ListInvocation{}; });

        auto& show = add("show", "Show one disk",
                         [this] { return ShowInvocation{RamDiskReference::parse(texts_.showReference)}; });
        addReference(show, texts_.showReference);

        auto& users = add("users", "List the processes that keep a disk busy",
                          [this] { return UsersInvocation{RamDiskReference::parse(texts_.usersReference)}; });
        addReference(users, texts_.usersReference);

        auto& eject = add("eject", "Remove disks; their contents are gone", [this] { return readEject(); });
        eject.add_option("REF", texts_.ejectReferences, "Devices, mount points or names");
        eject.add_flag("--all", texts_.ejectAll, "Eject all of your disks");
        eject.add_flag("--force", texts_.force, "Eject also what is in use");

        auto& rename = add("rename", "Give a disk another name", [this] {
            return RenameInvocation{RamDiskReference::parse(texts_.renameReference), texts_.newName};
        });
        addReference(rename, texts_.renameReference);
        rename.add_option("NAME", texts_.newName, "The new name")->required();

        auto& configure = add("configure", "Change a standing disk", [this] { return readConfigure(); });
        addReference(configure, texts_.configureReference);
        auto* off =
            configure.add_flag("--no-indexing", texts_.indexingOff, "Keep the search index off the volume");
        configure.add_flag("--indexing", texts_.indexingOn, "Let the desktop's search index read the volume")
            ->excludes(off);

        add("memory", "Show how the memory is used", [] { return MemoryInvocation{}; });

        auto& settings = add("settings", "Show and change the settings", [this] { return readSettings(); });
        settings.add_option("ACTION", texts_.settingsAction, "list, get KEY, set KEY VALUE or unset KEY");
        settings.add_option("KEY", texts_.settingsKey, "The name of a setting");
        settings.add_option("VALUE", texts_.settingsValue, "What to set it to");
    }

    static void addReference(CLI::App& app, std::string& reference) {
        app.add_option("REF", reference, "A device, a mount point or a name")->required();
    }

    Command readSettings() const {
        const auto& action = texts_.settingsAction;
        if (action != "list" && action != "get" && action != "set" && action != "unset") {
            throw UsageError(
                fmt::format("“{}” is nothing to do with settings. Use list, get, set or unset.", action));
        }
        const bool needsKey = action != "list";
        const bool needsValue = action == "set";
        if (needsKey != texts_.settingsKey.has_value() || needsValue != texts_.settingsValue.has_value()) {
            throw UsageError(fmt::format("Use `tramdisk settings {}{}{}`.", action, needsKey ? " KEY" : "",
                                         needsValue ? " VALUE" : ""));
        }
        if (!needsKey) {
            return SettingsListInvocation{};
        }
        const auto setting = Setting::named(*texts_.settingsKey);
        if (!setting) {
            throw UsageError(fmt::format("“{}” is not a setting. Run `tramdisk settings list` to see them.",
                                         *texts_.settingsKey));
        }
        if (action == "get") {
            return SettingsGetInvocation{*setting};
        }
        if (action == "unset") {
            return SettingsUnsetInvocation{*setting};
        }
        auto value = setting->valueFrom(*texts_.settingsValue);
        if (!value) {
            throw UsageError(fmt::format("“{}” is not a value of {}. Use {}.", *texts_.settingsValue,
                                         setting->name(), setting->allowedValues()));
        }
        return SettingsSetInvocation{*setting, std::move(*value)};
    }

    Command readConfigure() const {
        if (!texts_.indexingOn && !texts_.indexingOff) {
            throw UsageError("Say what to change: --indexing or --no-indexing.");
        }
        return ConfigureInvocation{RamDiskReference::parse(texts_.configureReference),
                                   texts_.indexingOn ? SearchIndexing::on : SearchIndexing::off};
    }

    Command readEject() const {
        if (texts_.ejectAll != texts_.ejectReferences.empty()) {
            throw UsageError("Name the disks to eject, or give --all.");
        }
        EjectInvocation invocation;
        for (const auto& text : texts_.ejectReferences) {
            invocation.references.push_back(RamDiskReference::parse(text));
        }
        invocation.force = texts_.force ? Force::yes : Force::no;
        return invocation;
    }

    [[nodiscard]] std::string unexpectedArgument() const {
        const auto chosen = app_.get_subcommands();
        auto remaining = app_.remaining();
        for (const auto* subcommand : chosen) {
            const auto more = subcommand->remaining();
            remaining.insert(remaining.end(), more.begin(), more.end());
        }
        const auto argument = remaining.empty() ? std::string() : remaining.front();
        if (chosen.empty() && !argument.starts_with("-")) {
            return fmt::format("“{}” is not a subcommand. Run `tramdisk --help` to see them.", argument);
        }
        const auto command =
            chosen.empty() ? std::string("tramdisk") : "tramdisk " + chosen.front()->get_name();
        if (argument.starts_with("-")) {
            return fmt::format("“{}” is not an option of `{}`.", argument, command);
        }
        return fmt::format("`{}` takes no further argument “{}”.", command, argument);
    }

    static std::string firstLine(std::string_view text) {
        return std::string(text.substr(0, text.find('\n')));
    }

    CLI::App app_;
    Texts texts_;
    std::map<const CLI::App*, std::function<Command()>> readers_;
};

} // namespace

Invocation parseCommandLine(int argumentCount, const char* const* arguments) {
    return Parser().parse(argumentCount, arguments);
}

} // namespace ramdisk::cli
