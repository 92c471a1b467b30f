#include "Scenarios.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <ostream>
#include <sstream>

namespace qv::tests {
namespace {

const Services kEarlier{{1, "unix:/run/earlier"}};
const Services kSaved{{1, "unix:/run/saved"}, {2, "unix:/run/second"}};
const Services kElsewhere{{7, "unix:/run/elsewhere"}};
const Services kRequest{{2, "unix:/run/second-moved"}, {3, "unix:/run/third"}};
const Services kNext{{1000, "unix:/run/next"}};

// Several times as much as the streams' buffers hold.
Services many() {
    Services services;
    for (int id = 1; id <= 300; ++id) {
        services.emplace_back(id, "unix:/run/service-" + std::to_string(id));
    }
    return services;
}

void start(const LoadedPlugin& plugin, const ConfigurationFiles& /*files*/) {
    plugin.initialize();
}

void startAndSave(const LoadedPlugin& plugin, const ConfigurationFiles& /*files*/) {
    plugin.initialize();
    plugin.registerServices({{1, "unix:/run/moved"}});
}

template <class Action>
std::string outcomeOf(Action action) {
    try {
        return std::to_string(action());
    } catch (const std::bad_alloc&) {
        return "bad_alloc";
    } catch (const std::string& text) {
        return text;
    } catch (const std::exception& exception) {
        return exception.what();
    }
}

std::string openFiles() {
    std::string text;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        const std::string file = std::filesystem::read_symlink(entry.path(), ignored).string();
        // Not the directory that is being read.
        if (file.rfind("/proc/", 0) != 0) {
            text += file + '\n';
        }
    }
    return text;
}

// Takes no memory of the test's own.
class Registration {
  public:
    Registration(const LoadedPlugin& plugin, const Services& services)
        : handler_(plugin.handler(QV_COMMAND_REGISTER_SERVICES)), request_(encode(services)) {}

    int operator()() const {
        return handler_(QV_COMMAND_REGISTER_SERVICES, request_.data(),
                        static_cast<int>(request_.size()), nullptr, nullptr);
    }

  private:
    CommandHandler handler_;
    std::string request_;
};

// Takes what the C library has at hand, so that every need for memory becomes a call of the system
// soon, and at the same places each time.
void useUpMemory() {
    constexpr std::size_t kLargest = std::size_t{1} << 20;
    constexpr std::size_t kSmallest = 64;
    mallopt(M_MMAP_THRESHOLD, 4096);
    mallopt(M_TOP_PAD, 0);
    for (std::size_t size = kLargest; size >= kSmallest; size /= 2) {
        while (true) {
            const struct mallinfo2 before = mallinfo2();
            void* const block = std::malloc(size);
            const struct mallinfo2 after = mallinfo2();
            if (after.arena != before.arena || after.hblks != before.hblks) {
                std::free(block);
                break;
            }
        }
    }
}

std::string inChild(const Scenario& scenario, const LoadedPlugin& plugin,
                    const ConfigurationFiles& files) {
    std::string outcome;
    if (scenario.isStart()) {
        const auto start = plugin.initialize;
        useUpMemory();
        beginTrace();
        outcome = outcomeOf(start);
        endTrace();
        if (outcome != "0") {
            plugin.initialize();
        }
    } else {
        scenario.prepare(plugin, files);
        const Registration registration(plugin, kRequest);
        useUpMemory();
        beginTrace();
        outcome = outcomeOf(registration);
        endTrace();
    }
    std::ostringstream report;
    report << outcome << '\n' << listed(plugin.getServices()) << '\n';
    files.keep();
    report << outcomeOf(Registration(plugin, kNext)) << '\n';
    report << listed(plugin.getServices()) << '\n' << openFiles();
    plugin.finalize();
    return report.str();
}

}  // namespace

std::vector<Scenario> scenarios() {
    std::vector<Scenario> all{
        {"Start", document(kSaved), document(kEarlier), nullptr},
        {"StartWithMany", document(many()), document(kEarlier), nullptr},
        {"StartWithDamagedMain", "<plist><dict>", document(kSaved), nullptr},
        {"StartWithoutMain", std::nullopt, document(kSaved), nullptr},
        {"StartWithManyWithoutMain", std::nullopt, document(many()), nullptr},
        {"FirstSave", document(kSaved), document(kEarlier), start},
        {"FirstSaveOfMany", document(many()), document(kEarlier), start},
        {"LaterSave", document(kSaved), document(kEarlier), startAndSave},
        {"SaveAfterDeletion", document(kSaved), document(kEarlier),
         [](const LoadedPlugin& plugin, const ConfigurationFiles& files) {
             startAndSave(plugin, files);
             std::filesystem::remove(files.mainFile());
         }},
        {"SaveAfterReplacement", document(kSaved), document(kEarlier),
         [](const LoadedPlugin& plugin, const ConfigurationFiles& files) {
             startAndSave(plugin, files);
             const std::string other = files.directory() + "/other";
             writeFile(other, document(kElsewhere));
             std::filesystem::rename(other, files.mainFile());
         }},
    };
    // The plug-in makes the directory such that only root can use it.
    if (geteuid() == 0) {
        all.push_back({"FirstSaveWithoutBackup", document(kSaved), std::nullopt, start});
    }
    return all;
}

std::vector<Scenario> saves() {
    std::vector<Scenario> some = scenarios();
    some.erase(std::remove_if(some.begin(), some.end(),
                              [](const Scenario& scenario) { return scenario.isStart(); }),
               some.end());
    return some;
}

std::ostream& operator<<(std::ostream& out, const Scenario& scenario) {
    return out << scenario.name;
}

TracedRun play(const Scenario& scenario, const LoadedPlugin& plugin,
               const ConfigurationFiles& files, const Fault& fault) {
    files.put(scenario.main, scenario.backup);
    return runTraced([&] { return inChild(scenario, plugin, files); }, fault);
}

Report::Report(const std::string& text) {
    std::istringstream lines(text);
    std::getline(lines, outcome);
    std::getline(lines, services);
    std::getline(lines, nextOutcome);
    std::getline(lines, nextServices);
    std::string file;
    while (std::getline(lines, file)) {
        ++openFiles[file];
    }
}

std::string listed(const Services& services) {
    std::string text;
    for (const auto& [id, address] : services) {
        text += (text.empty() ? "" : " ") + std::to_string(id) + '=' + address;
    }
    return text;
}

}  // namespace qv::tests
