# Build description: fixed flags come from the options, hash and date from git each time something is built.
set(BRUMECPD_VERSION_SOURCE ${PROJECT_BINARY_DIR}/generated/corvo_version_git.cpp)
add_custom_target(brumecpd_version
    COMMAND ${CMAKE_COMMAND} -DSOURCE_DIR=${PROJECT_SOURCE_DIR} -DOUT=${BRUMECPD_VERSION_SOURCE}
            -P ${PROJECT_SOURCE_DIR}/cmake/WriteVersion.cmake
    BYPRODUCTS ${BRUMECPD_VERSION_SOURCE}
    COMMENT "Asking git for the version"
    VERBATIM)

add_library(brumecpd_build_flags INTERFACE)
if(BRUMECPD_SANITIZER STREQUAL "address")
    set(sanitizer_number 1)
elseif(BRUMECPD_SANITIZER STREQUAL "thread")
    set(sanitizer_number 2)
else()
    set(sanitizer_number 0)
endif()
target_compile_definitions(brumecpd_build_flags INTERFACE
    BRUMECPD_SLAVE_MODE=$<BOOL:${BRUMECPD_SLAVE_MODE}>
    BRUMECPD_BARE_METAL=$<BOOL:${BRUMECPD_BARE_METAL}>
    BRUMECPD_DEV_IMAGE=$<BOOL:${BRUMECPD_DEV_IMAGE}>
    BRUMECPD_HAVE_DW=$<BOOL:${BRUMECPD_HAVE_DW}>
    BRUMECPD_SANITIZER=${sanitizer_number})
