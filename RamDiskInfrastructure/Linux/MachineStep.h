#pragma once

// Steps are every platform's; the adapters of this one find them here.
#include "RamDiskInfrastructure/Commands/MachineStep.h" // IWYU pragma: export
