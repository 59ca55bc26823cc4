#pragma once

#include "RamDiskCore/Values/EnumerationTable.h"
#include "RamDiskInfrastructure/Commands/FileDescriptor.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace ramdisk {

/// What a running session is doing.
enum class SessionPhase { launching, running, quitting };
template <>
inline constexpr auto
    enumerators<SessionPhase> = enumerationTable<Named<SessionPhase>>({{SessionPhase::launching, "launching"},
                                                                       {SessionPhase::running, "running"},
                                                                       {SessionPhase::quitting, "quitting"}});

struct SessionState {
    std::int32_t processID = 0;
    SessionPhase phase = SessionPhase::launching;

    friend bool operator==(const SessionState&, const SessionState&) = default;
};

/// The right to be this user's session. There is one at a time. It ends with the process, however that ends.
/// What a session says about itself is believed only while it lives.
class RunningSession {
public:
    /// Absent when another process is the session.
    /// @throws std::system_error
    [[nodiscard]] static std::optional<RunningSession> begin(const std::filesystem::path& applicationSupport);

    /// What the session of this user is doing; absent when there is none.
    [[nodiscard]] static std::optional<SessionState> find(const std::filesystem::path& applicationSupport);

    RunningSession(RunningSession&&) noexcept = default;
    RunningSession& operator=(RunningSession&&) = delete;
    ~RunningSession();

    /// Tells other processes the phase. A failure to do so stops nothing.
    void tell(SessionPhase phase) const noexcept;

private:
    RunningSession(std::filesystem::path file, FileDescriptor lock);

    std::filesystem::path file_;
    FileDescriptor lock_;
};

} // namespace ramdisk
