# Everything that isn't this system's own purpose comes from the distribution.
find_package(PkgConfig REQUIRED)
pkg_check_modules(JSONCPP REQUIRED IMPORTED_TARGET jsoncpp)
pkg_check_modules(LZ4 REQUIRED IMPORTED_TARGET liblz4)
pkg_check_modules(SYSTEMD REQUIRED IMPORTED_TARGET libsystemd)
pkg_check_modules(NDPI REQUIRED IMPORTED_TARGET libndpi)
if(BRUMECPD_HAVE_DW)
    pkg_check_modules(DW REQUIRED IMPORTED_TARGET libdw)
endif()
