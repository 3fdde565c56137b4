#pragma once
// An engine on a scheduler of its own, driven against the scripted library: what the tests of the loader and
// of packet injection share.

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "infra/corvo_scheduler.h"
#include "server/corvo_server_loader_us.h"
#include "support/capture_logger.h"
#include "support/error_of.h"
#include "support/temp_dir.h"

namespace test {

class EngineTest : public testing::Test {
 public:
    using Engine = corvo::server::Engine;

    EngineTest() : m_engine(m_sched) {
        setenv("TEST_ENGINE_LOG", m_dir.file("calls").c_str(), 1);
        setenv("TEST_ENGINE_SCRIPT", m_dir.file("script").c_str(), 1);
    }
    ~EngineTest() override {
        script("");
        m_engine.cleanup();
    }

    static std::string engine_dir(const std::string& name) { return TEST_ENGINES_DIR "/" + name; }
    void script(const std::string& text) { m_dir.write("script", text); }
    /** The library's calls since the last question, one a line. */
    std::string calls() {
        std::string text = read_file(m_dir.file("calls"));
        m_dir.write("calls", "");
        return text;
    }
    /** Loaded, active, and with "eth0" attached, as far as `state` asks for. */
    void bring_up(Engine::state_e state) {
        if (state >= Engine::STATE_LOADED) m_engine.load_engine(engine_dir("scripted"), {});
        if (state >= Engine::STATE_ACTIVE) m_engine.activate({});
        if (state >= Engine::STATE_ATTACHED) m_engine.attach("eth0");
        calls();
    }
    TempDir m_dir;
    CaptureLogger m_log{corvo::Logger::INFO};
    corvo::Scheduler m_sched;
    corvo::server::EngineUS m_engine;
};

}  // namespace test
