// The engine's own options: a file beside the library.
#include <gtest/gtest.h>

#include <cstdlib>

#include "engine_error.h"
#include "options.h"
#include "support/error_of.h"
#include "support/temp_dir.h"

namespace corvo::engine {
namespace {

TEST(Options, AWrongLineIsToldWithItsPlaceAndWhatIsAllowed) {
    const std::string range = "ring_bytes must be from 262144 to 1073741824, not ";
    const std::string names =
        "expecting 'NAME = VALUE' with 'ring_bytes', 'sensor', 'spool', 'spool_bytes', not ";
    const std::pair<const char*, std::string> CASES[] = {
        {"", ""},
        {"# all of it\n\n  ring_bytes = 262144  # small\r\nring_bytes=1073741824", ""},
        {"ring_bytes = 262143", "'f', line 1: " + range + "'262143'"},
        {"\nring_bytes = 1M", "'f', line 2: " + range + "'1M'"},
        {"ring_bytes = -1", "'f', line 1: " + range + "'-1'"},
        {"ring_bytes", "'f', line 1: " + names + "'ring_bytes'"},
        {"rings = 5", "'f', line 1: " + names + "'rings = 5'"},
        {"spool = var", "'f', line 1: spool must be an absolute path, not 'var'"},
        {"sensor =", "'f', line 1: sensor must be a text of at most 253 bytes, not ''"},
        {"spool_bytes = 8388607",
         "'f', line 1: spool_bytes must be from 8388608 to 1099511627776, not '8388607'"},
    };
    for (const auto& [text, failure] : CASES)
        EXPECT_EQ(test::error_of<Error>([&, text = text] { Options::parse(text, "f"); }), failure) << text;
    const Options all =
        Options::parse("ring_bytes=300000\nsensor = a b\nspool = /s\nspool_bytes=9000000", "f");
    EXPECT_EQ(all.ring_bytes, 300000U);
    EXPECT_EQ(all.sensor + all.spool + std::to_string(all.spool_bytes), "a b/s9000000");
}

TEST(Options, AFileMayBeAbsentUnlessItIsNamed) {
    const test::TempDir dir;
    EXPECT_EQ(Options::load().ring_bytes, Options().ring_bytes);
    setenv("BRUMECP_ENGINE_CONF", dir.file("absent").c_str(), 1);
    EXPECT_EQ(test::error_of<Error>([] { Options::load(); }),
              "can't read the engine's options in '" + dir.file("absent") + "'");
    setenv("BRUMECP_ENGINE_CONF", dir.write("f", "ring_bytes = 270000").c_str(), 1);
    EXPECT_EQ(Options::load().ring_bytes, 270000U);
    unsetenv("BRUMECP_ENGINE_CONF");
}

}  // namespace
}  // namespace corvo::engine
