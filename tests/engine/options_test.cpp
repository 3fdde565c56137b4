// The engine's own options: a file beside the library.
#include <gtest/gtest.h>

#include <cstdlib>
#include <tuple>
#include <utility>

#include "engine_error.h"
#include "options.h"
#include "support/error_of.h"
#include "support/temp_dir.h"

namespace corvo::engine {
namespace {

TEST(Options, AWrongLineIsToldWithItsPlaceAndWhatIsAllowed) {
    const std::string range = "ring_bytes must be from 262144 to 1073741824, not ";
    const std::pair<const char*, std::string> CASES[] = {
        {"", ""},
        {"# all of it\n\n  ring_bytes = 262144  # small\r\nring_bytes=1073741824", ""},
        {"ring_bytes = 262143", "'f', line 1: " + range + "'262143'"},
        {"\nring_bytes = 1M", "'f', line 2: " + range + "'1M'"},
        {"ring_bytes = -1", "'f', line 1: " + range + "'-1'"},
        {"ring_bytes", "'f', line 1: expecting 'ring_bytes = VALUE', not 'ring_bytes'"},
        {"rings = 5",
         "'f', line 1: no option 'rings', expecting one of ring_bytes, sensor, spool, spool_bytes, workers"},
        {"sensor = # none", "'f', line 1: sensor must have from 1 to 255 bytes and no control characters"},
        {"spool = /a\tb", "'f', line 1: spool must have from 0 to 2048 bytes and no control characters"},
        {"spool =\nspool_bytes = 8388607",
         "'f', line 2: spool_bytes must be from 8388608 to 1099511627776, not '8388607'"},
        {"workers = 129", "'f', line 1: workers must be from 1 to 128, not '129'"},
    };
    for (const auto& [text, failure] : CASES)
        EXPECT_EQ(test::error_of<Error>([&, text = text] { Options::parse(text, "f"); }), failure) << text;
    const Options all =
        Options::parse("ring_bytes=300000\nsensor = gw 1\nspool=/s\nspool_bytes=9000000\nworkers=3", "f");
    EXPECT_EQ(std::tie(all.ring_bytes, all.sensor, all.spool, all.spool_bytes, all.workers),
              std::tuple(300000U, "gw 1", "/s", 9000000U, 3U));
}

TEST(Options, AFileMayBeAbsentUnlessItIsNamed) {
    const test::TempDir dir;
    EXPECT_EQ(Options::load().ring_bytes, Options().ring_bytes);
    EXPECT_NE(Options::load().sensor, "");
    const std::pair<std::string, const char*> unreadable[] = {
        {dir.file("absent"), ": No such file or directory"},
        {dir.path(), ": Is a directory"},
        {"/dev/zero", ": more than 65536 bytes"},
    };
    for (const auto& [file, why] : unreadable) {
        setenv("BRUMECP_ENGINE_CONF", file.c_str(), 1);
        EXPECT_EQ(test::error_of<Error>([] { Options::load(); }),
                  "can't read the engine's options in '" + file + "'" + why);
    }
    setenv("BRUMECP_ENGINE_CONF", dir.write("f", "ring_bytes = 270000").c_str(), 1);
    EXPECT_EQ(Options::load().ring_bytes, 270000U);
    unsetenv("BRUMECP_ENGINE_CONF");
}

}  // namespace
}  // namespace corvo::engine
