#include "RamDiskInfrastructure/Commands/SecretInput.h"

#include "RamDiskCore/Values/VolumePassphrase.h"

namespace ramdisk {

namespace {

struct SecretCommand {
    SystemCommand command;

    SecretCommand(const SystemCommand& plain, std::string_view secret) : command(plain) {
        command.standardInput.emplace(secret);
    }
    SecretCommand(const SecretCommand&) = delete;
    SecretCommand& operator=(const SecretCommand&) = delete;
    ~SecretCommand() { wipe(*command.standardInput); }
};

} // namespace

CommandOutput runWithSecretInput(CommandRunning& runner, const SystemCommand& command,
                                 std::string_view secret) {
    const SecretCommand withSecret(command, secret);
    return runner.runChecked(withSecret.command);
}

} // namespace ramdisk
