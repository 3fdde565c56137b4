#include "options.h"

#include <dlfcn.h>

#include <algorithm>
#include <charconv>
#include <climits>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string_view>
#include <variant>

#include "engine_error.h"
#include "packet_ring.h"

namespace corvo::engine {
namespace {

constexpr const char* FILE_NAME = "libcvcp_u.conf";
constexpr std::string_view BLANKS = " \t\r";

struct Number {
    uint64_t Options::*member;
    uint64_t least;
    uint64_t most;
};

struct Text {
    std::string Options::*member;
    bool (*is_good)(const std::string&);
    const char* expected;
};

struct Setting {
    const char* name;
    std::variant<Number, Text> kind;
};

bool is_sensor(const std::string& text) {
    return !text.empty() && text.size() <= 253;
}

bool is_folder(const std::string& text) {
    return text.starts_with('/') && text.size() < PATH_MAX;
}

constexpr uint64_t MIN_SPOOL = 8 << 20;
constexpr uint64_t MAX_SPOOL = uint64_t{1} << 40;

const Setting SETTINGS[] = {
    {"ring_bytes", Number{&Options::ring_bytes, PacketRing::MIN_BYTES, PacketRing::MAX_BYTES}},
    {"sensor", Text{&Options::sensor, is_sensor, "a text of at most 253 bytes"}},
    {"spool", Text{&Options::spool, is_folder, "an absolute path"}},
    {"spool_bytes", Number{&Options::spool_bytes, MIN_SPOOL, MAX_SPOOL}},
};

std::string trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(BLANKS);
    if (begin == std::string_view::npos) return {};
    return std::string(text.substr(begin, text.find_last_not_of(BLANKS) + 1 - begin));
}

void set(Options& options, const std::string& name, const Number& kind, const std::string& value) {
    uint64_t number = 0;
    const auto [end, err] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (err != std::errc() || end != value.data() + value.size() || number < kind.least || number > kind.most)
        throw Error(name + " must be from " + std::to_string(kind.least) + " to " +
                    std::to_string(kind.most) + ", not " + quoted(value));
    options.*kind.member = number;
}

void set(Options& options, const std::string& name, const Text& kind, const std::string& value) {
    if (!kind.is_good(value)) throw Error(name + " must be " + kind.expected + ", not " + quoted(value));
    options.*kind.member = value;
}

std::string known_names() {
    std::string out;
    for (const Setting& setting : SETTINGS)
        out += (out.empty() ? "'" : ", '") + std::string(setting.name) + "'";
    return out;
}

void set_line(Options& options, std::string_view line) {
    const size_t sign = line.find('=');
    const std::string name = trimmed(line.substr(0, sign));
    const auto* setting = std::find_if(std::begin(SETTINGS), std::end(SETTINGS),
                                       [&](const Setting& one) { return name == one.name; });
    if (sign == std::string_view::npos || setting == std::end(SETTINGS))
        throw Error("expecting 'NAME = VALUE' with " + known_names() + ", not " + quoted(trimmed(line)));
    const std::string value = trimmed(line.substr(sign + 1));
    std::visit([&](const auto& kind) { set(options, name, kind, value); }, setting->kind);
}

std::string default_file() {
    static const char here = 0;
    Dl_info library{};
    const std::string path = dladdr(&here, &library) != 0 && library.dli_fname ? library.dli_fname : "";
    return path.substr(0, path.rfind('/') + 1) + FILE_NAME;
}

}  // namespace

Options Options::load() {
    const char* named = std::getenv("BRUMECP_ENGINE_CONF");
    const std::string file = named ? named : default_file();
    std::ifstream in(file);
    if (!in && !named) return {};
    std::stringstream text;
    text << in.rdbuf();
    if (!in) throw Error("can't read the engine's options in " + quoted(file));
    return parse(text.str(), file);
}

Options Options::parse(const std::string& text, const std::string& file) {
    Options options;
    std::istringstream lines(text);
    size_t number = 0;
    for (std::string line; std::getline(lines, line);) {
        ++number;
        try {
            const std::string told = trimmed(line.substr(0, line.find('#')));
            if (!told.empty()) set_line(options, told);
        } catch (const Error& e) {
            throw Error(quoted(file) + ", line " + std::to_string(number) + ": " + e.what());
        }
    }
    return options;
}

}  // namespace corvo::engine
