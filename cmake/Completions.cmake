# Completions of brumectl, as it gives them itself.
set(completions_out ${CMAKE_BINARY_DIR}/packaging/completion)
file(MAKE_DIRECTORY ${completions_out})
add_custom_command(OUTPUT ${completions_out}/brumectl ${completions_out}/_brumectl
    COMMAND brumectl completion bash > ${completions_out}/brumectl
    COMMAND brumectl completion zsh > ${completions_out}/_brumectl
    DEPENDS brumectl
    COMMENT "Asking brumectl for its completions")
add_custom_target(completions ALL DEPENDS ${completions_out}/brumectl ${completions_out}/_brumectl)
install(FILES ${completions_out}/brumectl COMPONENT client
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/bash-completion/completions)
install(FILES ${completions_out}/_brumectl COMPONENT client
    DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/zsh/vendor-completions)
