#pragma once

#include <string>

#include <systemd/sd-bus.h>

namespace ramdisk {

/// The functions of libsystemd that this program uses, under the library's names.
struct SdBus {
#define RAMDISK_SD_BUS_FUNCTIONS(X)                                                                          \
    X(sd_bus_open_user)                                                                                      \
    X(sd_bus_open_system)                                                                                    \
    X(sd_bus_close_unref)                                                                                    \
    X(sd_bus_is_ready)                                                                                       \
    X(sd_bus_process)                                                                                        \
    X(sd_bus_get_fd)                                                                                         \
    X(sd_bus_get_events)                                                                                     \
    X(sd_bus_get_timeout)                                                                                    \
    X(sd_bus_call)                                                                                           \
    X(sd_bus_error_free)                                                                                     \
    X(sd_bus_message_new_method_call)                                                                        \
    X(sd_bus_message_unref)                                                                                  \
    X(sd_bus_message_sensitive)                                                                              \
    X(sd_bus_message_append)                                                                                 \
    X(sd_bus_message_append_array)                                                                           \
    X(sd_bus_message_open_container)                                                                         \
    X(sd_bus_message_close_container)                                                                        \
    X(sd_bus_message_enter_container)                                                                        \
    X(sd_bus_message_exit_container)                                                                         \
    X(sd_bus_message_at_end)                                                                                 \
    X(sd_bus_message_read_basic)                                                                             \
    X(sd_bus_message_read_array)                                                                             \
    X(sd_bus_message_skip)                                                                                   \
    X(sd_bus_message_is_signal)                                                                              \
    X(sd_bus_message_get_path)                                                                               \
    X(sd_bus_message_get_destination)
#define RAMDISK_MEMBER(name) decltype(&::name) name = nullptr;
    RAMDISK_SD_BUS_FUNCTIONS(RAMDISK_MEMBER)
#undef RAMDISK_MEMBER
};

/// Loads the library at the first call. @throws BusAbsent when it is not installed or too old.
[[nodiscard]] const SdBus& sdBus();

/// @throws BusCallError when `result`, what a function returned, is a negative errno.
void requireBus(int result);

} // namespace ramdisk
