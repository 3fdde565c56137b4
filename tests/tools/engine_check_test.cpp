// brumecp-engine-check as an engine's author runs it: on sound libraries, on each kind of broken one, and on
// the example, built against the installed files alone.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <filesystem>
#include <sstream>

#include "support/temp_dir.h"

namespace test {
namespace {

struct Ended {
    int status = -1;
    std::string out;  ///< stderr, too
};

Ended ended(const std::string& command) {
    Ended result;
    FILE* pipe = popen(("ulimit -c 0; { " + command + "; } 2>&1").c_str(), "r");
    char piece[4096];
    while (size_t size = fread(piece, 1, sizeof(piece), pipe))
        result.out.append(piece, size);
    result.status = WEXITSTATUS(pclose(pipe));
    return result;
}

/** "STEP: note" of all steps that failed. */
std::string failures(const std::string& out) {
    std::string found;
    std::istringstream lines(out);
    for (std::string line; std::getline(lines, line);) {
        size_t word = line.find(" failed ");
        if (word == std::string::npos || word < 13) continue;
        std::string step = line.substr(0, 13);
        step.erase(step.find_last_not_of(' ') + 1);
        size_t ms = line.find_first_not_of(' ', word + 8);
        size_t note = line.find_first_not_of(' ', line.find(' ', ms));
        found += step + ": " + (note == std::string::npos ? "" : line.substr(note)) + "\n";
    }
    return found;
}

TEST(EngineCheck, FindsSoundEnginesFit) {
    for (const char* dir :
         {OUR_ENGINE_DIR, ENGINES_DIR "/inert", ENGINES_DIR "/scripted", ENGINES_DIR "/inert/libcvcp_u.so"}) {
        Ended run = ended(std::string("env -u TEST_ENGINE_SCRIPT " ENGINE_CHECK " --timeout 60 ") + dir);
        EXPECT_EQ(run.status, 0) << run.out;
        EXPECT_EQ(failures(run.out), "");
    }
}

TEST(EngineCheck, TellsWhatIsWrongWithEachLibraryOfTheShelf) {
    struct Broken {
        const char* name;
        const char* failure;
    };
    const Broken shelf[] = {
        {"not_a_library", "open: "},
        {"nosuch", "open: "},
        {"without_activate", "functions: missing: corvo_api_cp_activate\n"},
        {"without_coffee", "functions: missing: corvo_api_cp_coffee\n"},
        {"without_get_evfd", "functions: missing: corvo_api_cp_get_evfd\n"},
        {"init_fails", "init: 100% broken\n"},
        {"evfd_zero", "descriptor: must be above 0, is 0\n"},
        {"evfd_closed", "descriptor: 1000 isn't open\n"},
    };
    for (const Broken& broken : shelf) {
        Ended run = ended(std::string(ENGINE_CHECK " --timeout 60 " ENGINES_DIR "/") + broken.name);
        EXPECT_EQ(run.status, 1) << broken.name;
        EXPECT_EQ(failures(run.out).rfind(broken.failure, 0), 0U) << broken.name << "\n" << run.out;
    }
}

TEST(EngineCheck, OutlivesAnEngineThatDiesOrHangsAndNamesTheStep) {
    struct Script {
        const char* text;
        const char* failure;
    };
    const Script scripts[] = {
#ifndef __SANITIZE_ADDRESS__  // which sees the null pointer first
        {"crash activate null", "activate: died of signal 11 (Segmentation fault)\n"},
#endif
        {"crash push_pkts abort", "push: died of signal 6 (Aborted)\n"},
        {"crash tick hang", "tick: not done within 5 s, killed\n"},
        {"crash deinit exit 0", "deinit: ended the process with status 0\n"},
        {"crash init throw", "init: an exception left the function: scripted exception\n"},
        {"fail coffee no \x1b[31mcolour", "forget flows: dp.veld.sui_lut_remove_all_links: no ?[31mcolour\n"},
        {"signal tick", "settle: the descriptor stays readable: the daemon would call tick for ever\n"},
    };
    for (const Script& script : scripts) {
        TempDir dir;
        dir.write("script", script.text);
        const std::string env =
            "env TEST_ENGINE_SCRIPT=" + dir.file("script") + " ASAN_OPTIONS=handle_segv=0:handle_abort=0 ";
        Ended run = ended(env + ENGINE_CHECK " --timeout " +
                          (std::string(script.text).find("hang") == std::string::npos ? "60 " : "5 ") +
                          ENGINES_DIR "/scripted");
        EXPECT_EQ(failures(run.out), script.failure) << script.text << "\n" << run.out;
        EXPECT_EQ(run.status, 1);
    }
}

TEST(EngineCheck, TellsWhatAnEngineDoesNotGiveBack) {
    Ended run = ended(ENGINE_CHECK " --timeout 60 " CARELESS_ENGINE_DIR);
    EXPECT_EQ(failures(run.out),
              "methods: in the place of the daemon's own: ping\n"
              "leftovers: not given back: methods: left, the daemon's own methods: ping, threads: 2, "
              "descriptors: 2\n")
        << run.out;
    EXPECT_EQ(run.status, 1);
}

TEST(EngineCheck, PassesOnWhatTheEnginePrintsAndRefusesBadOptions) {
    TempDir dir;
    dir.write("script", "stderr init a word of warning");
    Ended run =
        ended("env TEST_ENGINE_SCRIPT=" + dir.file("script") + " " ENGINE_CHECK " " ENGINES_DIR "/scripted");
    EXPECT_NE(run.out.find("a word of warning\n"), std::string::npos) << run.out;
    for (const char* bad : {"", "a b", "--timeout 0 a", "--timeout x a", "--nosuch a"})
        EXPECT_EQ(ended(std::string(ENGINE_CHECK " ") + bad).status, 2) << bad;
}

TEST(EngineExample, IsBuiltAgainstTheInstalledFilesAloneAndIsFit) {
    TempDir dir;
    const std::string prefix = dir.file("prefix");
    Ended install = ended(CMAKE_PROGRAM " --install " BUILD_DIR " --component dev --prefix " + prefix);
    ASSERT_EQ(install.status, 0) << install.out;
    // A copy: nothing that stands beside it in the source tree can help.
    const std::string source = dir.file("source");
    std::filesystem::copy(EXAMPLE_DIR, source);
    // All commands of its README as they stand there: with CMake, the check, and without CMake.
    const std::string commands = "eval \"$(sed -n 's/^    //p' README.md)\"";
    Ended followed =
        ended("cd " + source + " && export CMAKE_PREFIX_PATH=" + prefix + " PATH=" + prefix +
              "/bin:$PATH PKG_CONFIG_PATH=" + prefix + "/share/pkgconfig && set -ex && " + commands);
    ASSERT_EQ(followed.status, 0) << followed.out;
    for (const std::string& built : {source + "/build", source}) {
        Ended checked = ended(prefix + "/bin/brumecp-engine-check --timeout 60 " + built);
        EXPECT_EQ(checked.status, 0) << checked.out;
        for (const char* note : {"57 of 99 packets classified", "ports.name"})
            EXPECT_NE(checked.out.find(note), std::string::npos) << checked.out;
    }
}

}  // namespace
}  // namespace test
