// SPDX-License-Identifier: Apache-2.0

#include "Scenarios.h"

#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <ostream>
#include <sstream>
#include <stdexcept>
#include <string_view>

#include "KeptObjects.h"
#include "support/ConfigurationDocuments.h"
#include "support/FailingCalls.h"

namespace qv::tests {
namespace {

using Kind = Operation::Kind;
using Log = ConfigurationFiles::Log;

// The addresses are too long for the buffer inside a std::string, so each takes an allocation.
const Services kEarlier{{1, "unix:/run/earlier"}};
const Services kSaved{{1, "unix:/run/saved-as-it-was.sock"},
                      {2, "unix:/run/second-as-it-was.sock"}};
const Services kElsewhere{{7, "unix:/run/elsewhere"}};
const Services kRequest{{2, "unix:/run/second-moved-away.sock"},
                        {3, "unix:/run/third-is-new.sock"}};
const Services kNext{{1000, "unix:/run/next"}};

Services number(int count) {
    Services services;
    for (int id = 1; id <= count; ++id) {
        services.emplace_back(id, "unix:/run/service-" + std::to_string(id));
    }
    return services;
}

// Returns services whose file is several times as long as the buffer of a stream.
Services many() {
    return number(150);
}

std::string atLevel7(const Services& services) {
    constexpr std::string_view kBegin = "<plist version=\"1.0\"><dict>";
    return document(services).insert(kBegin.size(), "<key>DebugLevel</key><integer>7</integer>");
}

// Preparations.

void start(const LoadedPlugin& plugin, const ConfigurationFiles& /*files*/) {
    plugin.initialize();
}

void startAndSave(const LoadedPlugin& plugin, const ConfigurationFiles& /*files*/) {
    plugin.initialize();
    plugin.registerServices({{1, "unix:/run/moved"}});
}

void startSaveAndDelete(const LoadedPlugin& plugin, const ConfigurationFiles& files) {
    startAndSave(plugin, files);
    std::filesystem::remove(files.mainFile());
}

void startSaveAndReplace(const LoadedPlugin& plugin, const ConfigurationFiles& files) {
    startAndSave(plugin, files);
    const std::string other = files.directory() + "/other";
    writeFile(other, document(kElsewhere));
    std::filesystem::rename(other, files.mainFile());
}

// Removes the log's directory. The plug-in keeps the log file open until a rotation.
void startAndRemoveLog(const LoadedPlugin& plugin, const ConfigurationFiles& /*files*/) {
    plugin.initialize();
    std::filesystem::remove_all(std::getenv("QV_LOG_DIR"));
}

void startSaveAndList(const LoadedPlugin& plugin, const ConfigurationFiles& files) {
    startAndSave(plugin, files);
    plugin.getServices();
}

// Operations.

const Operation kInitialization{Kind::kInitialize, 0, {}};
const Operation kFinalization{Kind::kFinalize, 0, {}};
const Operation kListing{Kind::kCommand, QV_COMMAND_GET_SERVICES, {}};

Operation registration(const Services& services) {
    return {Kind::kCommand, QV_COMMAND_REGISTER_SERVICES, encode(services)};
}

Operation unregistration(const Services& services) {
    return {Kind::kCommand, QV_COMMAND_UNREGISTER_SERVICES, encode(services)};
}

Operation changeOfLevel(char level) {
    return {Kind::kCommand, QV_COMMAND_SET_DEBUG_LEVEL, std::string("\x08\x01\x10") + level};
}

// Carries out an operation. The test itself allocates nothing meanwhile.
class Call {
  public:
    Call(const LoadedPlugin& plugin, const Operation& operation)
        : plugin_(plugin),
          operation_(operation),
          handler_(operation.kind == Kind::kCommand ? plugin.handler(operation.command) : nullptr) {
    }
    ~Call() { plugin_.free(answer_); }
    Call(const Call&) = delete;
    Call& operator=(const Call&) = delete;

    void operator()() {
        try {
            result_ = carryOut();
        } catch (const std::bad_alloc&) {
            note("bad_alloc");
        } catch (const std::string& text) {
            note(text.c_str());
        } catch (const std::exception& exception) {
            note(exception.what());
        }
    }

    bool hasThrown() const { return thrown_[0] != '\0'; }
    std::string outcome() const { return hasThrown() ? thrown_.data() : std::to_string(result_); }
    std::string answer() const {
        return answer_ == nullptr ? ""
                                  : listed(decode({static_cast<const char*>(answer_),
                                                   static_cast<std::size_t>(length_)}));
    }

  private:
    int carryOut() {
        switch (operation_.kind) {
            case Kind::kNothing:
                return QV_OK;
            case Kind::kInitialize:
                return plugin_.initialize();
            case Kind::kFinalize:
                plugin_.finalize();
                return QV_OK;
            case Kind::kCommand:
                return handler_(static_cast<int>(operation_.command), operation_.request.data(),
                                static_cast<int>(operation_.request.size()), &answer_, &length_);
        }
        return QV_OK;
    }

    void note(const char* what) { std::strncpy(thrown_.data(), what, thrown_.size() - 1); }

    const LoadedPlugin& plugin_;
    const Operation& operation_;
    CommandHandler handler_;
    int result_ = QV_OK;
    void* answer_ = nullptr;
    int length_ = 0;
    std::array<char, 128> thrown_{};
};

std::string outcomeOf(const LoadedPlugin& plugin, const Operation& operation) {
    Call call(plugin, operation);
    call();
    return call.outcome();
}

// Collects the lines of a child's report without allocations, which the test would count.
class Notes {
  public:
    void add(std::string_view line) {
        if (size_ + line.size() + 1 > text_.size()) {
            throw std::length_error("the report is too long");
        }
        std::copy(line.begin(), line.end(), text_.begin() + static_cast<std::ptrdiff_t>(size_));
        size_ += line.size();
        text_.at(size_++) = '\n';
    }
    void clear() { size_ = 0; }
    std::string text() const { return {text_.data(), size_}; }

  private:
    std::array<char, 200000> text_{};
    std::size_t size_ = 0;
};

std::map<std::string, int> openFiles() {
    std::map<std::string, int> files;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
        std::error_code ignored;
        const std::string file = std::filesystem::read_symlink(entry.path(), ignored).string();
        // Leaves out the directory of descriptors, which is open for this loop.
        if (file.rfind("/proc/", 0) != 0) {
            ++files[file];
        }
    }
    return files;
}

// Returns whether each record begins with a time and none is cut.
bool areWhole(const std::string& records) {
    std::istringstream lines(records);
    std::string line;
    while (std::getline(lines, line)) {
        if (line.size() < 25 || line[10] != 'T' || line[23] != 'Z' ||
            line.find(" namingService: ") == std::string::npos) {
            return false;
        }
    }
    return records.empty() || records.back() == '\n';
}

// Repeats a registration twice without a change, after a registration that threw. Returns what the
// two registrations save.
std::string repeatRegistration(const LoadedPlugin& plugin, const ConfigurationFiles& files,
                               const Services& services, bool isAtLevel7) {
    const std::string kOther = "someone else's";
    const std::string level = "\t<key>DebugLevel</key>\n\t<integer>7</integer>\n";
    const std::string whole = document(entryOf(services) + (isAtLevel7 ? level : ""));
    const std::string original = files.main().value_or("");
    const auto repeat = [&] {
        writeFile(files.mainFile(), kOther);
        plugin.registerServices({services.at(0)});
        const std::string saved = files.main().value_or("");
        return saved == kOther ? "nothing" : saved == whole ? "all" : "something";
    };
    const std::string first = repeat();
    const std::string second = repeat();
    writeFile(files.mainFile(), first == "nothing" ? original : whole);
    return first + " and " + second;
}

void live(const Scenario& scenario, const LoadedPlugin& plugin, const ConfigurationFiles& files,
          const Interference& interference, long& held, Notes& notes) {
    if (scenario.prepare != nullptr) {
        scenario.prepare(plugin, files);
    }
    {
        Call call(plugin, scenario.operation);
        held += useUpKeptObjects();
        held += interference.begin();
        call();
        notes.add(interference.end() ? "struck" : "");
        notes.add(call.outcome());
        notes.add(call.answer());
        if ((scenario.isStart() && call.hasThrown()) || scenario.isEnd()) {
            plugin.initialize();
        }
        files.keep();
        const Services services = plugin.getServices();
        notes.add(listed(services));
        notes.add(scenario.isRegistration() && call.hasThrown() && !services.empty() && files.main()
                      ? repeatRegistration(plugin, files, services, scenario.isAtLevel7())
                      : "");
    }
    std::string outcomes = outcomeOf(plugin, registration(kNext));
    notes.add(listed(plugin.getServices()));
    const std::string records = files.records();
    outcomes += ' ' + outcomeOf(plugin, changeOfLevel(5));
    outcomes += ' ' + outcomeOf(plugin, unregistration(kNext));
    notes.add(outcomes);
    notes.add(listed(plugin.getServices()));
    const std::string last = "address: " + kNext[0].second + '\n';
    notes.add(records.find(last) != std::string::npos ? "logged" : "");
    notes.add(areWhole(records) ? "whole" : "");
    plugin.finalize();
}

std::string inChild(const Scenario& scenario, const LoadedPlugin& plugin,
                    const ConfigurationFiles& files, const Interference& interference) {
    static Notes notes;
    notes.clear();
    const std::map<std::string, int> openBefore = openFiles();
    useUpKeptObjects();
    long held = 0;
    const long before = liveAllocations();
    live(scenario, plugin, files, interference, held, notes);
    held += useUpKeptObjects();
    notes.add(std::to_string(liveAllocations() - before - held));
    for (auto [name, times] : openFiles()) {
        const auto usual = openBefore.find(name);
        for (times -= usual == openBefore.end() ? 0 : usual->second; times > 0; --times) {
            notes.add(name);
        }
    }
    return notes.text();
}

// Uses up the free memory of the C library, so that allocations become system calls soon, at the
// same places each time. Returns how many allocations the function keeps.
long useUpMemory() {
    constexpr std::size_t kLargest = std::size_t{1} << 20;
    constexpr std::size_t kSmallest = 64;
    const long before = liveAllocations();
    mallopt(M_MMAP_THRESHOLD, 4096);
    mallopt(M_TOP_PAD, 0);
    for (std::size_t size = kLargest; size >= kSmallest; size /= 2) {
        while (true) {
            const struct mallinfo2 earlier = mallinfo2();
            void* const block = std::malloc(size);
            const struct mallinfo2 later = mallinfo2();
            if (later.arena != earlier.arena || later.hblks != earlier.hblks) {
                std::free(block);
                break;
            }
        }
    }
    return liveAllocations() - before;
}

}  // namespace

bool Scenario::isAtLevel7() const {
    return main.value_or("").find("<key>DebugLevel</key>") != std::string::npos;
}

std::vector<Scenario> scenariosOfMany() {
    const std::string earlier = document(kEarlier);
    return {
        {"StartWithMany", document(many()), earlier, Log::kEmpty, nullptr, kInitialization},
        {"StartWithManyWithoutMain", std::nullopt, document(many()), Log::kEmpty, nullptr,
         kInitialization},
        {"FirstSaveOfMany", document(many()), earlier, Log::kEmpty, start, registration(kRequest)},
    };
}

std::vector<Scenario> scenariosOfFew() {
    const std::string saved = document(kSaved);
    const std::string earlier = document(kEarlier);
    const std::string logged = atLevel7(kSaved);
    const std::string accented =
        atLevel7({{1, "unix:/run/caf\u00e9-as-it-was.sock"}, {2, "unix:/run/\u4e2d\u6587.sock"}});
    const Operation request = registration(kRequest);
    std::vector<Scenario> all{
        {"Start", saved, earlier, Log::kEmpty, nullptr, kInitialization},
        {"StartAtLevel7", logged, atLevel7(kEarlier), Log::kEmpty, nullptr, kInitialization},
        {"StartWithOtherLetters", accented, earlier, Log::kEmpty, nullptr, kInitialization},
        {"StartWithDamagedMain", "<plist><dict>", saved, Log::kEmpty, nullptr, kInitialization},
        {"StartWithoutMain", std::nullopt, saved, Log::kEmpty, nullptr, kInitialization},
        {"StartWithoutAny", std::nullopt, std::nullopt, Log::kEmpty, nullptr, kInitialization},
        {"StartWithoutLogDirectory", logged, earlier, Log::kNoDirectory, nullptr, kInitialization},
        {"StartThatRotatesTheLog", logged, earlier, Log::kFull, nullptr, kInitialization},
        {"StartAgain", logged, earlier, Log::kEmpty, start, kInitialization},
        {"FirstSave", saved, earlier, Log::kEmpty, start, request},
        {"FirstSaveEver", "<plist version=\"1.0\"><dict></dict></plist>", std::nullopt, Log::kEmpty,
         start, request},
        {"LaterSave", saved, earlier, Log::kEmpty, startAndSave, request},
        {"SaveAfterDeletion", saved, earlier, Log::kEmpty, startSaveAndDelete, request},
        {"SaveAfterReplacement", saved, earlier, Log::kEmpty, startSaveAndReplace, request},
        {"SaveAtLevel7", logged, earlier, Log::kEmpty, startAndSave, request},
        {"SaveThatRotatesTheLog", logged, earlier, Log::kFullAfterStart, start, request},
        {"SaveWithoutLogDirectory", logged, earlier, Log::kRemoved, startAndRemoveLog, request},
        {"SaveOfOtherLetters", accented, earlier, Log::kEmpty, start,
         registration(
             {{2, "unix:/run/second-moved-\u00e9.sock"}, {3, "unix:/run/third-\u4e2d.sock"}})},
        {"RegistrationOfMany", saved, earlier, Log::kEmpty, start, registration(number(30))},
        {"RegistrationOfWhatIsKnown", logged, earlier, Log::kEmpty, start, registration(kSaved)},
        {"RegistrationWithoutFiles", std::nullopt, std::nullopt, Log::kEmpty, start, request},
        {"Unregistration", logged, earlier, Log::kEmpty, start, unregistration(kSaved)},
        {"List", logged, earlier, Log::kEmpty, start, kListing},
        {"ChangeOfLevel", logged, earlier, Log::kEmpty, start, changeOfLevel(7)},
        {"RefusedChangeOfLevel", logged, earlier, Log::kEmpty, start, changeOfLevel(8),
         QV_ERROR_ARGUMENT},
        {"End", logged, earlier, Log::kEmpty, startSaveAndList, kFinalization},
        {"EndThatRotatesTheLog", logged, earlier, Log::kFullAfterStart, start, kFinalization},
    };
    // The plug-in makes the directory of backups with the mode 0600, which only root can use.
    if (geteuid() == 0) {
        all.push_back({"FirstSaveWithoutBackup", saved, std::nullopt, Log::kEmpty, start, request});
    }
    return all;
}

std::vector<Scenario> scenarios() {
    std::vector<Scenario> all = scenariosOfFew();
    for (const Scenario& scenario : scenariosOfMany()) {
        all.push_back(scenario);
    }
    return all;
}

std::vector<Scenario> saves() {
    std::vector<Scenario> some = scenarios();
    some.erase(std::remove_if(some.begin(), some.end(),
                              [](const Scenario& scenario) {
                                  return scenario.operation.request != encode(kRequest) ||
                                         !scenario.main;
                              }),
               some.end());
    return some;
}

std::ostream& operator<<(std::ostream& out, const Scenario& scenario) {
    return out << scenario.name;
}

ChildRun play(const Scenario& scenario, const LoadedPlugin& plugin, const ConfigurationFiles& files,
              const Interference& interference) {
    files.put(scenario.main, scenario.backup, scenario.log);
    return runInChild([&] { return inChild(scenario, plugin, files, interference); });
}

TracedRun play(const Scenario& scenario, const LoadedPlugin& plugin,
               const ConfigurationFiles& files, const Fault& fault) {
    files.put(scenario.main, scenario.backup, scenario.log);
    const Interference trace{[] {
                                 const long held = useUpMemory();
                                 beginTrace();
                                 return held;
                             },
                             [] {
                                 endTrace();
                                 return false;
                             }};
    return runTraced([&] { return inChild(scenario, plugin, files, trace); }, fault);
}

ChildRun playTwice(const Scenario& scenario, const LoadedPlugin& plugin,
                   const ConfigurationFiles& files) {
    const Interference none{[] { return 0L; }, [] { return false; }};
    const auto life = [&] {
        files.put(scenario.main, scenario.backup, scenario.log);
        return inChild(scenario, plugin, files, none);
    };
    return runInChild([&] {
        life();
        return life();
    });
}

ChildRun playUpToOperation(const Scenario& scenario, const LoadedPlugin& plugin,
                           const ConfigurationFiles& files) {
    files.put(scenario.main, scenario.backup, scenario.log);
    return runInChild([&] {
        if (scenario.prepare == nullptr) {
            return std::string();
        }
        scenario.prepare(plugin, files);
        files.keep();
        return listed(plugin.getServices());
    });
}

Report::Report(const std::string& text) {
    std::istringstream lines(text);
    const auto next = [&lines] {
        std::string line;
        std::getline(lines, line);
        return line;
    };
    isStruck = !next().empty();
    outcome = next();
    answer = next();
    services = next();
    repetition = next();
    nextServices = next();
    nextOutcomes = next();
    lastServices = next();
    isLogged = !next().empty();
    isLogWhole = !next().empty();
    leftBehind = std::atol(next().c_str());
    for (std::string file = next(); !file.empty(); file = next()) {
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
