#include "tests/support/RedirectWorld.h"

#include "RamDiskInfrastructure/Stores/FileRedirectRepository.h"
#include "RamDiskInfrastructure/Tasks/TaskPool.h"
#include "RamDiskUI/ErrorText.h"
#include "tests/support/FakeMachine.h"

#include <fmt/format.h>

namespace ramdisk::test {

namespace {

/// The real repository, with each save told.
class ToldRepository final : public RedirectRepository {
public:
    ToldRepository(const fs::path& folder, StepObserver observer)
        : pool_(std::make_shared<TaskPool>()),
          real_(folder, pool_),
          observer_(std::move(observer)) {}

    List load() const override { return real_.load(); }
    bool isReadable() const override { return real_.isReadable(); }
    void save(const List& list) override {
        tell(observer_, "save the list");
        real_.save(list);
        tell(observer_, "the list was saved");
    }
    std::future<void> update(std::function<void()> body) override { return real_.update(std::move(body)); }

private:
    std::shared_ptr<TaskPool> pool_;
    FileRedirectRepository real_;
    StepObserver observer_;
};

} // namespace

void HaltingCopier::copy(const fs::path& folder, const fs::path& volume) {
    for (const auto& entry : fs::directory_iterator(folder)) {
        fs::copy(entry.path(), volume / entry.path().filename(),
                 fs::copy_options::recursive | fs::copy_options::copy_symlinks);
        if (!failure.empty()) {
            throw RamDiskError(RamDiskError::ContentsTransferFailed{failure});
        }
    }
}

RedirectWorld::RedirectWorld() {
    fs::create_directories(home());
    fs::create_directories(mountPoint());
    parts.home = home();
    parts.copier = copier;
    parts.variables = [this](const char* name) {
        const auto found = variables.find(name);
        return found == variables.end() ? std::nullopt : std::optional(found->second);
    };
}

RamDisk RedirectWorld::disk() const {
    return {.device = DeviceIdentifier::wholeDisk(4),
            .name = "Dev",
            .capacity = ByteCount::of(1, ByteCount::Unit::gibibyte),
            .mountPoint = isMounted ? std::optional(mountPoint()) : std::nullopt};
}

void RedirectWorld::loseDisk() {
    fs::remove_all(mountPoint());
    isMounted = false;
}

void RedirectWorld::write(const std::string& name, std::string_view text) const {
    fs::create_directories((home() / name).parent_path());
    std::ofstream(home() / name, std::ios::binary) << text;
}

std::string RedirectWorld::read(const std::string& name) const {
    return readFile(home() / name);
}

std::map<std::string, std::string> RedirectWorld::tree() const {
    std::map<std::string, std::string> tree;
    for (const auto& entry : fs::recursive_directory_iterator(home())) {
        struct stat status {};
        lstat(entry.path().c_str(), &status);
        tree[entry.path().lexically_relative(home())] =
            fmt::format("{:o} {} {}", status.st_mode, status.st_uid,
                        entry.is_symlink()        ? fs::read_symlink(entry.path()).string()
                        : entry.is_regular_file() ? readFile(entry.path())
                                                  : "");
    }
    return tree;
}

FolderRedirectsUseCase RedirectWorld::useCase(StepObserver observer) const {
    auto told = parts;
    told.observer = observer;
    const auto machine = std::make_shared<FakeMachine>();
    machine->disks = {disk()};
    machine->startupDisks = startupDisks;
    return {std::make_shared<ToldRepository>(scratch() / "lists", std::move(observer)),
            std::make_shared<FolderRedirector>(told), machine, machine};
}

bool RedirectWorld::runKilledAt(int step, const std::function<void(FolderRedirectsUseCase&)>& work) const {
    const pid_t child = fork();
    if (child == 0) {
        int status = 0;
        try {
            auto redirects = useCase([count = std::make_shared<int>(step)](std::string_view) {
                if ((*count)-- == 0) {
                    kill(getpid(), SIGKILL);
                }
            });
            work(redirects);
        } catch (const std::exception& error) {
            fmt::print(stderr, "{}\n", error.what());
            status = 1;
        }
        _exit(status);
    }
    int status = 0;
    if (waitpid(child, &status, 0) != child || (WIFEXITED(status) && WEXITSTATUS(status) != 0)) {
        throw std::runtime_error("the child that was to be killed failed");
    }
    return WIFSIGNALED(status);
}

StepObserver failingAt(int step, bool& hasFailed) {
    return [count = std::make_shared<int>(step), &hasFailed](std::string_view name) {
        if ((*count)-- == 0) {
            hasFailed = true;
            throw std::runtime_error("step refused: " + std::string(name));
        }
    };
}

RedirectTarget folderTarget(const std::string& path) {
    return {RedirectTarget::Folder{path}};
}

RedirectTarget cacheTarget(KnownCache cache) {
    return {RedirectTarget::Cache{cache}};
}

std::vector<std::string> texts(const std::vector<RedirectFailure>& failures) {
    std::vector<std::string> texts;
    std::transform(failures.begin(), failures.end(), std::back_inserter(texts), failureText);
    return texts;
}

} // namespace ramdisk::test
