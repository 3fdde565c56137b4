#include "client/shell/line_editor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <cwchar>
#include <filesystem>

#include "client/interrupt.h"
#include "utils/unique_fd.h"

namespace brumectl {

namespace {

constexpr int HISTORY_LINES = 1000;
/** Longer lines, such as a pasted frame, aren't worth keeping. */
constexpr size_t MAX_HISTORY_LINE_BYTES = 4096;

std::string common_prefix(const std::vector<std::string>& words) {
    std::string prefix = words.front();
    for (const std::string& word : words) {
        auto differ = std::mismatch(prefix.begin(), prefix.end(), word.begin(), word.end()).first;
        prefix.erase(differ, prefix.end());
    }
    return prefix;
}

}  // namespace

LineEditor::LineEditor(std::string prompt_text, std::string history_path, completer_t completer)
    : m_prompt(std::move(prompt_text)),
      m_history_path(std::move(history_path)),
      m_completer(std::move(completer)),
      m_editor(el_init("brumectl", stdin, stdout, stderr)),
      m_history(history_init()) {
    HistEvent event;
    history(m_history, &event, H_SETSIZE, HISTORY_LINES);
    history(m_history, &event, H_SETUNIQUE, 1);
    if (!m_history_path.empty()) history(m_history, &event, H_LOAD, m_history_path.c_str());
    el_set(m_editor, EL_CLIENTDATA, this);
    el_set(m_editor, EL_HIST, history, m_history);
    el_set(m_editor, EL_PROMPT, prompt);
    el_set(m_editor, EL_EDITOR, "emacs");
    el_set(m_editor, EL_SIGNAL, 0);
    el_set(m_editor, EL_GETCFN, read_char);
    // The wide form, because the narrow one makes copies that are never freed.
    el_wset(m_editor, EL_ADDFN, L"brumectl-complete", L"Completes a word", complete);
    el_set(m_editor, EL_BIND, "^I", "brumectl-complete", nullptr);
    el_set(m_editor, EL_BIND, "^R", "em-inc-search-prev", nullptr);
}

LineEditor::~LineEditor() {
    keep_history();
    history_end(m_history);
    el_end(m_editor);
}

bool LineEditor::next(std::string& line) {
    m_signum = 0;
    el_resize(m_editor);
    // Before the prompt: a Ctrl-D that the terminal takes in its own mode never reaches the editor.
    el_set(m_editor, EL_PREP_TERM, 1);
    int length = 0;
    const char* text = el_gets(m_editor, &length);
    if (m_signum != 0) {
        el_reset(m_editor);
        throw Interrupted(m_signum);
    }
    if (text == nullptr || length <= 0) return false;
    line.assign(text, static_cast<size_t>(length));
    if (line.back() == '\n') line.pop_back();
    remember(line);
    return true;
}

LineEditor& LineEditor::of(EditLine* editor) {
    void* self = nullptr;
    el_get(editor, EL_CLIENTDATA, &self);
    return *static_cast<LineEditor*>(self);
}

int LineEditor::read_char(EditLine* editor, wchar_t* c) {
    mbstate_t state = {};
    for (;;) {
        try {
            if (!interrupt::wait_readable(STDIN_FILENO, -1)) continue;
        } catch (const Interrupted& e) {
            of(editor).m_signum = e.signum();
            return 0;
        } catch (const std::exception&) {
            return -1;
        }
        char byte = 0;
        ssize_t size = read(STDIN_FILENO, &byte, 1);
        if (size < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (size <= 0) return static_cast<int>(size);
        size_t taken = mbrtowc(c, &byte, 1, &state);
        if (taken == static_cast<size_t>(-2)) continue;
        if (taken == static_cast<size_t>(-1)) {
            state = {};
            continue;
        }
        return 1;
    }
}

unsigned char LineEditor::complete(EditLine* editor, int /*c*/) {
    const LineInfo* info = el_line(editor);
    std::string typed(info->buffer, info->cursor);
    std::string last;
    std::vector<std::string> found = of(editor).m_completer(typed, last);
    if (found.empty()) return CC_REFRESH_BEEP;
    std::string rest = common_prefix(found).substr(last.size());
    if (found.size() == 1) rest += ' ';
    if (!rest.empty()) {
        el_insertstr(editor, rest.c_str());
        return CC_REFRESH;
    }
    std::string list = "\n";
    for (const std::string& word : found)
        list += word + "  ";
    printf("%s\n", list.c_str());
    fflush(stdout);
    return CC_REDISPLAY;
}

char* LineEditor::prompt(EditLine* editor) {
    return of(editor).m_prompt.data();
}

void LineEditor::remember(const std::string& line) {
    HistEvent event;
    if (line.find_first_not_of(" \t") != std::string::npos && line.size() <= MAX_HISTORY_LINE_BYTES)
        history(m_history, &event, H_ENTER, line.c_str());
}

void LineEditor::keep_history() const {
    if (m_history_path.empty()) return;
    // Lines may contain secrets, and the library creates files that everybody can read.
    std::string fresh = m_history_path + "." + std::to_string(getpid());
    corvo::UniqueFd fd(open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (!fd) return;
    HistEvent event;
    bool kept = history(m_history, &event, H_SAVE, fresh.c_str()) >= 0;
    if (!kept || rename(fresh.c_str(), m_history_path.c_str()) != 0) unlink(fresh.c_str());
}

std::string history_path() {
    auto variable = [](const char* name) {
        const char* value = std::getenv(name);
        return std::string(value == nullptr || *value != '/' ? "" : value);
    };
    std::string state = variable("XDG_STATE_HOME");
    if (state.empty() && !variable("HOME").empty()) state = variable("HOME") + "/.local/state";
    if (state.empty()) return "";
    std::string folder = state + "/brumectl";
    std::error_code err;
    std::filesystem::create_directories(state, err);
    if (mkdir(folder.c_str(), 0700) != 0 && errno != EEXIST) return "";
    return folder + "/history";
}

}  // namespace brumectl
