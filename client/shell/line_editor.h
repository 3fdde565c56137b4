#pragma once
// Reads a line typed at a terminal: editing, history that outlives the program, completion with Tab.

#include <histedit.h>

#include <functional>
#include <string>
#include <vector>

namespace brumectl {

class LineEditor {
 public:
    /** What can replace the last word of what has been typed. */
    using completer_t = std::function<std::vector<std::string>(const std::string& typed, std::string& last)>;

    /** If `history_path` is empty, no history is kept. */
    LineEditor(std::string prompt, std::string history_path, completer_t completer);
    LineEditor(const LineEditor&) = delete;
    LineEditor& operator=(const LineEditor&) = delete;
    /** Restores the terminal and saves the history. */
    ~LineEditor();

    /** False on Ctrl-D. Throws Interrupted, also for Ctrl-C. */
    bool next(std::string& line);

 private:
    static LineEditor& of(EditLine* editor);
    static int read_char(EditLine* editor, wchar_t* c);
    static unsigned char complete(EditLine* editor, int c);
    static char* prompt(EditLine* editor);
    void remember(const std::string& line);
    void keep_history() const;

    std::string m_prompt;
    std::string m_history_path;
    completer_t m_completer;
    EditLine* m_editor;
    History* m_history;
    int m_signum =
        0;  ///< the signal that ended the reading of a line; exceptions can't pass the editor's C code
};

/**
 * $XDG_STATE_HOME/brumectl/history, or else in ~/.local/state. Creates the folder. Empty if there is no home.
 */
std::string history_path();

}  // namespace brumectl
