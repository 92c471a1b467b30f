// SPDX-License-Identifier: Apache-2.0

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include "qvhost/HostProcess.h"
#include "qvhost/ProgramRun.h"

namespace qv::host {
namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::Not;
using Words = std::set<std::string>;

constexpr char kBash[] = QVHOST_COMPLETIONS_DIR "/qvhost.bash";
constexpr char kZsh[] = QVHOST_COMPLETIONS_DIR "/_qvhost";

std::string helpOf(const std::vector<std::string>& command) {
    ProgramRun program;
    std::vector<std::string> arguments = command;
    arguments.emplace_back("--help");
    return program.run(arguments).out;
}

Words found(const std::string& text, const std::regex& pattern) {
    Words words;
    for (std::sregex_iterator match(text.begin(), text.end(), pattern), end; match != end;
         ++match) {
        words.insert((*match)[1]);
    }
    return words;
}

// Returns the text from a line up to the next blank line.
std::string section(const std::string& help, const std::string& heading) {
    const std::size_t start = help.find('\n' + heading + '\n');
    return start == std::string::npos ? "" : help.substr(start, help.find("\n\n", start) - start);
}

// Returns the long options of a subcommand, or those that may stand before a subcommand.
Words optionsOf(const std::vector<std::string>& command) {
    static const std::regex kOption("\n  (?:-[a-z],)?(--[a-z-]+)");
    return found(section(helpOf(command), "Options:"), kOption);
}

// Returns the subcommands with their descriptions.
std::map<std::string, std::string> subcommands() {
    static const std::regex kCommand("  ([a-z]+) +(.*)");
    std::map<std::string, std::string> commands;
    std::istringstream lines(section(helpOf({}), "Subcommands:"));
    for (std::string line; std::getline(lines, line);) {
        std::smatch match;
        if (std::regex_match(line, match, kCommand)) {
            commands[match[1]] = match[2];
        }
    }
    return commands;
}

Words subcommandNames() {
    Words names;
    for (const auto& [name, description] : subcommands()) {
        names.insert(name);
    }
    return names;
}

// Returns the completions of the last word.
Words completed(const std::string& words, const std::string& program = "qvhost") {
    const std::string script = std::string("source ") + kBash + "; COMP_WORDS=(" + program + ' ' +
                               words +
                               "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _qvhost;"
                               " printf '%s\\n' \"${COMPREPLY[@]}\"";
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> output(
        ::popen(
            ("bash -c '" + std::regex_replace(script, std::regex("'"), "'\\''") + "' 2>&1").c_str(),
            "r"),
        ::pclose);
    Words lines;
    char line[4096];
    while (output != nullptr && std::fgets(line, sizeof line, output.get()) != nullptr) {
        const std::string text(line);
        if (text != "\n") {
            lines.insert(text.substr(0, text.find('\n')));
        }
    }
    return lines;
}

TEST(HelpOfQvhost, HasTheFormThatTheseTestsRead) {
    EXPECT_THAT(subcommandNames(), Contains("serve"));
    EXPECT_THAT(subcommandNames(), Contains("info"));
    EXPECT_EQ(optionsOf({"ping"}), (Words{"--help", "--version", "--socket", "--timeout"}));
}

TEST(BashCompletion, KnowsEverySubcommand) {
    EXPECT_EQ(completed("\"\""), subcommandNames());
    EXPECT_EQ(completed("--socket x \"\""), subcommandNames());
    EXPECT_EQ(completed("--socket = x --json \"\""), subcommandNames());
    EXPECT_THAT(completed("unre"), ElementsAre("unregister"));
}

TEST(BashCompletion, KnowsEveryOptionOfEverySubcommand) {
    EXPECT_EQ(completed("--"), optionsOf({}));
    for (const std::string& subcommand : subcommandNames()) {
        EXPECT_EQ(completed(subcommand + " --"), optionsOf({subcommand})) << subcommand;
        EXPECT_EQ(completed("--json " + subcommand + " --socket x --"), optionsOf({subcommand}))
            << subcommand;
    }
    EXPECT_THAT(completed("list --ma"), ElementsAre("--match"));
}

TEST(BashCompletion, KnowsWhichOptionsTakeAValue) {
    static const std::regex kWithValue("\n  (?:-[a-z],)?(--[a-z-]+) [A-Z]+");
    for (const std::string& subcommand : subcommandNames()) {
        const Words withValue = found(section(helpOf({subcommand}), "Options:"), kWithValue);
        for (const std::string& option : optionsOf({subcommand})) {
            // The completion looks for a subcommand after a word that is no value.
            const Words words =
                completed(std::string(option).append(" ").append(subcommand).append(" --"));
            EXPECT_EQ(words == optionsOf({}), withValue.count(option) == 1)
                << subcommand << ' ' << option;
        }
    }
}

TEST(BashCompletion, OffersValues) {
    EXPECT_THAT(completed("export --format \"\""), ElementsAre("csv", "json"));
    EXPECT_THAT(completed("export --format = j"), ElementsAre("json"));
    EXPECT_THAT(completed("export --format ="), ElementsAre("csv", "json"));
    EXPECT_THAT(completed("level \"\""), ElementsAre("0", "1", "2", "3", "4", "5", "6", "7"));
    EXPECT_THAT(completed("serve --allow-user roo"), Contains("root"));
    EXPECT_THAT(completed("ping \"\""), IsEmpty());
    const TestFiles files;
    files.write("a b.csv", "");
    std::filesystem::create_directory(files.path("directory"));
    EXPECT_THAT(completed("import " + files.path("a")), ElementsAre(files.path("a b.csv")));
    EXPECT_THAT(completed("export " + files.path("a")), ElementsAre(files.path("a b.csv")));
    EXPECT_THAT(completed("--config-dir " + files.path("")), ElementsAre(files.path("directory")));
}

TEST(BashCompletion, OffersCommandsToRunAndTheirFiles) {
    EXPECT_THAT(completed("run 7 /run/a.sock -- bas"), Contains("bash"));
    EXPECT_THAT(completed("--socket x run --timeout 5 7 /run/a.sock -- bas"), Contains("bash"));
    EXPECT_THAT(completed("run 7 /run/a.sock -- bash --soc"), IsEmpty());
    EXPECT_THAT(completed("run 7 /run/a.sock -- bash --format \"\""), Not(Contains("csv")));
    EXPECT_THAT(completed("run 7 bas"), IsEmpty());
    const TestFiles files;
    files.write("a.csv", "");
    EXPECT_THAT(completed("run 7 /run/a.sock -- cat " + files.path("a")),
                ElementsAre(files.path("a.csv")));
}

TEST(BashCompletion, OffersRegisteredIdentifiers) {
    HostProcess host;
    ASSERT_TRUE(host.start()) << host.errors();
    ProgramRun program;
    program.run({"--socket", host.socket(), "register", "7", "{\"id\":8", "71", "a\nb", "-7", "c"});
    for (const std::string subcommand : {"get", "wait", "watch", "unregister"}) {
        const std::string words = "--socket " + host.socket() + ' ' + subcommand;
        EXPECT_THAT(completed(words + " \"\"", QVHOST_PROGRAM), ElementsAre("-7", "7", "71"));
        EXPECT_THAT(completed(words + " 71 7", QVHOST_PROGRAM), ElementsAre("7", "71"));
        EXPECT_THAT(completed(words + " -7", QVHOST_PROGRAM), ElementsAre("-7"));
        EXPECT_THAT(completed(subcommand + " --socket = " + host.socket() + " 71", QVHOST_PROGRAM),
                    ElementsAre("71"));
        EXPECT_THAT(completed(subcommand + " --socket none \"\"", QVHOST_PROGRAM), IsEmpty());
    }
}

// Returns the options that the zsh completion has for a subcommand, those of its groups included.
Words zshOptions(const std::string& script, const std::string& subcommand) {
    static const std::regex kOption("[('{,* \"](--[a-z-]+)[=\\[}]");
    std::smatch label;
    if (!std::regex_search(
            script, label,
            std::regex("\n                (?:[a-z| ]+ )?" + subcommand + "[a-z| ]*\\)"))) {
        return {};
    }
    const auto start = static_cast<std::size_t>(label.position());
    std::string text = script.substr(start, script.find(";;", start) - start);
    for (const char* group :
         {"help", "configuration", "plugin", "host", "socket", "json", "format"}) {
        if (text.find(std::string("$") + group) != std::string::npos) {
            const std::size_t place = script.find(std::string("\n    ") + group + "=(");
            const std::size_t lineEnd = script.find('\n', place + 1);
            const bool isOneLine = script[lineEnd - 1] == ')';
            const std::size_t groupEnd = isOneLine ? lineEnd : script.find("\n    )", place);
            text += script.substr(place, groupEnd - place);
        }
    }
    return found(text, kOption);
}

TEST(ZshCompletion, KnowsEverySubcommandAndItsOptions) {
    const std::string script = readFile(kZsh);
    std::map<std::string, std::string> described;
    static const std::regex kCommand("\n        ['\"]([a-z]+):([^\n]*)['\"](?=\n)");
    for (std::sregex_iterator match(script.begin(), script.end(), kCommand), end; match != end;
         ++match) {
        described[(*match)[1]] = (*match)[2];
    }
    EXPECT_EQ(described, subcommands());
    for (const std::string& subcommand : subcommandNames()) {
        EXPECT_EQ(zshOptions(script, subcommand), optionsOf({subcommand})) << subcommand;
    }
}

TEST(ZshCompletion, IsAScriptOfZsh) {
    if (std::system("command -v zsh >/dev/null") != 0) {
        GTEST_SKIP() << "no zsh here";
    }
    EXPECT_EQ(std::system((std::string("zsh -n ") + kZsh).c_str()), 0);
}

// Types the words and a tab into zsh on a terminal. Returns whether they become the completed ones.
bool zshCompletes(const std::string& words, const std::string& completedWords) {
    const std::string folder = QVHOST_COMPLETIONS_DIR;
    const std::string script =
        "zmodload zsh/zpty\n"
        "zpty z 'TERM=dumb zsh -f -i'\n"
        "zpty -w z 'autoload -Uz compinit; fpath=(" +
        folder +
        " $fpath); compinit -D -u; echo rea\"\"dy'\n"
        "zpty -r z output '*ready*'\n"
        "zpty -w -n z \"" +
        words +
        "\"$'\\t'\n"
        "zpty -r z output '*" +
        completedWords +
        "*'\n"
        "zpty -d z\n";
    return std::system(("timeout 20 zsh -f -c '" +
                        std::regex_replace(script, std::regex("'"), "'\\''") + "'")
                           .c_str()) == 0;
}

TEST(ZshCompletion, KnowsWhatFollowsAnOptionAndACommand) {
    if (std::system("command -v zsh >/dev/null") != 0) {
        GTEST_SKIP() << "no zsh here";
    }
    EXPECT_TRUE(zshCompletes("qvhost unreg", "qvhost unregister "));
    EXPECT_TRUE(zshCompletes("qvhost --json ping --socket x --tim", "--timeout="));
    EXPECT_TRUE(zshCompletes("qvhost run --socket x 7 /run/a.sock -- basena", "-- basename "));
    EXPECT_TRUE(zshCompletes("qvhost run 7 /run/a.sock -- bash --nopr", "bash --noprofile "));
}

}  // namespace
}  // namespace qv::host
