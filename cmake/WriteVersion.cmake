# Writes OUT only where the text changes, so that an unchanged commit rebuilds nothing.
set(described "unknown (not built from a checkout)")
execute_process(COMMAND git -C ${SOURCE_DIR} rev-parse --show-toplevel
                OUTPUT_VARIABLE top ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failed)
if(NOT failed AND top STREQUAL SOURCE_DIR)
    execute_process(COMMAND git -C ${SOURCE_DIR} log -1 --format=%h\ \(%cd\) --date=iso
                    OUTPUT_VARIABLE from_git ERROR_QUIET OUTPUT_STRIP_TRAILING_WHITESPACE RESULT_VARIABLE failed)
    if(NOT failed)
        set(described "${from_git}")
    endif()
endif()
set(text "#include \"infra/corvo_version.h\"

namespace corvo {
const char* const Version::g_version = \"dev @ ${described}\";
const char* const Version::g_gitsha = \"${described}\";
}  // namespace corvo
")
set(old "")
if(EXISTS ${OUT})
    file(READ ${OUT} old)
endif()
if(NOT old STREQUAL text)
    file(WRITE ${OUT} "${text}")
endif()
