#pragma once
// What this build is: constants fixed when the program is built. All of them are exported to engine
// libraries, those that nothing but the compiler reads included.

namespace corvo {

struct Version {
    /** "dev @ ", short commit hash and commit date; a fixed text outside a checkout. */
    static const char* const g_version;
    /** The same without "dev @ ". */
    static const char* const g_gitsha;
    [[gnu::used]] static constexpr bool g_is_dev_image = BRUMECPD_DEV_IMAGE;
    [[gnu::used]] static constexpr bool g_bare_metal = BRUMECPD_BARE_METAL;
    /** Stack traces can resolve symbols through libdw. */
    [[gnu::used]] static constexpr bool g_have_dw = BRUMECPD_HAVE_DW;
    /** A supervising host system owns the kernel module and the data-path resources. */
    [[gnu::used]] static constexpr bool g_in_slave_mode = BRUMECPD_SLAVE_MODE;
#ifdef __OPTIMIZE__
    [[gnu::used]] static constexpr bool g_is_optimized = true;
#else
    [[gnu::used]] static constexpr bool g_is_optimized = false;
#endif
    /** 0 none, 1 address sanitizer, 2 thread sanitizer. */
    [[gnu::used]] static constexpr int g_sanitizer = BRUMECPD_SANITIZER;
};

}  // namespace corvo
