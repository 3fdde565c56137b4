#pragma once
// The life of an engine from opening to closing, step by step as the daemon would lead it. Runs in a process
// that the engine may bring down.

#include <string>

#include "tools/engine-check/library.h"
#include "tools/engine-check/methods.h"
#include "tools/engine-check/step_log.h"

namespace engine_check {

class Life {
 public:
    Life(std::string path, const StepWriter& log) : m_path(std::move(path)), m_log(log) {}
    /** Returns when everything is done, or when it can't go on. */
    void run();

 private:
    /** Returns why the step failed; empty on success. */
    using step_fn = std::string (Life::*)();

    bool step(const char* name, step_fn work);
    void live();

    std::string open();
    std::string find_functions();
    std::string compare_runtimes();
    std::string init();
    std::string check_methods();
    std::string check_descriptor();
    std::string tick();
    /** Collectors and health, including the calls that are allowed before the engine is active. */
    std::string ask_watchers();
    std::string ask_status();
    std::string activate();
    std::string forget_flows();
    std::string push();
    std::string push_cut();
    std::string settle();
    std::string deactivate();
    std::string deinit();
    std::string check_leftovers();
    std::string close();

    std::string m_path;
    const StepWriter& m_log;
    Methods m_methods;
    Library m_library;
    size_t m_descriptors = 0;  ///< open before the library was loaded
    int m_evfd = -1;
    std::string m_note;  ///< of the current step
};

}  // namespace engine_check
