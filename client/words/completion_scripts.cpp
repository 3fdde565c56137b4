#include "client/words/completion_scripts.h"

#include "client/failure.h"

namespace brumectl {

namespace {

// The reply has a line per candidate: its text and description, separated by a tab. Status 1 means that it
// may be a file's name. The reply is never evaluated as code: names come from the daemon.
constexpr struct {
    const char* shell;
    const char* script;
} SCRIPTS[] = {
    // bash splits words, and so the text to complete, at each colon and equals sign.
    {"bash", R"(# bash completion for brumectl; made by `brumectl completion bash`
_brumectl() {
    local line=${COMP_LINE:0:COMP_POINT} program=${COMP_WORDS[0]/#~\//$HOME/} found
    COMPREPLY=()
    if ! found=$("$program" complete --line="$line" 2>/dev/null); then
        compopt -o default
        return
    fi
    [ -n "$found" ] || return 0
    mapfile -t COMPREPLY <<<"$found"
    COMPREPLY=("${COMPREPLY[@]%%$'\t'*}")
    local word=${line##*[[:blank:]]} current=${COMP_WORDS[COMP_CWORD]}
    [[ $current != [:=] ]] || current=
    local cut=${word%"$current"}
    [[ $cut != *[:=] ]] || COMPREPLY=("${COMPREPLY[@]#"$cut"}")
}
complete -F _brumectl brumectl
)"},
    {"zsh", R"(#compdef brumectl
# made by `brumectl completion zsh`
_brumectl() {
    local program=${${(Q)words[1]}/#\~\//$HOME/} found line
    local name text
    local -a described
    if ! found=$("$program" complete --line="${(j: :)words[1,CURRENT-1]} $PREFIX" 2>/dev/null); then
        _files
        return
    fi
    for line in "${(@f)found}"; do
        name=${line%%$'\t'*} text=${line#*$'\t'}
        [[ -z $name ]] || described+=("${name//:/\\:}${text:+:$text}")
    done
    _describe -V 'brumectl' described
}
_brumectl "$@"
)"},
    {"fish", R"(# fish completion for brumectl; made by `brumectl completion fish`
function __brumectl_complete
    set -l program (string replace --regex '^~/' "$HOME/" -- (commandline -opc)[1])
    set -l current (commandline -ct)
    $program complete --line=(commandline -cp | string collect) 2>/dev/null
    or __fish_complete_path "$current"
end
complete --command brumectl --no-files --arguments '(__brumectl_complete)'
)"},
};

}  // namespace

std::vector<std::string> completed_shells() {
    std::vector<std::string> shells;
    for (const auto& one : SCRIPTS)
        shells.emplace_back(one.shell);
    return shells;
}

const char* completion_script(const std::string& shell) {
    for (const auto& one : SCRIPTS)
        if (shell == one.shell) return one.script;
    throw Usage("there's no completion for '" + shell + "'");
}

}  // namespace brumectl
