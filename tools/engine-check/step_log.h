#pragma once
// What the process that runs the engine tells the one that watches it: a line at the start of each step and
// one at its end. If a step starts and never ends, the engine died or hung in it.

#include <cstdint>
#include <string>
#include <vector>

namespace engine_check {

enum verdict_e : char { UNFINISHED = '?', OK = '+', FAILED = '-' };

struct Step {
    std::string name = {};
    verdict_e verdict = UNFINISHED;
    uint64_t ms = 0;
    std::string note = {};  ///< why it failed, or something worth knowing
};

/** The writing end. Doesn't own the descriptor. */
class StepWriter {
 public:
    explicit StepWriter(int fd) : m_fd(fd) {}
    void begin(const std::string& name) const;
    void end(verdict_e verdict, uint64_t ms, const std::string& note) const;
    /** Marks all steps as done. Without this line, the process ended early. */
    void finish() const;

 private:
    void line(std::string text) const;

    int m_fd;
};

class StepReader {
 public:
    /** Takes whatever has arrived; lines may come in pieces. */
    void take(const char* data, size_t size);
    const std::vector<Step>& steps() const { return m_steps; }
    std::vector<Step>& steps() { return m_steps; }
    bool finished() const { return m_finished; }

 private:
    void take_line(const std::string& line);

    std::string m_rest;
    std::vector<Step> m_steps;
    bool m_finished = false;
};

}  // namespace engine_check
