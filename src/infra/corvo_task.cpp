// Out of line because libraries with their own tasks bind to these.
#include "infra/corvo_task.h"

namespace corvo {

Task::Task(int32_t hog_timeout_ms) : m_hog_timeout_ms(hog_timeout_ms) {}

Task::~Task() = default;

int64_t Task::hog_timeout_ms() const {
    return m_hog_timeout_ms;
}

}  // namespace corvo
