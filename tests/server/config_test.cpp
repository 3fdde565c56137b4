#include "server/corvo_server_config.h"

#include <gtest/gtest.h>

#include "support/error_of.h"
#include "support/temp_dir.h"

namespace corvo {
namespace {

TEST(ReadConfig, AnErrorStopsTheFileWhateverItsTextIs) {
    test::TempDir dir;
    const std::string path = dir.write("config", R"([{"method":"a"},{"method":"b"}])");
    const struct {
        const char* response;
        int asked;
    } cases[] = {
        {R"({"result":null})", 2},
        {R"({"error":null})", 2},
        {R"([{"result":1},{"error":{"message":"m"}}])", 1},
        {R"({"error":{"specific_err":"","message":"m"}})", 1},
    };
    for (const auto& c : cases) {
        int asked = 0;
        ReadConfig config(path, [&](const std::string&, std::string& response) {
            ++asked;
            response = c.response;
        });
        EXPECT_EQ(test::error_of([&] { config.execute(); }),
                  c.asked == 2 ? "" : "Config file encountered an error, exiting")
            << c.response;
        EXPECT_EQ(asked, c.asked) << c.response;
    }
}

}  // namespace
}  // namespace corvo
