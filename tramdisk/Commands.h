#pragma once

#include "RamDiskCore/Setup/RamDiskSessionServices.h"
#include "RamDiskInfrastructure/Platform/Platform.h"
#include "tramdisk/Console.h"
#include "tramdisk/Invocation.h"

namespace ramdisk::cli {

/// What every subcommand works with.
struct CommandContext {
    const Platform& platform;
    const RamDiskServices& services;
    const RamDiskSessionServices& session;
    const PlatformStores& stores;
    const Console& console;
};

/// The exit statuses that scripts rely on.
enum ExitStatus : int { succeeded = 0, failed = 1, wrongCommandLine = 2 };

/// Each carries out one subcommand and tells how it went. Failures that end it are thrown.
ExitStatus run(const CreateInvocation& invocation, const CommandContext& context);
ExitStatus run(const ValidateInvocation& invocation, const CommandContext& context);
ExitStatus run(const ListInvocation& invocation, const CommandContext& context);
ExitStatus run(const ShowInvocation& invocation, const CommandContext& context);
ExitStatus run(const UsersInvocation& invocation, const CommandContext& context);
ExitStatus run(const EjectInvocation& invocation, const CommandContext& context);
ExitStatus run(const RenameInvocation& invocation, const CommandContext& context);
ExitStatus run(const ConfigureInvocation& invocation, const CommandContext& context);
ExitStatus run(const MemoryInvocation& invocation, const CommandContext& context);
ExitStatus run(const StartupListInvocation& invocation, const CommandContext& context);
ExitStatus run(const StartupAddInvocation& invocation, const CommandContext& context);
ExitStatus run(const StartupRemoveInvocation& invocation, const CommandContext& context);
ExitStatus run(const StartupCreateInvocation& invocation, const CommandContext& context);
ExitStatus run(const SaveInvocation& invocation, const CommandContext& context);
ExitStatus run(const CopiesInvocation& invocation, const CommandContext& context);
ExitStatus run(const LoadInvocation& invocation, const CommandContext& context);
ExitStatus run(const SessionRunInvocation& invocation, const CommandContext& context);
ExitStatus run(const SessionStatusInvocation& invocation, const CommandContext& context);
ExitStatus run(const RedirectsListInvocation& invocation, const CommandContext& context);
ExitStatus run(const RedirectsAddInvocation& invocation, const CommandContext& context);
ExitStatus run(const RedirectsRemoveInvocation& invocation, const CommandContext& context);
ExitStatus run(const RedirectsRepairInvocation& invocation, const CommandContext& context);
ExitStatus run(const TemplatesListInvocation& invocation, const CommandContext& context);
ExitStatus run(const TemplatesSaveInvocation& invocation, const CommandContext& context);
ExitStatus run(const TemplatesRemoveInvocation& invocation, const CommandContext& context);
ExitStatus run(const SettingsListInvocation& invocation, const CommandContext& context);
ExitStatus run(const SettingsGetInvocation& invocation, const CommandContext& context);
ExitStatus run(const SettingsSetInvocation& invocation, const CommandContext& context);
ExitStatus run(const SettingsUnsetInvocation& invocation, const CommandContext& context);

} // namespace ramdisk::cli
