#include "options.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <climits>
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

/** More than any sensible file has, so that naming a device by mistake is harmless. */
constexpr size_t MAX_FILE = 64UL << 10;
constexpr uint64_t MIB = 1UL << 20;

struct Setting {
    const char* name;
    std::variant<uint64_t Options::*, std::string Options::*> member;
    uint64_t least;  ///< the number's range, or that of the text's length
    uint64_t most;
};

constexpr Setting SETTINGS[] = {
    {"ring_bytes", &Options::ring_bytes, PacketRing::MIN_BYTES, PacketRing::MAX_BYTES},
    {"sensor", &Options::sensor, 1, 255},
    {"spool", &Options::spool, 0, PATH_MAX / 2},
    {"spool_bytes", &Options::spool_bytes, 8 * MIB, MIB* MIB},
    {"workers", &Options::workers, 1, 128},
};

std::string trimmed(std::string_view text) {
    const size_t begin = text.find_first_not_of(BLANKS);
    if (begin == std::string_view::npos) return {};
    return std::string(text.substr(begin, text.find_last_not_of(BLANKS) + 1 - begin));
}

std::string from_to(const Setting& setting) {
    return "from " + std::to_string(setting.least) + " to " + std::to_string(setting.most);
}

uint64_t number_of(const Setting& setting, const std::string& value) {
    uint64_t number = 0;
    const char* past = value.data() + value.size();
    const auto [end, err] = std::from_chars(value.data(), past, number);
    if (err != std::errc() || end != past || number < setting.least || number > setting.most)
        throw Error(std::string(setting.name) + " must be " + from_to(setting) + ", not " + quoted(value));
    return number;
}

const std::string& text_of(const Setting& setting, const std::string& value) {
    const auto is_control = [](unsigned char c) { return c < ' ' || c == 0x7f; };
    if (value.size() < setting.least || value.size() > setting.most ||
        std::any_of(value.begin(), value.end(), is_control))
        throw Error(std::string(setting.name) + " must have " + from_to(setting) +
                    " bytes and no control characters");
    return value;
}

const Setting& setting_of(const std::string& name) {
    std::string names;
    for (const Setting& setting : SETTINGS) {
        if (name == setting.name) return setting;
        names += (names.empty() ? "" : ", ") + std::string(setting.name);
    }
    throw Error("no option " + quoted(name) + ", expecting one of " + names);
}

void set(Options& options, std::string_view line) {
    const size_t sign = line.find('=');
    const Setting& setting = setting_of(trimmed(line.substr(0, sign)));
    if (sign == std::string_view::npos)
        throw Error(std::string("expecting '") + setting.name + " = VALUE', not " + quoted(trimmed(line)));
    const std::string value = trimmed(line.substr(sign + 1));
    if (const auto* number = std::get_if<uint64_t Options::*>(&setting.member))
        options.** number = number_of(setting, value);
    else
        options.*std::get<std::string Options::*>(setting.member) = text_of(setting, value);
}

std::string host_name() {
    char name[HOST_NAME_MAX + 1] = {};
    return gethostname(name, HOST_NAME_MAX) == 0 ? name : "";
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
    const int error = errno;
    if (!in && !named && error == ENOENT) return parse("", file);
    const std::string what = "can't read the engine's options in " + quoted(file);
    if (!in) throw Error(what + reason(error));
    std::string text(MAX_FILE + 1, '\0');
    in.read(text.data(), static_cast<std::streamsize>(text.size()));
    if (in.bad()) throw Error(what + reason(errno));
    text.resize(static_cast<size_t>(in.gcount()));
    if (text.size() > MAX_FILE) throw Error(what + ": more than " + std::to_string(MAX_FILE) + " bytes");
    return parse(text, file);
}

Options Options::parse(const std::string& text, const std::string& file) {
    Options options;
    options.sensor = host_name();
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
