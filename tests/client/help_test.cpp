// What people are told of each word, and that it's true.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <CLI/CLI.hpp>
#include <sstream>

#include "client/program.h"
#include "client/shell/split.h"
#include "client/text/wrap.h"
#include "client/words/completion.h"
#include "client/words/examples.h"
#include "client/words/help.h"
#include "client/words/line_complaints.h"

namespace brumectl {
namespace {

using testing::Each;
using testing::Not;

/** Its name as `help` takes it, and the word: of the whole program, it first. */
std::vector<std::pair<std::string, const CLI::App*>> all_words(const CLI::App& app,
                                                               const std::string& path = "") {
    std::vector<std::pair<std::string, const CLI::App*>> found{{path, &app}};
    for (const CLI::App* word : words_of(app)) {
        const auto inner = all_words(*word, path + (path.empty() ? "" : " ") + word->get_name());
        found.insert(found.end(), inner.begin(), inner.end());
    }
    return found;
}

TEST(Help, EachWordHasTwoExamplesThatCanBeTyped) {
    const Program words;
    for (const auto& [path, word] : all_words(words.app())) {
        if (path == "man-tables") continue;
        const std::vector<Example> examples = examples_of(path);
        EXPECT_EQ(examples.size(), 2U) << path;
        for (const Example& example : examples) {
            Program program;
            struct Understood {};  // before anything is done
            const_cast<CLI::App&>(program.app()).parse_complete_callback([] { throw Understood(); });
            EXPECT_THROW(program.run(split_words(example.line)), Understood) << example.line;
            const std::string named = typed_name(innermost(program.app()), true);
            EXPECT_EQ(named.rfind(path, 0), 0U) << example.line;
        }
    }
}

TEST(Help, ItFitsTheTerminalInPlainSignsAndTellsOfEachOptionMoreThanItsName) {
    // Nobody has chosen a locale here: it is "C".
    constexpr size_t WIDTH = 50;
    const Program program;
    for (const auto& [path, word] : all_words(program.app())) {
        std::istringstream lines(help_text(*word, {WIDTH, false}));
        for (std::string line; std::getline(lines, line);) {
            const size_t words = split_unfinished(line.substr(0, line.find('\''))).size();
            EXPECT_TRUE(line.size() <= WIDTH || line.rfind("  brumectl ", 0) == 0 || words < 4) << line;
            EXPECT_THAT(line, Each(testing::AllOf(Not('`'), testing::Ge(' '), testing::Lt('\x7f')))) << path;
        }
        for (const CLI::Option* option : word->get_options()) {
            const std::string text = option->get_description();
            EXPECT_TRUE(text.size() > 6 && text != option->get_single_name())
                << path << ": " << option->get_name();
        }
    }
}

TEST(Help, EntriesHangAndParagraphsFlow) {
    EXPECT_EQ(
        reflowed("One two three four,\nfive.\n\n  term  what it\n        is\n  other  more of it\n", 16),
        "One two three\nfour, five.\n\n  term  what it\n        is\n  other  more of\n         it\n");
}

}  // namespace
}  // namespace brumectl
