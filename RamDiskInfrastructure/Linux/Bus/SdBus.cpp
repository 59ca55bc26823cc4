#include "RamDiskInfrastructure/Linux/Bus/SdBus.h"

#include "RamDiskInfrastructure/Linux/Bus/MessageBus.h"

#include <optional>
#include <system_error>

#include <dlfcn.h>

namespace ramdisk {

namespace {

std::optional<SdBus> load() {
    // Never closed again: its threads' storage would outlive it.
    void* const library = dlopen("libsystemd.so.0", RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
        return std::nullopt;
    }
    SdBus functions;
#define RAMDISK_LOAD(name)                                                                                   \
    functions.name = reinterpret_cast<decltype(functions.name)>(dlsym(library, #name));                      \
    if (functions.name == nullptr) {                                                                         \
        return std::nullopt;                                                                                 \
    }
    RAMDISK_SD_BUS_FUNCTIONS(RAMDISK_LOAD)
#undef RAMDISK_LOAD
    return functions;
}

} // namespace

const SdBus& sdBus() {
    static const auto functions = load();
    if (!functions) {
        throw BusAbsent("libsystemd, by which services are asked, is not installed.");
    }
    return *functions;
}

void requireBus(int result) {
    if (result >= 0) {
        return;
    }
    const bool late = result == -ETIMEDOUT;
    throw BusCallError(late ? "org.freedesktop.DBus.Error.NoReply" : "org.freedesktop.DBus.Error.Failed",
                       late ? "It did not answer in time."
                            : std::error_code(-result, std::generic_category()).message() + ".");
}

} // namespace ramdisk
