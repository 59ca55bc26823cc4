#include "tests/support/Linux/TestMachine.h"

#include <grp.h>
#include <sched.h>

namespace ramdisk::test {

namespace {

/// What is behind each loop device that carries something.
std::map<std::string, std::string> loopDevices() {
    std::map<std::string, std::string> devices;
    for (const auto& entry : fs::directory_iterator("/sys/block")) {
        const auto file = readFile(entry.path() / "loop/backing_file");
        if (!file.empty()) {
            devices[entry.path().filename()] = file;
        }
    }
    return devices;
}

/// Puts this process where its mounts are nobody else's, with an empty /dev/shm.
void leaveSharedMounts() {
    if (geteuid() != 0) {
        return;
    }
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
        throw std::runtime_error("no mount namespace for the tests");
    }
    // Copies of disks that stand elsewhere would keep their memory.
    auto copies = mountsWith(" ramdisk-");
    for (const auto& [device, file] : loopDevices()) {
        const auto more = mountsWith(" /dev/" + device + " ");
        if (file.starts_with("/memfd:ramdisk-")) {
            copies.insert(copies.end(), more.begin(), more.end());
        }
    }
    for (const auto& path : copies) {
        umount2(path.c_str(), MNT_DETACH);
    }
    if (mount("tests", "/dev/shm", "tmpfs", MS_NOSUID | MS_NODEV, "mode=1777") != 0) {
        throw std::runtime_error("no /dev/shm for the tests");
    }
}

void becomeUser(uid_t user) {
    if (user != geteuid() && (setgroups(0, nullptr) != 0 || setgid(user) != 0 || setuid(user) != 0)) {
        _exit(125);
    }
}

std::string captured(int file) {
    std::string text(static_cast<std::size_t>(lseek(file, 0, SEEK_END)), '\0');
    const auto count = pread(file, text.data(), text.size(), 0);
    close(file);
    return count == static_cast<ssize_t>(text.size()) ? text : "(unreadable)";
}

std::vector<std::string> environmentOf(const TestMachine& machine) {
    auto variables = machine.environment;
    const auto folder = machine.folder().string();
    variables.insert({{"PATH", "/usr/bin:/bin"},
                      {"HOME", folder + "/home"},
                      {"XDG_DATA_HOME", folder + "/home/data"},
                      {"XDG_RUNTIME_DIR", folder + "/run"},
                      {"TRAMDISK_STATE", folder + "/state"}});
    for (const char* name : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS"}) {
        if (const char* value = std::getenv(name)) {
            variables.insert({name, value});
        }
    }
    std::vector<std::string> list;
    for (const auto& [name, value] : variables) {
        list.push_back(name);
        list.back().append("=").append(value);
    }
    return list;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (auto& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

/// A call of tramdisk, ready to run: a child of a process with threads must not allocate, since one of them
/// may have held the allocator's lock.
class Call {
public:
    Call(const TestMachine& machine, uid_t user, std::vector<std::string> arguments)
        : user_(user),
          arguments_(std::move(arguments)),
          variables_(environmentOf(machine)) {
        arguments_.insert(arguments_.begin(), TRAMDISK_EXECUTABLE);
        argv_ = pointersTo(arguments_);
        envp_ = pointersTo(variables_);
    }

    [[noreturn]] void become(int out, int err) const {
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
        becomeUser(user_);
        execve(argv_[0], argv_.data(), envp_.data());
        _exit(127);
    }

    [[nodiscard]] pid_t launch(int out, int err) const {
        const pid_t child = fork();
        if (child == 0) {
            become(out, err);
        }
        return child;
    }

private:
    uid_t user_;
    std::vector<std::string> arguments_;
    std::vector<std::string> variables_;
    std::vector<char*> argv_;
    std::vector<char*> envp_;
};

int nowhere() {
    static const int file = open("/dev/null", O_RDWR | O_CLOEXEC);
    return file;
}

} // namespace

TestMachine::TestMachine(uid_t user) : user_(user == 0 ? geteuid() : user) {
    static std::once_flag once;
    std::call_once(once, leaveSharedMounts);
    std::string name = fs::temp_directory_path() / "ramdisk test XXXXXX";
    if (mkdtemp(name.data()) == nullptr) {
        throw std::runtime_error("no temporary folder");
    }
    folder_ = name;
    for (const char* part : {"", "home", "run", "state"}) {
        fs::create_directory(folder_ / part);
        fs::permissions(folder_ / part, fs::perms(0755));
        if (chown((folder_ / part).c_str(), user_, user_) != 0 && geteuid() == 0) {
            throw std::runtime_error("no folder for another user");
        }
    }
}

TestMachine::~TestMachine() {
    const auto mounts = mountsWith(folder_.filename().string().substr(13));
    for (auto path = mounts.rbegin(); path != mounts.rend(); ++path) {
        umount2(path->c_str(), MNT_DETACH);
    }
    remember();
    std::error_code ignored;
    for (const auto& tag : tags_) {
        fs::remove_all("/dev/shm/" + tag, ignored);
    }
    fs::remove_all(folder_, ignored);
}

void TestMachine::remember() const {
    const std::lock_guard lock(mutex_);
    std::error_code ignored;
    for (const auto& entry : fs::directory_iterator(records(), ignored)) {
        if (!entry.is_regular_file(ignored) || entry.file_size(ignored) > 4096) {
            continue;
        }
        const auto record = nlohmann::json::parse(readFile(entry.path()), nullptr, false);
        if (record.is_object() && record.contains("uuid") && record["uuid"].is_string()) {
            tags_.insert("ramdisk-" + record["uuid"].get<std::string>());
        }
    }
}

Outcome TestMachine::run(std::vector<std::string> arguments) const {
    const int out = memfd_create("out", MFD_CLOEXEC);
    auto outcome = run(std::move(arguments), out);
    outcome.out = captured(out);
    return outcome;
}

Outcome TestMachine::run(std::vector<std::string> arguments, int output) const {
    const int err = memfd_create("err", MFD_CLOEXEC);
    remember();
    const int status = waitFor(Call(*this, user_, std::move(arguments)).launch(output, err));
    remember();
    return {status, {}, captured(err)};
}

pid_t TestMachine::start(std::vector<std::string> arguments) const {
    return Call(*this, user_, std::move(arguments)).launch(nowhere(), nowhere());
}

void TestMachine::become(std::vector<std::string> arguments) const {
    Call(*this, user_, std::move(arguments)).become(nowhere(), nowhere());
}

std::map<std::string, nlohmann::json> TestMachine::list() const {
    const auto outcome = run({"list", "--json"});
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    std::map<std::string, nlohmann::json> disks;
    for (const auto& disk : outcome.json()) {
        disks[disk.at("name").get<std::string>()] = disk;
    }
    return disks;
}

nlohmann::json TestMachine::create(const std::string& name, const std::vector<std::string>& more) const {
    std::vector<std::string> arguments{"create", "--json", "--name=" + name};
    arguments.insert(arguments.end(), more.begin(), more.end());
    if (std::find(more.begin(), more.end(), "--size") == more.end()) {
        arguments.insert(arguments.end(), {"--size", "8M"});
    }
    const auto outcome = run(arguments);
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    return outcome.status == 0 ? outcome.json().at("ramDisk") : nlohmann::json();
}

LinuxHost TestMachine::host(HostRung rung) const {
    LinuxHost host;
    host.owner = user_;
    host.ownerGroup = user_;
    host.isRoot = geteuid() == 0;
    host.mayMount = host.isRoot;
    host.forcedRung = rung;
    host.records = records();
    host.visibleRecords = {records()};
    host.publicMounts = {media()};
    host.privateMounts = privateMounts();
    host.home = folder_ / "home";
    host.applicationSupport = folder_ / "home/data/Tavrin RamDisk";
    host.isIsolated = true;
    return host;
}

std::vector<std::string> TestMachine::traces() const {
    remember();
    auto found = mountsWith(" ramdisk-");
    for (const auto& [device, file] : loopDevices()) {
        if (std::any_of(tags_.begin(), tags_.end(),
                        [&](const auto& tag) { return file.starts_with("/memfd:" + tag); })) {
            found.push_back(device);
        }
    }
    for (const auto& entry : fs::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        const auto target = fs::read_symlink(entry.path(), ignored).string();
        if (target.starts_with("/memfd:ramdisk-")) {
            found.push_back(target);
        }
    }
    for (const auto& folder : {fs::path("/dev/shm"), records(), media(), privateMounts()}) {
        std::error_code ignored;
        for (const auto& entry : fs::directory_iterator(folder, ignored)) {
            if (entry.path().filename() != ".names.lock") {
                found.push_back(entry.path());
            }
        }
    }
    return found;
}

int inChild(uid_t user, const std::function<int()>& body) {
    const pid_t child = fork();
    if (child == 0) {
        becomeUser(user);
        _exit(body());
    }
    return waitFor(child);
}

int waitFor(pid_t child) {
    int status = 0;
    if (waitpid(child, &status, 0) != child) {
        return -1;
    }
    return WIFSIGNALED(status) ? 128 + WTERMSIG(status) : WEXITSTATUS(status);
}

std::uint64_t bytesReadSoFar() {
    std::ifstream counters("/proc/self/io");
    std::string name;
    std::uint64_t bytes = 0;
    counters >> name >> bytes;
    EXPECT_EQ(name, "rchar:");
    return bytes;
}

std::vector<std::string> mountsWith(std::string_view text) {
    std::ifstream table("/proc/self/mountinfo");
    std::vector<std::string> points;
    for (std::string line; std::getline(table, line);) {
        if (line.find(text) == std::string::npos) {
            continue;
        }
        std::istringstream fields(line);
        std::string point;
        for (int index = 0; index < 5; ++index) {
            fields >> point;
        }
        for (std::size_t escape = 0; (escape = point.find('\\', escape)) != std::string::npos; ++escape) {
            point.replace(escape, 4, 1,
                          static_cast<char>(std::stoi(point.substr(escape + 1, 3), nullptr, 8)));
        }
        points.push_back(point);
    }
    return points;
}

} // namespace ramdisk::test
