// A command line against options of every action and type, and the texts that the parser makes. Words end at
// a NUL or a line break.

#include <cassert>
#include <iostream>
#include <sstream>

#include "fuzz/fuzz_input.h"
#include "utils/optparse/option_parser.h"
#include "utils/optparse/text.h"

namespace {

struct Exit {};

/** Throws where the process would end. */
class Parser : public optparse::OptionParser {
 public:
    Parser() {
        set_version("%prog 1.0").set_usage("usage: %prog [options] word");
        description("Options of every kind.").description("Twice.");
        add_option("-s", "--string").set_default("text").help("a text, %default by default");
        add_option("-i", "--int", "--integer").type("int").help("a number");
        add_option("-l", "--long").type("long");
        add_option("-f", "--float").type("float");
        add_option("-d", "--double").type("double").set_default(1.5);
        add_option("-x", "--complex").type("complex");
        add_option("-c", "--choice").choices({"one", "two"}).help("one of %choices");
        add_option("-p", "--pair").value_count(2);
        add_option("-a", "--append").action("append").type("int");
        add_option("--const").action("store_const").const_text("const");
        add_option("--append-const").action("append_const").const_text("more");
        add_option("-t").action("store_true");
        add_option("-n", "--no-t").action("store_false").key("t");
        add_option("-v", "--verbose").action("count");
    }
    [[noreturn]] void exit(int) const override { throw Exit(); }
};

/** Keeps what is meant for a terminal. */
struct Silence {
    Silence() : out(std::cout.rdbuf(text.rdbuf())), err(std::cerr.rdbuf(text.rdbuf())) {}
    ~Silence() {
        std::cout.rdbuf(out);
        std::cerr.rdbuf(err);
    }
    std::ostringstream text;
    std::streambuf* out;
    std::streambuf* err;
};

void read_values(const optparse::Values& values) {
    for (const char* key : {"string", "integer", "int", "long", "float", "double", "t", "verbose"}) {
        const optparse::Value value = values.get(key);
        [[maybe_unused]] const volatile int number = value;
        [[maybe_unused]] const volatile double fraction = value;
        [[maybe_unused]] const volatile bool flag = value;
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const Silence silence;
    fuzz::Input input(data, size);
    const bool mixed = input.u8() % 2 == 0;
    std::string line = input.rest();
    std::vector<std::string> words(1);
    for (const char c : line) {
        if (c == '\n' || c == '\0')
            words.emplace_back();
        else
            words.back() += c;
    }

    Parser parser;
    parser.set_prog("prog").set_mixed_args(mixed);
    try {
        read_values(parser.parse_args(words));
        assert(parser.leftover().size() <= words.size());
    } catch (const Exit&) {
    }

    // The same text as the help of an option, in a narrow window.
    parser.add_option("--last").help(line);
    assert(!parser.format_help().empty());
    const std::string wrapped = optparse::str_format(line, line.size() % 7, line.size() % 31);
    assert(wrapped.ends_with('\n'));
    return 0;
}
