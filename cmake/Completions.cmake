# Completions of brumectl, as it gives them itself: shell, file, and the folder where its package is looked for.
set(completions
    "bash|brumectl|bash-completion/completions"
    "zsh|_brumectl|zsh/vendor-completions"
    "fish|brumectl.fish|fish/vendor_completions.d")
set(completions_out ${PROJECT_BINARY_DIR}/packaging/completion)
file(MAKE_DIRECTORY ${completions_out})
foreach(entry IN LISTS completions)
    string(REPLACE "|" ";" entry "${entry}")
    list(GET entry 0 shell)
    list(GET entry 1 file)
    list(GET entry 2 folder)
    add_custom_command(OUTPUT ${completions_out}/${file}
        COMMAND brumectl completion ${shell} > ${completions_out}/${file}
        DEPENDS brumectl
        COMMENT "Asking brumectl for its completion in ${shell}")
    install(FILES ${completions_out}/${file} COMPONENT client DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/${folder})
    list(APPEND completion_files ${completions_out}/${file})
endforeach()
add_custom_target(completions ALL DEPENDS ${completion_files})
