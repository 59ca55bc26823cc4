#pragma once

// The error is every POSIX platform's; the adapters of this one find it here.
#include "RamDiskInfrastructure/Commands/SystemCallError.h" // IWYU pragma: export
