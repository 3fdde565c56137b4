#include "tools/engine-check/step_log.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>

namespace engine_check {

void StepWriter::begin(const std::string& name) const {
    line("B" + name);
}

void StepWriter::end(verdict_e verdict, uint64_t ms, const std::string& note) const {
    line("E" + std::string(1, verdict) + std::to_string(ms) + " " + note);
}

void StepWriter::finish() const {
    line("F");
}

void StepWriter::line(std::string text) const {
    std::replace(text.begin(), text.end(), '\n', ' ');
    text += '\n';
    for (size_t done = 0; done < text.size();) {
        const ssize_t size = write(m_fd, text.data() + done, text.size() - done);
        if (size < 0 && errno != EINTR) return;  // the watching process is gone
        if (size > 0) done += static_cast<size_t>(size);
    }
}

void StepReader::take(const char* data, size_t size) {
    m_rest.append(data, size);
    size_t begin = 0;
    for (size_t end = m_rest.find('\n'); end != std::string::npos; end = m_rest.find('\n', begin)) {
        take_line(m_rest.substr(begin, end - begin));
        begin = end + 1;
    }
    m_rest.erase(0, begin);
}

void StepReader::take_line(const std::string& line) {
    if (line.empty()) return;
    if (line[0] == 'B') m_steps.push_back({.name = line.substr(1)});
    if (line[0] == 'F') m_finished = true;
    if (line[0] != 'E' || line.size() < 2 || m_steps.empty()) return;
    Step& step = m_steps.back();
    step.verdict = static_cast<verdict_e>(line[1]);
    int read = 0;
    if (sscanf(line.c_str() + 2, "%" SCNu64 " %n", &step.ms, &read) == 1)
        step.note = line.substr(2 + static_cast<size_t>(read));
}

}  // namespace engine_check
