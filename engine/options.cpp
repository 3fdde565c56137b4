#include "options.h"

#include <dlfcn.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string_view>

#include "engine_error.h"
#include "packet_ring.h"

namespace corvo::engine {
namespace {

constexpr const char* FILE_NAME = "libcvcp_u.conf";
constexpr std::string_view BLANKS = " \t\r";

struct Setting {
    const char* name;
    size_t Options::*member;
    size_t least;
    size_t most;
};

constexpr Setting SETTINGS[] = {
    {"ring_bytes", &Options::ring_bytes, PacketRing::MIN_BYTES, PacketRing::MAX_BYTES},
};

std::string trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(BLANKS);
    if (begin == std::string_view::npos) return {};
    return std::string(text.substr(begin, text.find_last_not_of(BLANKS) + 1 - begin));
}

void set(Options& options, std::string_view line) {
    const size_t sign = line.find('=');
    const std::string name = trimmed(line.substr(0, sign));
    const auto* setting = std::find_if(std::begin(SETTINGS), std::end(SETTINGS),
                                       [&](const Setting& one) { return name == one.name; });
    if (sign == std::string_view::npos || setting == std::end(SETTINGS))
        throw Error("expecting 'ring_bytes = NUMBER', not " + quoted(trimmed(line)));
    const std::string value = trimmed(line.substr(sign + 1));
    size_t number = 0;
    const auto [end, err] = std::from_chars(value.data(), value.data() + value.size(), number);
    if (err != std::errc() || end != value.data() + value.size() || number < setting->least ||
        number > setting->most)
        throw Error(name + " must be from " + std::to_string(setting->least) + " to " +
                    std::to_string(setting->most) + ", not " + quoted(value));
    options.*setting->member = number;
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
            if (!told.empty()) set(options, told);
        } catch (const Error& e) {
            throw Error(quoted(file) + ", line " + std::to_string(number) + ": " + e.what());
        }
    }
    return options;
}

}  // namespace corvo::engine
