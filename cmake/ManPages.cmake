# Manual pages, made by scdoc from packaging/man. A line `@NAME@` stands for the fragment NAME, made from what the
# page tells about, so that it can't tell something else.
find_program(SCDOC scdoc)
find_package(Python3 COMPONENTS Interpreter)
if(NOT SCDOC OR NOT Python3_FOUND)
    message(STATUS "Without scdoc and python3 there are no manual pages")
    return()
endif()

set(man_out ${PROJECT_BINARY_DIR}/packaging/man)
file(MAKE_DIRECTORY ${man_out})

# Component and page.
set(man_pages
    "daemon|brumecpd.8"
    "daemon|brumecpd-rpc.7"
    "daemon|brumecpd-config.5"
    "client|brumectl.1"
    "dev|brumecpd-engine.3")
if(TARGET brumecp_engine_check)
    list(APPEND man_pages "dev|brumecp-engine-check.1")
endif()
# The client describes its words itself.
add_custom_command(OUTPUT ${man_out}/words.scd
    COMMAND brumectl man-tables > ${man_out}/words.scd
    DEPENDS brumectl
    COMMENT "Asking brumectl for its words")
foreach(entry IN LISTS man_pages)
    string(REPLACE "|" ";" entry "${entry}")
    list(GET entry 0 component)
    list(GET entry 1 page)
    string(REGEX REPLACE "^.*\\." "" section ${page})
    set(source ${PROJECT_SOURCE_DIR}/packaging/man/${page}.scd)
    add_custom_command(OUTPUT ${man_out}/${page}
        COMMAND ${Python3_EXECUTABLE} ${PROJECT_SOURCE_DIR}/scripts/man_page.py --scdoc ${SCDOC} --document ${PROJECT_BINARY_DIR}/openrpc.json
                --words ${man_out}/words.scd
                ${source} ${man_out}/${page}
        DEPENDS ${source} ${PROJECT_SOURCE_DIR}/scripts/man_page.py ${PROJECT_SOURCE_DIR}/scripts/methods_doc.py
                ${PROJECT_BINARY_DIR}/openrpc.json ${man_out}/words.scd
        COMMENT "Writing the manual page ${page}"
        VERBATIM)
    install(FILES ${man_out}/${page} DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component})
    list(APPEND man_files ${man_out}/${page})
endforeach()
add_custom_target(man_pages ALL DEPENDS ${man_files})
