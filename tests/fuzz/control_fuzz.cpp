// What operators configure in our engine: exporter, health thresholds, collectors. An input is a list of
// lines, each a letter and its argument. Time passes only in ticks.
//
// `h`: a health configuration as JSON; `x`: an exporter's type as a digit, then port, server and path, with
// tabs between them; `+`, `-` and `s`: a collector to enable, disable and sample; `i`: an interval, a tab and
// a collector; `t`: a tick, this many milliseconds after the last one.

#include <arpa/inet.h>
#include <json/reader.h>
#include <unistd.h>

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <filesystem>

#include "engine.h"
#include "engine/pushed.h"
#include "engine_error.h"
#include "fuzz/fuzz_input.h"
#include "support/net_namespace.h"
#include "support/temp_dir.h"

namespace {

namespace api = corvo::api;
using corvo::engine::Collectors;
using corvo::engine::Engine;
using corvo::engine::Exporter;
using test::g_now_ms;

/** A folder to write files in, and a network where nobody listens. */
struct World {
    World() {
        [[maybe_unused]] const int rc = chdir(dir.path().c_str());
        assert(rc == 0);
    }
    const test::TempDir dir;
    const test::NetNamespace network;
};

uint64_t number(const std::string& text) {
    return std::strtoull(text.c_str(), nullptr, 10);
}

/** Whether the engine accepts it. An Error is the only way to refuse. */
template <typename Work>
bool accepted(Work work) {
    try {
        work();
        return true;
    } catch (const corvo::engine::Error& e) {
        assert(e.what()[0] != '\0');
        return false;
    }
}

class Session {
 public:
    explicit Session(const World& world) : m_world(world) {}

    void run(char letter, const std::string& line) {
        fuzz::Input words(reinterpret_cast<const uint8_t*>(line.data()), line.size());
        switch (letter) {
            case 'h':
                return configure_health(line);
            case 'x':
                return set_exporter(words);
            case '+':
                accepted([&] { m_engine.enable_collector(line); });
                return;
            case '-':
                accepted([&] { m_engine.disable_collector(line); });
                return;
            case 'i': {
                const uint64_t ms = number(words.until('\t'));
                const bool taken = accepted([&] { m_engine.set_collector_interval(words.rest(), ms); });
                assert(!taken || (ms >= Collectors::MIN_INTERVAL_MS && ms <= Collectors::MAX_INTERVAL_MS));
                return;
            }
            case 's':
                accepted([&] { assert(m_engine.sample(line)["collector"] == line); });
                return;
            case 't':
                return tick(number(line));
        }
    }

    void check() {
        assert(m_engine.collectors()["exporter"]["queued"].asUInt64() <= Exporter::MAX_QUEUED);
        for (const Json::Value& item : m_engine.health(true)["items"])
            assert(item["warn"].asUInt64() >= 1 && item["warn"].asUInt64() <= item["bad"].asUInt64());
    }

 private:
    void configure_health(const std::string& text) {
        Json::Value conf;
        try {
            if (!Json::Reader().parse(text, conf)) return;
        } catch (const Json::Exception&) {
            return;  // nested too deep
        }
        const Json::Value before = m_engine.health_configuration();
        if (accepted([&] { m_engine.configure_health(conf); }))
            m_engine.configure_health(m_engine.health_configuration());
        else
            assert(m_engine.health_configuration() == before);
    }

    void set_exporter(fuzz::Input& words) {
        api::ExporterConfig config;
        config.type = static_cast<api::exporter_type_e>(words.u8() - '0');
        config.port = static_cast<uint16_t>(number(words.until('\t')));
        config.server = words.until('\t');
        config.path = words.rest();
        if (config.type == api::EXPORTER_FILE) std::replace(config.path.begin(), config.path.end(), '/', '_');
        const Json::Value before = m_engine.collectors()["exporter"];
        const bool taken = accepted([&] { m_engine.set_exporter(config); });
        const Json::Value after = m_engine.collectors()["exporter"];
        assert(taken ? after["path"].asString() == config.path || config.type == api::EXPORTER_NONE
                     : after == before);
        // A name would be looked up in a thread.
        in6_addr ignored;
        const bool is_address = inet_pton(AF_INET, config.server.c_str(), &ignored) == 1 ||
                                inet_pton(AF_INET6, config.server.c_str(), &ignored) == 1;
        if (taken)
            m_may_send = config.type == api::EXPORTER_FILE || config.type == api::EXPORTER_NONE ||
                         (m_world.network.entered() && is_address);
    }

    void tick(uint64_t passed_ms) {
        g_now_ms += passed_ms % (2 * Collectors::MAX_INTERVAL_MS);
        if (!m_may_send) return;
        std::string problem;
        [[maybe_unused]] const int delay_ms = m_engine.tick(problem);
        assert(delay_ms >= 0 && delay_ms <= 1000);
    }

    const World& m_world;
    Engine m_engine{api::InitConfig(), {}, test::fake_clock};
    bool m_may_send = true;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const World world;
    g_now_ms = 1;
    {
        Session session(world);
        for (fuzz::Input input(data, size); !input.empty();) {
            const auto letter = static_cast<char>(input.u8());
            session.run(letter, input.until('\n'));
        }
        session.check();
    }
    for (const auto& entry : std::filesystem::directory_iterator("."))
        std::filesystem::remove(entry.path());
    return 0;
}
