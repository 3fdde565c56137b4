#pragma once
// Facts about this build, fixed at compile time. All of them are exported to engine libraries, even those
// that only the compiler reads.

namespace corvo {

struct Version {
    /** "dev @ ", short commit hash and commit date; a fixed text if built outside a checkout. */
    static const char* const g_version;
    /** The same without "dev @ ". */
    static const char* const g_gitsha;
    [[gnu::used]] static constexpr bool g_is_dev_image = BRUMECPD_DEV_IMAGE;
    [[gnu::used]] static constexpr bool g_bare_metal = BRUMECPD_BARE_METAL;
    /** Whether stack traces can resolve symbols through libdw. */
    [[gnu::used]] static constexpr bool g_have_dw = BRUMECPD_HAVE_DW;
    /** Whether a supervising host system owns the kernel module and the data-path resources. */
    [[gnu::used]] static constexpr bool g_in_slave_mode = BRUMECPD_SLAVE_MODE;
#ifdef __OPTIMIZE__
    [[gnu::used]] static constexpr bool g_is_optimized = true;
#else
    [[gnu::used]] static constexpr bool g_is_optimized = false;
#endif
    /** 0 for none, 1 for address sanitizer, 2 for thread sanitizer. */
    [[gnu::used]] static constexpr int g_sanitizer = BRUMECPD_SANITIZER;
};

}  // namespace corvo
