#include "RamDiskInfrastructure/Stores/RunningSession.h"

#include "RamDiskCore/Ports/Tracing.h"
#include "RamDiskInfrastructure/Stores/FileLock.h"
#include "RamDiskInfrastructure/Stores/StoreFiles.h"
#include "RamDiskInfrastructure/Stores/StoredFile.h"

#include <nlohmann/json.hpp>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <thread>

#include <unistd.h>

namespace ramdisk {

namespace {

FileLock lockIn(const std::filesystem::path& folder) {
    return FileLock(folder / "Session.lock");
}

std::filesystem::path stateFile(const std::filesystem::path& folder) {
    return folder / "Session.json";
}

} // namespace

std::optional<RunningSession> RunningSession::begin(const std::filesystem::path& applicationSupport) {
    const auto file = lockIn(applicationSupport);
    auto lock = file.tryAcquire();
    // Who only looks whether there is a session holds the lock for a moment as well.
    for (int attempt = 0; !lock && attempt < 100; ++attempt) {
        const auto other = find(applicationSupport);
        if (other && other->processID != 0) {
            return std::nullopt;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        lock = file.tryAcquire();
    }
    if (!lock) {
        return std::nullopt;
    }
    RunningSession session(stateFile(applicationSupport), std::move(*lock));
    session.tell(SessionPhase::launching);
    return session;
}

std::optional<SessionState> RunningSession::find(const std::filesystem::path& applicationSupport) {
    if (!lockIn(applicationSupport).isHeld()) {
        return std::nullopt;
    }
    SessionState state;
    const auto text = readStoredFile(stateFile(applicationSupport));
    const auto json = nlohmann::json::parse(text.value_or(""), nullptr, false);
    if (json.is_object() && json.contains("processID") && json["processID"].is_number_integer()) {
        state.processID = json["processID"].get<std::int32_t>();
    }
    if (json.is_object()) {
        state.phase = fromRawValue<SessionPhase>(json.value("phase", "")).value_or(state.phase);
    }
    if (kill(state.processID, 0) != 0 && errno == ESRCH) {
        // What a session that was killed told last; its successor has not told anything yet.
        return SessionState{};
    }
    return state;
}

RunningSession::RunningSession(std::filesystem::path file, FileDescriptor lock)
    : file_(std::move(file)),
      lock_(std::move(lock)) {}

RunningSession::~RunningSession() {
    if (lock_) {
        try {
            static_cast<void>(stored::remove(file_));
        } catch (const std::exception&) {
            traceCaught("session", "what this session told last stays");
        }
    }
}

void RunningSession::tell(SessionPhase phase) const noexcept {
    try {
        removeAbandonedVersions(file_);
        PreparedFile(file_, nlohmann::json{{"processID", getpid()}, {"phase", rawValue(phase)}}.dump())
            .takePlace();
    } catch (const std::exception&) {
        // Only `session status` knows less then.
        traceCaught("session", "`session status` is not told of the phase");
    }
}

} // namespace ramdisk
